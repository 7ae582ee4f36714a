# bash completion for ulvekbot
_ulvekbot() {
  local cur prev words cword
  _init_completion || return
  local commands
  commands=$(ulvekbot --help 2>/dev/null | awk '/^  [a-z]/ {print $1}')
  if ((cword == 1)); then
    COMPREPLY=($(compgen -W "$commands --help" -- "$cur"))
    return
  fi
  case ${words[1]} in
  call)
    if ((cword == 2)); then
      COMPREPLY=($(compgen -W "ping terminate attributes directory import plain supports data" -- "$cur"))
      return
    fi
    ;;
  import)
    if [[ $prev == --timeout ]]; then return; fi
    if [[ $cur == -* ]]; then
      COMPREPLY=($(compgen -W "--timeout --help" -- "$cur"))
      return
    fi
    ;;
  classify | importers | formats)
    if [[ $cur == -* ]]; then
      COMPREPLY=($(compgen -W "--json --help" -- "$cur"))
      return
    fi
    ;;
  epub)
    if ((cword == 2)); then
      COMPREPLY=($(compgen -W "info toc text html rtf first-page cover files" -- "$cur"))
      return
    fi
    if [[ $prev == -o ]]; then
      _filedir
      return
    fi
    if [[ $cur == -* ]]; then
      COMPREPLY=($(compgen -W "--json -o --help" -- "$cur"))
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
  esac
  _filedir
}
complete -F _ulvekbot ulvekbot
