#include "services/library_preferences.h"

#include <QByteArray>
#include <QSettings>
#include <QVariantMap>

namespace tw::library {

namespace {

// Printable ASCII stays readable in the settings file; "%" itself is always encoded.
const QByteArray& unencodedCharacters() {
  static const QByteArray chars = [] {
    QByteArray out;
    for (char c = 0x20; c < 0x7f; ++c) {
      if (c != '%') out.append(c);
    }
    return out;
  }();
  return chars;
}

QVariantMap storedMap(QSettings& settings) {
  return settings.value(kForgottenScanDatesByPathKey).toMap();
}

void store(QSettings& settings, const QVariantMap& map) {
  settings.setValue(kForgottenScanDatesByPathKey, map);
  settings.sync();
}

}  // namespace

QString encodePathForSettings(const std::string& path) {
  const QByteArray bytes(path.data(), static_cast<qsizetype>(path.size()));
  return QString::fromLatin1(bytes.toPercentEncoding(unencodedCharacters()));
}

std::string decodePathFromSettings(const QString& stored) {
  // Anything outside ASCII in a stored value was typed in by hand; take it as UTF-8.
  const QByteArray bytes = QByteArray::fromPercentEncoding(stored.toUtf8());
  return std::string(bytes.constData(), static_cast<std::size_t>(bytes.size()));
}

std::map<std::string, double> forgottenScanDates() {
  QSettings settings(kSettingsOrganization, kSettingsApplication);
  std::map<std::string, double> dates;
  const QVariantMap map = storedMap(settings);
  for (auto it = map.begin(); it != map.end(); ++it) {
    bool ok = false;
    const double date = it.value().toDouble(&ok);
    if (ok) dates[decodePathFromSettings(it.key())] = date;
  }
  return dates;
}

double forgottenScanDate(const std::string& standardizedPath) {
  const std::map<std::string, double> dates = forgottenScanDates();
  const auto found = dates.find(standardizedPath);
  return found == dates.end() ? 0.0 : found->second;
}

void setForgottenScanDate(const std::string& standardizedPath, double secondsSince1970) {
  QSettings settings(kSettingsOrganization, kSettingsApplication);
  QVariantMap map = storedMap(settings);
  map.insert(encodePathForSettings(standardizedPath), secondsSince1970);
  store(settings, map);
}

void removeForgottenScanDate(const std::string& standardizedPath) {
  QSettings settings(kSettingsOrganization, kSettingsApplication);
  QVariantMap map = storedMap(settings);
  if (map.remove(encodePathForSettings(standardizedPath)) == 0) return;
  store(settings, map);
}

}  // namespace tw::library
