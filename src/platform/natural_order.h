// Name comparison and matching that read like a person would: case- and accent-insensitive, with
// runs of digits compared as numbers. The same in every locale, so results never depend on the
// machine's language settings.
#pragma once

#include <string>
#include <string_view>

namespace tw {

// The natural order of names: negative, zero or positive like strcmp. Digit runs compare as
// numbers ("f2" before "f10"), letters without regard to case or accents, and a final tie is
// broken on the raw bytes, so only byte-identical names compare equal. Bytes that are not UTF-8
// compare as U+FFFD before that last tie-break.
int naturalCompare(std::string_view a, std::string_view b);

// Case-folded, accent-stripped code points of `text` (NFD decomposition without combining marks).
std::u32string foldForMatching(std::string_view text);

// A case- and diacritic-insensitive wildcard pattern: "*" matches any run, "?" one character, and
// the pattern must match the whole text.
class WildcardPattern {
 public:
  explicit WildcardPattern(std::string_view pattern);
  bool matches(std::string_view text) const;
  bool empty() const { return folded_.empty(); }

 private:
  std::u32string folded_;
};

}  // namespace tw
