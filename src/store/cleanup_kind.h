// What a scan database records about a file's kind: its extension and its cleanup class. Both are
// stored with every row when a scan is written; the tools read them back instead of recomputing.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/paths.h"  // fileExtension, asciiLowercase

namespace tw {

// The cleanup class stored in items.cleanup_kind, from the first matching rule, or none.
// `lowerPath` is the standardized path in lower case, `lowerName` the name in lower case and
// `extension` the stored extension ("" for folders). Linux locations ("/.cache/", "/tmp/") sit
// right after their macOS counterparts, so the order of classes is the same on both systems.
std::optional<std::string_view> cleanupKind(std::string_view lowerPath, std::string_view lowerName,
                                            std::string_view extension, bool isDirectory);

}  // namespace tw
