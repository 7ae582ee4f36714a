#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace ulvek {

// Paths inside a book. Member names are relative, "/"-separated and have no leading "/"; links
// in a book's documents are resolved against the member that holds them and never lead out of
// the book.

// YES for links with a scheme ("http:", "data:", "mailto:"): they point outside the book.
bool hasURLScheme(std::string_view link);

// A navigation target without its fragment: everything from the first "#" on is cut, except
// when the "#" is followed by "!" or "/" and at least one more character (such fragments
// address whole documents in some readers).
std::string withoutFragment(std::string_view target);

// "a/./b/../c" → "a/c"; nothing when the path climbs above the book's top.
std::optional<std::string> normalizedMemberPath(std::string_view path);

// The member a link inside `baseMember` points at: its path (query and fragment cut,
// percent-decoded) resolved against the base's folder. An empty path names the base itself.
// Nothing for links with a scheme ("http:", "data:", "mailto:"), absolute paths, and paths that
// climb out of the book.
std::optional<std::string> resolvedMemberPath(std::string_view baseMember, std::string_view link);

// `member` relative to `folder` ("" is the top), with ".." where it lies outside the folder.
std::string relativeMemberPath(std::string_view member, std::string_view folder);

// The folder part of a member ("" at the top) and its last component (its file name).
std::string memberFolder(std::string_view member);
std::string memberName(std::string_view path);

}  // namespace ulvek
