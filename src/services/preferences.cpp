#include "services/preferences.h"

#include <QByteArray>
#include <QMutex>
#include <QVariantMap>

#include "services/library_preferences.h"

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

// One encoding for every stored path, shared with the scan library's own preferences.
QString encodePathForPreferences(const std::string& path) {
  return library::encodePathForSettings(path);
}

std::string decodePathFromPreferences(const QString& stored) {
  return library::decodePathFromSettings(stored);
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
