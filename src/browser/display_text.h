// Names as the browser shows them. Scan names are raw bytes; shown, invalid UTF-8 and control
// characters (a newline in a file name, say) become U+FFFD, and the bytes stay untouched for every
// file operation.
#pragma once

#include <QString>
#include <string_view>

namespace tw {

// `name` for a label or a list row: one line, invalid bytes and control characters replaced.
QString displayText(std::string_view name);

// `name` isolated from the text around it (U+2068 … U+2069), so right-to-left names do not
// reorder a title they are part of.
QString isolatedDisplayText(std::string_view name);

}  // namespace tw
