#include "platform/natural_order.h"

#include <unicode/uchar.h>
#include <unicode/unorm2.h>
#include <unicode/ustring.h>

#include <cstring>

namespace tw {

namespace {

inline bool isAsciiDigit(char32_t c) {
  return c >= '0' && c <= '9';
}
inline char32_t asciiLower(char32_t c) {
  return (c >= 'A' && c <= 'Z') ? c + 32 : c;
}

int sign(int v) {
  return (v > 0) - (v < 0);
}

bool isAscii(std::string_view s) {
  for (unsigned char c : s)
    if (c >= 0x80) return false;
  return true;
}

// Decodes one UTF-8 sequence at `pos`; an invalid byte reads as U+FFFD and consumes one byte.
char32_t decodeUtf8(std::string_view s, std::size_t& pos) {
  auto byte = [&](std::size_t i) { return static_cast<unsigned char>(s[i]); };
  unsigned char b0 = byte(pos);
  if (b0 < 0x80) {
    ++pos;
    return b0;
  }
  int len = 0;
  char32_t cp = 0, min = 0;
  if ((b0 & 0xE0) == 0xC0) {
    len = 2, cp = b0 & 0x1F, min = 0x80;
  } else if ((b0 & 0xF0) == 0xE0) {
    len = 3, cp = b0 & 0x0F, min = 0x800;
  } else if ((b0 & 0xF8) == 0xF0) {
    len = 4, cp = b0 & 0x07, min = 0x10000;
  } else {
    ++pos;
    return 0xFFFD;
  }
  if (pos + len > s.size()) {
    ++pos;
    return 0xFFFD;
  }
  for (int i = 1; i < len; ++i) {
    unsigned char b = byte(pos + i);
    if ((b & 0xC0) != 0x80) {
      ++pos;
      return 0xFFFD;
    }
    cp = (cp << 6) | (b & 0x3F);
  }
  if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
    ++pos;
    return 0xFFFD;
  }
  pos += len;
  return cp;
}

const UNormalizer2* nfd() {
  static const UNormalizer2* instance = [] {
    UErrorCode status = U_ZERO_ERROR;
    const UNormalizer2* n = unorm2_getNFDInstance(&status);
    return U_SUCCESS(status) ? n : nullptr;
  }();
  return instance;
}

// Appends the folded form of one code point: decomposed, marks dropped, case folded.
void appendFolded(char32_t cp, std::u32string& out) {
  if (cp < 0x80) {
    out.push_back(asciiLower(cp));
    return;
  }
  UChar decomposed[32];
  int32_t length = 0;
  UErrorCode status = U_ZERO_ERROR;
  if (const UNormalizer2* n = nfd())
    length = unorm2_getDecomposition(n, cp, decomposed, 32, &status);
  if (length <= 0 || U_FAILURE(status)) {
    out.push_back(static_cast<char32_t>(u_foldCase(static_cast<UChar32>(cp), U_FOLD_CASE_DEFAULT)));
    return;
  }
  for (int32_t i = 0; i < length;) {
    UChar32 c;
    U16_NEXT(decomposed, i, length, c);
    if (u_getCombiningClass(c) != 0 || u_charType(c) == U_NON_SPACING_MARK) continue;
    out.push_back(static_cast<char32_t>(u_foldCase(c, U_FOLD_CASE_DEFAULT)));
  }
}

// Reads folded code points one at a time.
class FoldedReader {
 public:
  explicit FoldedReader(std::string_view s) : s_(s) {}
  bool atEnd() {
    fill();
    return pos_ == buffer_.size();
  }
  char32_t peek() {
    fill();
    return buffer_[pos_];
  }
  void advance() { ++pos_; }

