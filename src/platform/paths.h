// Path text as the file system gives it: raw bytes, never re-encoded. These helpers work on the
// text alone and never touch the disk.
#pragma once

#include <string>
#include <string_view>

namespace tw {

// Collapses repeated "/", drops "." steps and a trailing "/", and resolves ".." lexically.
std::string standardizePath(std::string_view path);
// Replaces a leading "~" or "~/" with `home`.
std::string expandTilde(std::string_view path, std::string_view home);
// A path as locations are compared and stored: a leading "~" expanded with homeDirectory(), then
// standardized. Lexical only: links are not resolved. An empty path stays empty.
std::string standardizeUserPath(std::string_view path);
// The last component ("/a/b/" gives "b"); the whole path when that is empty (so "/" gives "/").
std::string_view displayNameForPath(std::string_view path);
// The folder holding `path` ("/a/b" gives "/a", "/a" gives "/").
std::string parentPath(std::string_view path);
// `path` equals `folder` or lies below it.
bool isSameOrInside(std::string_view path, std::string_view folder);
// `path` lies below `folder` (it starts with the folder's path followed by "/").
bool isInside(std::string_view path, std::string_view folder);
// `folder` followed by "/" and `name`, without doubling the "/" of the root.
std::string appendPathComponent(std::string_view folder, std::string_view name);
// The lower-cased part after the last dot of a name whose stem is not empty; "" when there is
// none (".bashrc", "Makefile", "archive.").
std::string fileExtension(std::string_view name);
// ASCII lower case, leaving every other byte as it is (as SQLite's lower() does).
std::string asciiLowercase(std::string_view text);
// The user's home folder ($HOME, else the password database).
std::string homeDirectory();

}  // namespace tw
