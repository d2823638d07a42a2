// File URLs as legacy archives and the desktop use them: "file://" followed by the
// percent-encoded path bytes, so that names which are not valid UTF-8 survive as escapes.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tw {

// "file:///a/My%20File"; a folder's URL ends in "/" as the archives write it.
std::string fileURLForPath(std::string_view path, bool directory);
// The URL names the "file" scheme, in any case.
bool hasFileScheme(std::string_view url);
// The raw path bytes of a local file URL ("file:///…", "file://localhost/…" or "file:/…"),
// without a trailing "/" (except for the root). Nothing for other URLs and other hosts.
std::optional<std::string> pathForFileURL(std::string_view url);
// Decodes the escapes of a relative URL reference; stray "%" signs stay as they are.
std::string percentDecode(std::string_view text);

}  // namespace tw
