#include "browser/display_text.h"

namespace tw {

QString displayText(std::string_view name) {
  QString text = QString::fromUtf8(name.data(), static_cast<qsizetype>(name.size()));
  for (QChar& c : text) {
    const char16_t u = c.unicode();
    if (u < 0x20 || u == 0x7f || (u >= 0x80 && u < 0xa0) || u == 0x2028 || u == 0x2029)
      c = QChar(QChar::ReplacementCharacter);
  }
  return text;
}

QString isolatedDisplayText(std::string_view name) {
  return QChar(0x2068) + displayText(name) + QChar(0x2069);
}

}  // namespace tw
