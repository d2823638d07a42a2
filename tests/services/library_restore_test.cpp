// Restoring the library at start-up: the newest scan per location, ties, forgotten dates, legacy
// conversion, and damaged files reported once while every readable scan comes back.
#include <gtest/gtest.h>
#include <plist/plist.h>
#include <unistd.h>

#include "services/library_files.h"
#include "services/library_preferences.h"
#include "services/library_test_support.h"
#include "store/keyed_archive.h"
#include "store/scan_store.h"

namespace tw {
namespace {

using test::writeScan;

std::vector<std::string> locations(const std::vector<ScanNodeRef>& roots) {
  std::vector<std::string> out;
  for (const ScanNodeRef& root : roots) out.push_back(root->path());
  return out;
}

class LibraryRestoreTest : public test::LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    library = makeLibrary();
    history = library->historyDirectoryPath();
    library->setHandlers({
        [this](const std::vector<ScanNodeRef>& roots) { restored.push_back(roots); },
        nullptr,
        [this](const LibraryAlert& alert) { alerts.push_back(alert); },
    });
  }
  std::string retainedPath(long long milliseconds) {
    return history + "/" + std::to_string(milliseconds) + "-" + library::newUUIDString() +
           ".sqlite";
  }

  std::unique_ptr<ScanLibrary> library;
  std::string history;
  std::vector<std::vector<ScanNodeRef>> restored;
  std::vector<LibraryAlert> alerts;
};

TEST_F(LibraryRestoreTest, NewestScanOfEachLocationComesBackNewestFirst) {
  writeScan(retainedPath(1000), "/data", 100);
  writeScan(retainedPath(2000), "/data/", 300);  // the same location, standardised
  writeScan(retainedPath(3000), "/data", 200);   // saved later, scanned earlier
  writeScan(retainedPath(4000), "/other", 250);
  writeScan(history + "/5000.sqlite", "/third", 50);  // a name of earlier versions
  RestoreOutcome outcome = restoreAndWait(*library);
  EXPECT_EQ(locations(outcome.roots), (std::vector<std::string>{"/data/", "/other", "/third"}));
  EXPECT_EQ(outcome.roots[0]->scanDate(), 300);
  EXPECT_FALSE(outcome.alert);
  EXPECT_TRUE(alerts.empty());
  ASSERT_EQ(restored.size(), 1u);
  EXPECT_EQ(restored[0], outcome.roots);
  EXPECT_EQ(library->cachedRoot(), outcome.roots[0]);
  // Restored roots read lazily from their files.
  ASSERT_TRUE(outcome.roots[1]->scanStore());
  EXPECT_EQ(outcome.roots[1]->children().size(), 3u);
}

TEST_F(LibraryRestoreTest, CacheWinsOnlyWhenNewerThanTheHistoryAndACurrentResultStays) {
  const std::string retained = retainedPath(1000);
  writeScan(retained, "/data", 500);
  ASSERT_EQ(::link(retained.c_str(), cacheFile().c_str()), 0);  // a tie: the History copy wins
  writeScan(retainedPath(900), "/other", 400);
  RestoreOutcome outcome = restoreAndWait(*library);
  ASSERT_EQ(outcome.roots.size(), 2u);
  EXPECT_EQ(outcome.roots[0]->scanStore()->path(), retained);

  ASSERT_EQ(::unlink(cacheFile().c_str()), 0);
  writeScan(cacheFile(), "/data", 600);
  auto next = makeLibrary();
  ScanNodeRef current = test::makeScan("/now", 900);
  next->setCachedRoot(current);
  outcome = restoreAndWait(*next);
  ASSERT_EQ(outcome.roots.size(), 2u);
  EXPECT_EQ(outcome.roots[0]->scanStore()->path(), cacheFile());
  EXPECT_EQ(next->cachedRoot(), current);
}

TEST_F(LibraryRestoreTest, ForgottenLocationRestoresOnlyLaterScansWhateverBytesItsPathHas) {
  const std::string location = "/tmp/caf\xe9/\xff\xfe%41 \x01name";
  writeScan(retainedPath(1000), location, 100);
  writeScan(retainedPath(2000), location, 200);
  writeScan(retainedPath(3000), "/gone", 300);
  library::setForgottenScanDate(location, 150);
  library::setForgottenScanDate("/gone", 300);
  // Read back through a fresh settings object, from the file.
  EXPECT_EQ(library::forgottenScanDates(),
            (std::map<std::string, double>{{"/gone", 300}, {location, 150}}));
  EXPECT_EQ(library::encodePathForSettings(location).toStdString(),
            "/tmp/caf%E9/%FF%FE%2541 %01name");
  RestoreOutcome outcome = restoreAndWait(*library);
  ASSERT_EQ(outcome.roots.size(), 1u);
  EXPECT_EQ(outcome.roots[0]->path(), location);
  EXPECT_EQ(outcome.roots[0]->scanDate(), 200);

  library::setForgottenScanDate(location, 200);
  EXPECT_TRUE(restoreAndWait(*library).roots.empty());
  EXPECT_EQ(restored.size(), 1u);  // an empty list is not handed on
}

