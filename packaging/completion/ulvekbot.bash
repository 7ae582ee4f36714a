# bash completion for ulvekbot
_ulvekbot() {
  local cur prev words cword
  _init_completion -n = || return
  local commands="import classify formats importers attributes directory sheet bibtex epub call help"
  if ((cword == 1)); then
    COMPREPLY=($(compgen -W "$commands --help --version" -- "$cur"))
    return
  fi
  # --opt=value completes the value.
  if [[ $cur == --*=* ]]; then
    prev=${cur%%=*}
    cur=${cur#*=}
  fi
  case ${words[1]} in
  help)
    COMPREPLY=($(compgen -W "$commands" -- "$cur"))
    return
    ;;
  call)
    if ((cword == 2)); then
      COMPREPLY=($(compgen -W "ping terminate attributes directory import plain supports data" -- "$cur"))
      return
    fi
    if [[ $cur == -* ]]; then
      COMPREPLY=($(compgen -W "--help" -- "$cur"))
      return
    fi
    ;;
  import)
    case $prev in
    --timeout | --time-limit | --max-text | --max-depth | --exclude | -j | --jobs | --ocr-lang) return ;;
    -o | --output | --files-from)
      _filedir
      return
      ;;
    esac
    if [[ $cur == -* ]]; then
      COMPREPLY=($(compgen -W "--files-from -0 --null --text -o --output -q --quiet --max-text
        --timeout --time-limit --no-recursive --max-depth --exclude -L --follow -j --jobs --ocr
        --no-ocr --ocr-lang --help" -- "$cur"))
      return
    fi
    ;;
  classify | formats)
    if [[ $cur == -* ]]; then
      COMPREPLY=($(compgen -W "--json --help" -- "$cur"))
      return
    fi
    ;;
  importers)
    if [[ $cur == -* ]]; then
      COMPREPLY=($(compgen -W "--json --sandbox --help" -- "$cur"))
      return
    fi
    ;;
  epub)
    if ((cword == 2)); then
      COMPREPLY=($(compgen -W "info toc text html rtf first-page cover files" -- "$cur"))
      return
    fi
    if [[ $prev == -o || $prev == --output ]]; then
      _filedir
      return
    fi
    if [[ $cur == -* ]]; then
      local options="-o --output --help"
      [[ ${words[2]} == toc ]] && options+=" --json"
      COMPREPLY=($(compgen -W "$options" -- "$cur"))
      return
    fi
    _filedir '@(epub)'
    return
    ;;
  sheet)
    if [[ $prev == --max-rows ]]; then return; fi
    if [[ $cur == -* ]]; then
      COMPREPLY=($(compgen -W "--max-rows --help" -- "$cur"))
      return
    fi
    ;;
  *)
    if [[ $cur == -* ]]; then
      COMPREPLY=($(compgen -W "--help" -- "$cur"))
      return
    fi
    ;;
  esac
  _filedir
}
complete -F _ulvekbot ulvekbot