 private:
  void fill() {
    while (pos_ == buffer_.size() && offset_ < s_.size()) {
      buffer_.clear();
      pos_ = 0;
      appendFolded(decodeUtf8(s_, offset_), buffer_);
    }
  }
  std::string_view s_;
  std::size_t offset_ = 0;
  std::u32string buffer_;
  std::size_t pos_ = 0;
};

int compareRaw(std::string_view a, std::string_view b) {
  int r = std::memcmp(a.data(), b.data(), std::min(a.size(), b.size()));
  if (r) return sign(r);
  return a.size() < b.size() ? -1 : (a.size() > b.size() ? 1 : 0);
}

// Compares while both names are ASCII; gives up (returns kNotAscii) as soon as a byte that needs
// folding could decide. Up to that point folding would decide exactly the same way.
constexpr int kNotAscii = 2;

int compareAscii(std::string_view a, std::string_view b) {
  std::size_t i = 0, j = 0;
  const std::size_t na = a.size(), nb = b.size();
  while (i < na && j < nb) {
    const auto ca = static_cast<unsigned char>(a[i]), cb = static_cast<unsigned char>(b[j]);
    if ((ca | cb) & 0x80) return kNotAscii;
    if (isAsciiDigit(ca) && isAsciiDigit(cb)) {
      std::size_t si = i, sj = j;
      while (si < na && a[si] == '0') ++si;
      while (sj < nb && b[sj] == '0') ++sj;
      std::size_t ei = si, ej = sj;
      while (ei < na && isAsciiDigit(a[ei])) ++ei;
      while (ej < nb && isAsciiDigit(b[ej])) ++ej;
      if (ei - si != ej - sj) return ei - si < ej - sj ? -1 : 1;
      if (int r = std::memcmp(a.data() + si, b.data() + sj, ei - si)) return sign(r);
      i = ei, j = ej;
      continue;
    }
    const char32_t la = asciiLower(ca), lb = asciiLower(cb);
    if (la != lb) return la < lb ? -1 : 1;
    ++i, ++j;
  }
  // What is left of the longer name decides, unless it might fold away to nothing.
  if (!isAscii(a.substr(i)) || !isAscii(b.substr(j))) return kNotAscii;
  if (i < na) return 1;
  if (j < nb) return -1;
  return 0;
}

int compareFolded(std::string_view a, std::string_view b) {
  FoldedReader ra(a), rb(b);
  std::u32string da, db;
  while (!ra.atEnd() && !rb.atEnd()) {
    char32_t ca = ra.peek(), cb = rb.peek();
    if (isAsciiDigit(ca) && isAsciiDigit(cb)) {
      da.clear(), db.clear();
      while (!ra.atEnd() && isAsciiDigit(ra.peek())) da.push_back(ra.peek()), ra.advance();
      while (!rb.atEnd() && isAsciiDigit(rb.peek())) db.push_back(rb.peek()), rb.advance();
      std::size_t za = da.find_first_not_of(U'0'), zb = db.find_first_not_of(U'0');
      std::u32string_view va =
          za == std::u32string::npos ? U"" : std::u32string_view(da).substr(za);
      std::u32string_view vb =
          zb == std::u32string::npos ? U"" : std::u32string_view(db).substr(zb);
      if (va.size() != vb.size()) return va.size() < vb.size() ? -1 : 1;
      if (int r = va.compare(vb)) return sign(r);
      continue;
    }
    if (ca != cb) return ca < cb ? -1 : 1;
    ra.advance(), rb.advance();
  }
  if (!ra.atEnd()) return 1;
  if (!rb.atEnd()) return -1;
  return 0;
}

}  // namespace

int naturalCompare(std::string_view a, std::string_view b) {
  int r = compareAscii(a, b);
  if (r == kNotAscii) r = compareFolded(a, b);
  return r ? r : compareRaw(a, b);
}

std::u32string foldForMatching(std::string_view text) {
  std::u32string out;
  out.reserve(text.size());
  for (std::size_t pos = 0; pos < text.size();) appendFolded(decodeUtf8(text, pos), out);
  return out;
}

WildcardPattern::WildcardPattern(std::string_view pattern) : folded_(foldForMatching(pattern)) {}

bool WildcardPattern::matches(std::string_view text) const {
  const std::u32string t = foldForMatching(text);
  const std::u32string& p = folded_;
  // Greedy matching with a single backtrack point for the last "*".
  std::size_t ti = 0, pi = 0, starP = std::u32string::npos, starT = 0;
  while (ti < t.size()) {
    if (pi < p.size() && (p[pi] == U'?' || p[pi] == t[ti])) {
      ++ti, ++pi;
    } else if (pi < p.size() && p[pi] == U'*') {
      starP = pi++;
      starT = ti;
    } else if (starP != std::u32string::npos) {
      pi = starP + 1;
      ti = ++starT;
    } else {
      return false;
    }
  }
  while (pi < p.size() && p[pi] == U'*') ++pi;
  return pi == p.size();
}

}  // namespace tw
