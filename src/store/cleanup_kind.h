// What a scan database records about a file's kind: its extension and its cleanup class. Both are
// stored with every row when a scan is written; the tools read them back instead of recomputing.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tw {

// The lower-cased part after the last dot of a name whose stem is not empty; "" when there is
// none (".bashrc", "Makefile", "archive.").
std::string fileExtension(std::string_view name);

// ASCII lower case, leaving every other byte as it is (as SQLite's lower() does).
std::string asciiLowercase(std::string_view text);

// The cleanup class stored in items.cleanup_kind, from the first matching rule, or none.
// `lowerPath` is the standardized path in lower case, `lowerName` the name in lower case and
// `extension` the stored extension ("" for folders). Linux locations ("/.cache/", "/tmp/") sit
// right after their macOS counterparts, so the order of classes is the same on both systems.
std::optional<std::string_view> cleanupKind(std::string_view lowerPath, std::string_view lowerName,
                                            std::string_view extension, bool isDirectory);

}  // namespace tw
