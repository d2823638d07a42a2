// The user's preferences, kept with QSettings (organisation and application "Tarnwell"). Keys are
// stored exactly as named here. Paths are raw bytes: in a stored value they are percent-encoded so
// that a name that is not UTF-8 comes back byte for byte.
#pragma once

#include <QSettings>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <string>
#include <vector>

#include "scan/directory_scanner.h"
#include "services/library_preferences.h"

namespace tw {

// Preference keys (stored names; part of the settings file format).
inline constexpr const char* kSkipPackagesKey = "TWSkipApplicationBundlesAndPackages";
inline constexpr const char* kExcludedPathsKey = "TWExcludedPaths";
inline constexpr const char* kExcludedFilePatternsKey = "TWExcludedFilePatterns";
using library::kForgottenScanDatesByPathKey;  // kept by the scan library
inline constexpr const char* kKnownFolderPathsKey = "TWKnownFolderPaths";
inline constexpr const char* kFavoriteFolderPathsKey = "TWFavoriteFolderPaths";
inline constexpr const char* kRemovedOverviewPathsKey = "TWRemovedOverviewPaths";
inline constexpr const char* kFolderSecurityBookmarksKey = "TWFolderSecurityBookmarks";
inline constexpr const char* kVolumeSecurityBookmarksKey = "TWVolumeSecurityBookmarks";

// Organisation and application name of the settings file ($XDG_CONFIG_HOME/Tarnwell/Tarnwell.conf),
// shared with the scan library's own preferences.
using library::kSettingsApplication;
using library::kSettingsOrganization;

// Defaults: registered at start-up, in effect whenever the user has not set a key.
void registerDefaultPreferences();
bool defaultPreferencesRegistered();
// The stored value of `key`, else its registered default, else an invalid QVariant.
QVariant preferenceValue(const QSettings& settings, const QString& key);

// Paths in stored values: raw bytes, with "%", control characters and every byte outside ASCII
// percent-encoded.
QString encodePathForPreferences(const std::string& path);
std::string decodePathFromPreferences(const QString& stored);
std::vector<std::string> pathListPreference(const QSettings& settings, const QString& key);
void setPathListPreference(QSettings& settings, const QString& key,
                           const std::vector<std::string>& paths);

// The scanning preferences as the scanner reads them at the start of every walk. Safe to call
// from any thread: each call reads through its own QSettings.
ScanSettings readScanSettings();

}  // namespace tw
