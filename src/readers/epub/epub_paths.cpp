#include "readers/epub/epub_paths.h"

#include <cctype>
#include <vector>

#include "base/ascii.h"
#include "base/file_url.h"

namespace ulvek {
// A scheme is letters, digits, "+", "-" and "." before the first ":", starting with a letter.
bool hasURLScheme(std::string_view link) {
  std::size_t colon = link.find(':');
  if (colon == std::string_view::npos || colon == 0) return false;
  if (!std::isalpha(static_cast<unsigned char>(link[0]))) return false;
  for (char c : link.substr(0, colon))
    if (!std::isalnum(static_cast<unsigned char>(c)) && c != '+' && c != '-' && c != '.')
      return false;
  return true;
}

std::string withoutFragment(std::string_view target) {
  std::size_t hash = target.find('#');
  if (hash == std::string_view::npos) return std::string(target);
  bool documentFragment =
      hash + 2 < target.size() && (target[hash + 1] == '!' || target[hash + 1] == '/');
  return std::string(documentFragment ? target : target.substr(0, hash));
}

std::optional<std::string> normalizedMemberPath(std::string_view path) {
  std::vector<std::string_view> kept;
  for (std::string_view part : nonEmptyParts(path, '/')) {
    if (part == ".") continue;
    if (part == "..") {
      if (kept.empty()) return std::nullopt;
      kept.pop_back();
      continue;
    }
    kept.push_back(part);
  }
  std::string normalized;
  for (std::string_view part : kept) {
    if (!normalized.empty()) normalized += '/';
    normalized += part;
  }
  return normalized;
}

std::optional<std::string> resolvedMemberPath(std::string_view baseMember, std::string_view link) {
  while (!link.empty() && std::isspace(static_cast<unsigned char>(link.front())))
    link.remove_prefix(1);
  while (!link.empty() && std::isspace(static_cast<unsigned char>(link.back())))
    link.remove_suffix(1);
  if (hasURLScheme(link) || link.starts_with('/')) return std::nullopt;
  link = link.substr(0, link.find_first_of("?#"));
  if (link.empty()) return std::string(baseMember);
  std::optional<std::string> decoded = percentDecoded(link);
  if (!decoded) return std::nullopt;
  std::string folder = memberFolder(baseMember);
  return normalizedMemberPath(folder.empty() ? *decoded : folder + "/" + *decoded);
}

std::string relativeMemberPath(std::string_view member, std::string_view folder) {
  std::vector<std::string_view> to = nonEmptyParts(member, '/'), from = nonEmptyParts(folder, '/');
  std::size_t common = 0;
  while (common < to.size() && common < from.size() && to[common] == from[common]) ++common;
  std::string relative;
  for (std::size_t i = common; i < from.size(); ++i) relative += "../";
  for (std::size_t i = common; i < to.size(); ++i) {
    relative += to[i];
    if (i + 1 < to.size()) relative += '/';
  }
  return relative;
}

std::string memberFolder(std::string_view member) {
  std::size_t slash = member.rfind('/');
  return slash == std::string_view::npos ? std::string() : std::string(member.substr(0, slash));
}

std::string memberName(std::string_view path) {
  while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  std::size_t slash = path.rfind('/');
  return std::string(slash == std::string_view::npos ? path : path.substr(slash + 1));
}

}  // namespace ulvek
