// The preferences as stored: raw-byte paths, registered defaults, and what another process reads.
#include "services/preferences.h"

#include <QProcess>
#include <QSettings>
#include <thread>

#include "services/library_test_support.h"

namespace tw {
namespace {

using Strings = std::vector<std::string>;

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

// Scanning settings stored in this process come back the same from another thread, and from a
// fresh process that has nothing cached, for values that mean something to the file's syntax.
using PreferencesTest = test::LibraryTest;

TEST_F(PreferencesTest, ScanSettingsComeBackIdenticalFromAnyThreadAndAfterARestart) {
  registerDefaultPreferences();
  QSettings settings(kSettingsOrganization, kSettingsApplication);
  EXPECT_EQ(preferenceValue(settings, kSkipPackagesKey), QVariant(true));  // the default
  const struct {
    bool skip;
    Strings paths, patterns;
  } cases[] = {
      {false,
       {"/tmp/caf\xe9", "/tmp/a,b", "/tmp/@Invalid()", "/tmp/100%", "/tmp/with space", "/\xff\xfe"},
       {"*.iso", "a,b", "\"quoted\"", "@Invalid()", "back\\slash", "semi;colon", "#hash", "=eq",
        "[x]", "*/Derived Data/*", "caf\xc3\xa9*"}},
      {true, {"/only/one"}, {"x,y"}},  // single entries stay lists
      {true, {"/only/one"}, {}},
  };
  for (const auto& c : cases) {
    if (c.skip) settings.remove(kSkipPackagesKey);  // back to the default
    if (!c.skip) settings.setValue(kSkipPackagesKey, false);
    setPathListPreference(settings, kExcludedPathsKey, c.paths);
    QStringList patterns;
    for (const std::string& p : c.patterns) patterns << QString::fromStdString(p);
    settings.setValue(kExcludedFilePatternsKey, patterns);
    settings.sync();
    ScanSettings read;
    std::thread([&] { read = readScanSettings(); }).join();
    EXPECT_EQ(read.skipPackages, c.skip);
    EXPECT_EQ(read.excludedPaths, c.paths);
    EXPECT_EQ(read.excludedFilePatterns, c.patterns);

    QProcess probe;  // prints "skip 0|1", then "path <hex>" and "pattern <hex>" lines
    probe.start(QStringLiteral(TW_SETTINGS_PROBE), {});
    ASSERT_TRUE(probe.waitForFinished(10000) && probe.exitCode() == 0);
    QByteArray expected = c.skip ? "skip 1\n" : "skip 0\n";
    for (const std::string& p : c.paths)
      expected += "path " + QByteArray::fromStdString(p).toHex() + "\n";
    for (const std::string& p : c.patterns)
      expected += "pattern " + QByteArray::fromStdString(p).toHex() + "\n";
    EXPECT_EQ(probe.readAllStandardOutput(), expected);
  }
}

}  // namespace
}  // namespace tw
