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
using Paths = std::vector<std::string>;

Paths locations(const std::vector<ScanNodeRef>& roots) {
  Paths out;
  for (const ScanNodeRef& root : roots) out.push_back(root->path());
  return out;
}

class LibraryRestoreTest : public test::LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    library = makeLibrary();
    history = library->historyDirectoryPath();
    library->setHandlers({[this](const auto& roots) { restored.push_back(roots); }, nullptr,
                          [this](const LibraryAlert& alert) { alerts.push_back(alert); }});
  }
  std::string retainedPath(long long milliseconds) {
    return history + "/" + std::to_string(milliseconds) + "-" + library::newUUIDString() +
           ".sqlite";
  }
  // Writes a keyed archive of a scan of `location` and its sidecar with `date` (since 1970).
  bool writeArchive(const std::string& path, const std::string& location, double date) {
    const std::vector<uint8_t> encoded = encodeScanArchive(*test::makeScan(location, date));
    test::writeFile(path, std::string(encoded.begin(), encoded.end()));
    plist_t sidecar = plist_new_dict();
    plist_dict_set_item(sidecar, "scanDate", plist_new_date(int32_t(date - 978307200.0), 0));
    char* bytes = nullptr;
    uint32_t length = 0;
    plist_to_bin(sidecar, &bytes, &length);
    test::writeFile(path + ".metadata.plist", std::string(bytes, length));
    free(bytes);
    plist_free(sidecar);
    return !encoded.empty();
  }

  std::unique_ptr<ScanLibrary> library;
  std::string history;
  std::vector<std::vector<ScanNodeRef>> restored;
  std::vector<LibraryAlert> alerts;
};

TEST_F(LibraryRestoreTest, NewestScanOfEachLocationComesBackNewestFirstAndTheCacheOnlyWhenNewer) {
  writeScan(retainedPath(1000), "/data", 100);
  writeScan(retainedPath(2000), "/data/", 300);  // the same location, standardised
  writeScan(retainedPath(3000), "/data", 200);   // saved later, scanned earlier
  const std::string other = retainedPath(4000);
  writeScan(other, "/other", 250);
  writeScan(history + "/5000.sqlite", "/third", 50);         // a name of earlier versions
  ASSERT_EQ(::link(other.c_str(), cacheFile().c_str()), 0);  // a tie: the History copy wins
  RestoreOutcome outcome = restoreAndWait(*library);
  EXPECT_EQ(locations(outcome.roots), (Paths{"/data/", "/other", "/third"}));
  EXPECT_EQ(outcome.roots[0]->scanDate(), 300);
  EXPECT_EQ(outcome.roots[1]->scanStore()->path(), other);
  EXPECT_EQ(outcome.roots[1]->children().size(), 3u);  // read lazily from its file
  EXPECT_FALSE(outcome.alert);
  EXPECT_TRUE(alerts.empty());
  EXPECT_EQ(restored, std::vector<std::vector<ScanNodeRef>>{outcome.roots});
  EXPECT_EQ(library->cachedRoot(), outcome.roots[0]);

  // A newer cache wins; a result already current stays current.
  ASSERT_EQ(::unlink(cacheFile().c_str()), 0);
  writeScan(cacheFile(), "/other", 600);
  auto next = makeLibrary();
  ScanNodeRef current = test::makeScan("/now", 900);
  next->setCachedRoot(current);
  outcome = restoreAndWait(*next);
  ASSERT_EQ(outcome.roots.size(), 3u);
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
  EXPECT_EQ(library::forgottenScanDates(),  // read back from the file
            (std::map<std::string, double>{{"/gone", 300}, {location, 150}}));
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
  // A database of something else, text, zero bytes, and a real scan cut in half.
  test::execSql(retainedPath(2000), "CREATE TABLE notes(x); INSERT INTO notes VALUES(1);");
  test::writeFile(retainedPath(2500), "these are not the bytes of a database");
  test::writeFile(retainedPath(3000), "");
  const std::string truncated = retainedPath(4000);
  writeScan(truncated, "/cut", 400, 3000);
  ASSERT_EQ(::truncate(truncated.c_str(), off_t(test::readFile(truncated).size() / 2)), 0);
  RestoreOutcome outcome = restoreAndWait(*library);
  EXPECT_EQ(locations(outcome.roots), (Paths{"/good2", "/good3", "/good1"}));
  ASSERT_EQ(alerts.size(), 1u);
  EXPECT_EQ(alerts[0].message, "A saved scan could not be read");
  EXPECT_TRUE(alerts[0].informativeText.starts_with(
      "Tarnwell restored every readable scan, but one scan database had a problem. "));
  EXPECT_EQ(outcome.alert, alerts[0]);

  // A file of a newer version, alone, is reported with its reason.
  for (const std::string& name : test::listFolder(history))
    ::unlink((history + "/" + name).c_str());
  ::unlink(cacheFile().c_str());
  const std::string newer = retainedPath(5000);
  writeScan(newer, "/newer", 500);
  test::execSql(newer, "PRAGMA user_version=7");
  outcome = restoreAndWait(*library);
  EXPECT_TRUE(outcome.roots.empty());
  EXPECT_EQ(alerts.back().informativeText,
            "Tarnwell restored every readable scan, but one scan database had a problem. This "
            "scan database was created by a newer version of Tarnwell.");
  EXPECT_EQ(restored.size(), 1u);
}

TEST_F(LibraryRestoreTest, LegacyArchivesAreConvertedOnceAndDamagedOnesStayForTheNextStart) {
  ASSERT_TRUE(writeArchive(library->legacyCachePath(), "/legacy", 1500000000) &&
              writeArchive(history + "/1400000000000.archive", "/old", 1400000000));
  test::writeFile(history + "/1400000001000.archive", "damaged");
  test::writeFile(history + "/1400000001000.archive.metadata.plist", "damaged");
  RestoreOutcome outcome = restoreAndWait(*library);
  ASSERT_EQ(locations(outcome.roots), (Paths{"/legacy", "/old"}));
  EXPECT_EQ(outcome.roots[0]->scanDate(), 1500000000);
  EXPECT_EQ(alerts.size(), 1u);
  EXPECT_EQ(test::storedLocation(cacheFile()), "/legacy");
  EXPECT_FALSE(library::pathExists(library->legacyCachePath()));
  EXPECT_EQ(test::listFolder(history), (Paths{"1400000000000.sqlite", "1400000001000.archive",
                                              "1400000001000.archive.metadata.plist"}));
  EXPECT_EQ(test::storedDate(history + "/1400000000000.sqlite"), 1400000000);

  // A legacy cache that fails to convert stays where it is.
  ::unlink(cacheFile().c_str());
  test::writeFile(library->legacyCachePath(), "not an archive");
  alerts.clear();
  EXPECT_EQ(locations(restoreAndWait(*library).roots), (Paths{"/old"}));
  ASSERT_EQ(alerts.size(), 1u);
  EXPECT_EQ(test::readFile(library->legacyCachePath()), "not an archive");
  EXPECT_FALSE(library::pathExists(cacheFile()));
}

}  // namespace
}  // namespace tw