TEST_F(LibraryRestoreTest, DamagedFilesGiveOneAlertAndEveryReadableScanComesBack) {
  writeScan(retainedPath(1000), "/good1", 100);
  writeScan(retainedPath(9000), "/good2", 200);
  writeScan(cacheFile(), "/good3", 150);
  // Foreign: an SQLite database of something else, and text that is no database at all.
  test::execSql(retainedPath(2000), "CREATE TABLE notes(x); INSERT INTO notes VALUES(1);");
  test::writeFile(retainedPath(2500), "these are not the bytes of a database");
  // Zero bytes.
  test::writeFile(retainedPath(3000), "");
  // Truncated: a real scan cut in half.
  const std::string truncated = retainedPath(4000);
  writeScan(truncated, "/cut", 400, 3000);
  ASSERT_EQ(::truncate(truncated.c_str(), static_cast<off_t>(test::readFile(truncated).size() / 2)),
            0);
  // Written by a newer version.
  const std::string newer = retainedPath(5000);
  writeScan(newer, "/newer", 500);
  test::execSql(newer, "PRAGMA user_version=4");

  RestoreOutcome outcome = restoreAndWait(*library);
  EXPECT_EQ(locations(outcome.roots), (std::vector<std::string>{"/good2", "/good3", "/good1"}));
  ASSERT_EQ(alerts.size(), 1u);
  EXPECT_EQ(alerts[0].message, "A saved scan could not be read");
  EXPECT_TRUE(alerts[0].informativeText.starts_with(
      "Tarnwell restored every readable scan, but one scan database had a problem. "))
      << alerts[0].informativeText;
  EXPECT_EQ(outcome.alert, alerts[0]);
  ASSERT_EQ(restored.size(), 1u);
}

TEST_F(LibraryRestoreTest, NewerVersionFileAloneIsReportedWithItsReason) {
  const std::string newer = retainedPath(5000);
  writeScan(newer, "/newer", 500);
  test::execSql(newer, "PRAGMA user_version=7");
  RestoreOutcome outcome = restoreAndWait(*library);
  EXPECT_TRUE(outcome.roots.empty());
  ASSERT_EQ(alerts.size(), 1u);
  EXPECT_EQ(alerts[0].informativeText,
            "Tarnwell restored every readable scan, but one scan database had a problem. This "
            "scan database was created by a newer version of Tarnwell.");
  EXPECT_TRUE(restored.empty());
}

// Legacy archives of earlier versions.
class LibraryLegacyTest : public LibraryRestoreTest {
 protected:
  // Writes a keyed archive of a scan of `location` and its sidecar with `date` (since 1970).
  bool writeArchive(const std::string& path, const std::string& location, double date) {
    ScanNodeRef root = test::makeScan(location, date);
    const std::vector<uint8_t> encoded = encodeScanArchive(*root);
    if (encoded.empty()) return false;
    test::writeFile(path, std::string(encoded.begin(), encoded.end()));
    plist_t sidecar = plist_new_dict();
    const double since2001 = date - 978307200.0;
    plist_dict_set_item(sidecar, "scanDate", plist_new_date(static_cast<int32_t>(since2001), 0));
    char* data = nullptr;
    uint32_t length = 0;
    plist_to_bin(sidecar, &data, &length);
    test::writeFile(path + ".metadata.plist", std::string(data, length));
    free(data);
    plist_free(sidecar);
    return true;
  }
};

TEST_F(LibraryLegacyTest, LegacyCacheAndHistoryArchivesAreConvertedOnceDamagedOnesStay) {
  if (!writeArchive(library->legacyCachePath(), "/legacy", 1500000000) ||
      !writeArchive(history + "/1400000000000.archive", "/old", 1400000000)) {
    GTEST_SKIP() << "this build has no archive encoder";
  }
  test::writeFile(history + "/1400000001000.archive", "damaged");
  test::writeFile(history + "/1400000001000.archive.metadata.plist", "damaged");
  RestoreOutcome outcome = restoreAndWait(*library);
  ASSERT_EQ(locations(outcome.roots), (std::vector<std::string>{"/legacy", "/old"}));
  EXPECT_EQ(outcome.roots[0]->scanDate(), 1500000000);
  EXPECT_EQ(alerts.size(), 1u);
  EXPECT_EQ(test::storedLocation(cacheFile()), "/legacy");
  EXPECT_FALSE(library::pathExists(library->legacyCachePath()));
  EXPECT_EQ(test::listFolder(history),
            (std::vector<std::string>{"1400000000000.sqlite", "1400000001000.archive",
                                      "1400000001000.archive.metadata.plist"}));
  EXPECT_EQ(test::storedDate(history + "/1400000000000.sqlite"), 1400000000);
}

TEST_F(LibraryLegacyTest, LegacyCacheThatFailsToConvertStaysForTheNextStart) {
  test::writeFile(library->legacyCachePath(), "not an archive");
  writeScan(retainedPath(1000), "/data", 100);
  RestoreOutcome outcome = restoreAndWait(*library);
  EXPECT_EQ(locations(outcome.roots), std::vector<std::string>{"/data"});
  ASSERT_EQ(alerts.size(), 1u);
  EXPECT_EQ(alerts[0].message, "A saved scan could not be read");
  EXPECT_EQ(test::readFile(library->legacyCachePath()), "not an archive");
  EXPECT_FALSE(library::pathExists(cacheFile()));
}

}  // namespace
}  // namespace tw
