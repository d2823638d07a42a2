#include "app/preferences.h"

#include <QByteArray>
#include <QMutex>
#include <QVariantMap>

namespace tw {

namespace {

QMutex& defaultsMutex() {
  static QMutex mutex;
  return mutex;
}

QVariantMap& registeredDefaults() {
  static QVariantMap defaults;
  return defaults;
}

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

}  // namespace

void registerDefaultPreferences() {
  QMutexLocker lock(&defaultsMutex());
  QVariantMap& defaults = registeredDefaults();
  defaults.insert(kSkipPackagesKey, true);
  defaults.insert(kExcludedPathsKey, QStringList());
  defaults.insert(kExcludedFilePatternsKey, QStringList());
}

bool defaultPreferencesRegistered() {
  QMutexLocker lock(&defaultsMutex());
  return registeredDefaults().contains(kSkipPackagesKey);
}

QVariant preferenceValue(const QSettings& settings, const QString& key) {
  if (settings.contains(key)) return settings.value(key);
  QMutexLocker lock(&defaultsMutex());
  return registeredDefaults().value(key);
}

QString encodePathForPreferences(const std::string& path) {
  const QByteArray bytes(path.data(), static_cast<qsizetype>(path.size()));
  return QString::fromLatin1(bytes.toPercentEncoding(unencodedCharacters()));
}

std::string decodePathFromPreferences(const QString& stored) {
  // Anything outside ASCII in a stored value was typed in by hand; take it as UTF-8.
  const QByteArray bytes = QByteArray::fromPercentEncoding(stored.toUtf8());
  return std::string(bytes.constData(), static_cast<std::size_t>(bytes.size()));
}

std::vector<std::string> pathListPreference(const QSettings& settings, const QString& key) {
  std::vector<std::string> paths;
  for (const QString& stored : preferenceValue(settings, key).toStringList()) {
    paths.push_back(decodePathFromPreferences(stored));
  }
  return paths;
}

void setPathListPreference(QSettings& settings, const QString& key,
                           const std::vector<std::string>& paths) {
  QStringList stored;
  for (const std::string& path : paths) stored.append(encodePathForPreferences(path));
  settings.setValue(key, stored);
}

ScanSettings readScanSettings() {
  QSettings settings(kSettingsOrganization, kSettingsApplication);
  ScanSettings out;
  const QVariant skip = preferenceValue(settings, kSkipPackagesKey);
  out.skipPackages = skip.isValid() ? skip.toBool() : true;
  out.excludedPaths = pathListPreference(settings, kExcludedPathsKey);
  for (const QString& pattern :
       preferenceValue(settings, kExcludedFilePatternsKey).toStringList()) {
    const QByteArray utf8 = pattern.toUtf8();
    out.excludedFilePatterns.emplace_back(utf8.constData(), static_cast<std::size_t>(utf8.size()));
  }
  return out;
}

}  // namespace tw
