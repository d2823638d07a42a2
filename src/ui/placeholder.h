// Filling the "%@" placeholder of a user-facing text: messages, alerts and log lines keep their
// format strings exactly as written and get their inserted value here.
#pragma once

#include <string>
#include <string_view>

namespace tw {

// `format` with its first "%@" replaced by `value`; unchanged when it has none.
inline std::string fillPlaceholder(std::string_view format, std::string_view value) {
  std::string text(format);
  const std::size_t at = text.find("%@");
  if (at != std::string::npos) text.replace(at, 2, value);
  return text;
}

}  // namespace tw
