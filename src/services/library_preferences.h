// The preferences the scan library keeps: the scan date of the newest result the user forgot, per
// location (`TWForgottenScanDatesByPath`). Stored with QSettings under organisation and application
// "Tarnwell". Location paths are raw bytes; in stored values they are percent-encoded (every byte
// outside printable ASCII, and "%" itself), so a name that is not UTF-8 comes back byte for byte.
// GUI thread only, like every preference.
#pragma once

#include <QString>
#include <map>
#include <string>

namespace tw::library {

// Preference key and settings names (part of the settings file format).
inline constexpr const char* kForgottenScanDatesByPathKey = "TWForgottenScanDatesByPath";
inline constexpr const char* kSettingsOrganization = "Tarnwell";
inline constexpr const char* kSettingsApplication = "Tarnwell";

// Path text in stored values.
QString encodePathForSettings(const std::string& path);
std::string decodePathFromSettings(const QString& stored);

// Forgotten scan dates: standardised location path to seconds since 1970.
std::map<std::string, double> forgottenScanDates();
// The forgotten date of one location; 0 when none is stored.
double forgottenScanDate(const std::string& standardizedPath);
void setForgottenScanDate(const std::string& standardizedPath, double secondsSince1970);
void removeForgottenScanDate(const std::string& standardizedPath);

}  // namespace tw::library
