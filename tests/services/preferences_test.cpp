#include "services/preferences.h"

#include <QProcess>
#include <QSettings>
#include <thread>

#include "gtest/gtest.h"
#include "support/desktop_environment.h"

namespace tw {
namespace {

QSettings userSettings() {
  return QSettings(kSettingsOrganization, kSettingsApplication);
}

TEST(Preferences, EveryByteOfAPathSurvivesItsStoredFormWhichStaysReadable) {
  std::string all;
  for (int byte = 1; byte < 256; ++byte) all.push_back(static_cast<char>(byte));
  const QString stored = encodePathForPreferences(all);
  for (QChar c : stored) EXPECT_LT(c.unicode(), 0x7f);  // plain ASCII in the file
  EXPECT_EQ(decodePathFromPreferences(stored), all);
  EXPECT_EQ(encodePathForPreferences("/home/u/My Files (old)"), "/home/u/My Files (old)");
  EXPECT_EQ(encodePathForPreferences("/tmp/100%/caf\xc3\xa9/caf\xe9/a\nb"),
            "/tmp/100%25/caf%C3%A9/caf%E9/a%0Ab");
}

TEST(Preferences, RegisteredDefaultsApplyUntilTheUserSetsAKey) {
  test::DesktopEnvironment env;
  registerDefaultPreferences();
  QSettings settings = userSettings();
  EXPECT_EQ(preferenceValue(settings, kSkipPackagesKey), QVariant(true));
  EXPECT_TRUE(preferenceValue(settings, kExcludedPathsKey).toStringList().isEmpty());
  const ScanSettings defaults = readScanSettings();
  EXPECT_TRUE(defaults.skipPackages);
  EXPECT_TRUE(defaults.excludedPaths.empty());
  EXPECT_TRUE(defaults.excludedFilePatterns.empty());

  settings.setValue(kSkipPackagesKey, false);
  EXPECT_FALSE(readScanSettings().skipPackages);
  settings.remove(kSkipPackagesKey);
  EXPECT_TRUE(readScanSettings().skipPackages);
}

// Values whose text means something to the settings file's own syntax.
const std::vector<std::string> kAwkwardPatterns = {
    "*.iso", "a,b", "\"quoted\"", "@Invalid()",       "back\\slash",  "semi;colon",
    "#hash", "=eq", "[x]",        "*/Derived Data/*", "caf\xc3\xa9*", "single"};
const std::vector<std::string> kAwkwardPaths = {
    "/tmp/caf\xe9", "/tmp/a,b", "/tmp/@Invalid()", "/tmp/100%", "/tmp/with space", "/tmp/\xff\xfe"};

void storeAwkwardScanSettings() {
  QSettings settings = userSettings();
  settings.setValue(kSkipPackagesKey, false);
  setPathListPreference(settings, kExcludedPathsKey, kAwkwardPaths);
  QStringList patterns;
  for (const std::string& p : kAwkwardPatterns) patterns << QString::fromStdString(p);
  settings.setValue(kExcludedFilePatternsKey, patterns);
  settings.sync();
  ASSERT_EQ(settings.status(), QSettings::NoError);
}

// What a separate process, with nothing cached, reads from the settings file.
QByteArray scanSettingsReadByAnotherProcess(const test::DesktopEnvironment& env) {
  QProcess probe;
  probe.setProcessEnvironment(env.processEnvironment());
  probe.start(QStringLiteral(TW_SETTINGS_PROBE), {});
  if (!probe.waitForFinished(10000) || probe.exitCode() != 0) return "probe failed";
  return probe.readAllStandardOutput();
}

QByteArray hex(const std::string& bytes) {
  return QByteArray::fromStdString(bytes).toHex();
}

TEST(Preferences, ScanSettingsComeBackIdenticalFromAnyThreadAndAfterARestart) {
  test::DesktopEnvironment env;
  storeAwkwardScanSettings();
  ScanSettings read;
  std::thread reader([&] { read = readScanSettings(); });
  reader.join();
  EXPECT_FALSE(read.skipPackages);
  EXPECT_EQ(read.excludedPaths, kAwkwardPaths);
  EXPECT_EQ(read.excludedFilePatterns, kAwkwardPatterns);

  QByteArray expected = "skip 0\n";
  for (const std::string& p : kAwkwardPaths) expected += "path " + hex(p) + "\n";
  for (const std::string& p : kAwkwardPatterns) expected += "pattern " + hex(p) + "\n";
  EXPECT_EQ(scanSettingsReadByAnotherProcess(env), expected);
}

TEST(Preferences, SingleEntryListsStayLists) {
  test::DesktopEnvironment env;
  QSettings settings = userSettings();
  setPathListPreference(settings, kExcludedPathsKey, {"/only/one"});
  settings.setValue(kExcludedFilePatternsKey, QStringList{"x,y"});
  settings.sync();
  EXPECT_EQ(scanSettingsReadByAnotherProcess(env),
            "skip 1\npath " + hex("/only/one") + "\npattern " + hex("x,y") + "\n");
  settings.setValue(kExcludedFilePatternsKey, QStringList{});
  settings.sync();
  EXPECT_EQ(scanSettingsReadByAnotherProcess(env), "skip 1\npath " + hex("/only/one") + "\n");
}

}  // namespace
}  // namespace tw
