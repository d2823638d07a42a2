// Restoring the library at start-up (the newest scan per location, ties, forgotten dates, legacy
// conversion, damaged files reported once) and taking results off the main screen again.
#include <gtest/gtest.h>
#include <plist/plist.h>
#include <sys/stat.h>
#include <unistd.h>

#include "services/library_files.h"
#include "services/library_preferences.h"
#include "services/library_test_support.h"
#include "store/keyed_archive.h"
#include "store/scan_store.h"

namespace tw {
namespace {

using test::makeScan;
using test::writeScan;
using Dates = std::map<std::string, double>;
using Paths = std::vector<std::string>;

Paths locations(const std::vector<ScanNodeRef>& roots) {
  Paths out;
  for (const ScanNodeRef& root : roots) out.push_back(root->path());
  return out;
}

class LibraryRestoreTest : public test::LibraryTest {
 protected:
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
  test::Sql(retainedPath(2000)).exec("CREATE TABLE notes(x); INSERT INTO notes VALUES(1);");
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
  test::Sql(newer).exec("PRAGMA user_version=7");
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

// Taking results off the main screen: Forget, Delete and removing every scan of a location.
TEST_F(LibraryRestoreTest, ForgetRemembersTheScanDateAndKeepsTheFilesCancelChangesNothing) {
  ScanNodeRef root = makeScan("/data/", 1700000000.5);
  SaveOutcome saved = acceptAndWait(*library, root);
  EXPECT_FALSE(forget(root, ForgetChoice::kCancel));
  EXPECT_TRUE(forgotten.empty() && library->forgottenScanDates().empty());
  forget(makeScan("/b", 100), ForgetChoice::kForget);  // another location: still current
  EXPECT_EQ(library->cachedRoot(), root);
  EXPECT_FALSE(forget(root, ForgetChoice::kForget));
  EXPECT_EQ(library->forgottenScanDates(), (Dates{{"/b", 100}, {"/data", 1700000000.5}}));
  EXPECT_EQ(library->cachedRoot(), nullptr);
  EXPECT_EQ(forgotten.size(), 2u);
  EXPECT_EQ(forgotten.back(), root);
  EXPECT_TRUE(library::pathExists(saved.historyPath) && library::pathExists(cacheFile()));
  // The next start does not bring it back; a new scan of the location does.
  EXPECT_TRUE(restoreAndWait(*makeLibrary()).roots.empty());
  acceptAndWait(*library, makeScan("/data", 1700000100));
  EXPECT_EQ(library->forgottenScanDates().count("/data"), 0u);
  // An undated result is forgotten as of now.
  const double before = library::currentTime();
  forget(makeScan("/undated", 0), ForgetChoice::kForget);
  EXPECT_GE(library->forgottenScanDates().at("/undated"), before);
  EXPECT_LE(library->forgottenScanDates().at("/undated"), library::currentTime());
}

TEST_F(LibraryRestoreTest, DeleteRemovesTheResultsFileFoundByBindingOrByLocationAndDate) {
  writeScan(history + "/1-other.sqlite", "/data", 50);  // an older scan of the same place stays
  ScanNodeRef root = makeScan("/data", 100);
  SaveOutcome saved = acceptAndWait(*library, root);
  ASSERT_TRUE(saved.cacheReplaced);
  EXPECT_FALSE(forget(root, ForgetChoice::kDelete));
  EXPECT_FALSE(library::pathExists(saved.historyPath) || library::pathExists(cacheFile()));
  EXPECT_TRUE(library::pathExists(history + "/1-other.sqlite"));
  EXPECT_EQ(forgotten, std::vector<ScanNodeRef>{root});
  EXPECT_EQ(library->forgottenScanDates().at("/data"), 100);
  // With its History file already gone, the cache still goes.
  ScanNodeRef next = makeScan("/data", 200);
  saved = acceptAndWait(*library, next);
  ASSERT_EQ(::unlink(saved.historyPath.c_str()), 0);
  EXPECT_FALSE(forget(next, ForgetChoice::kDelete));
  EXPECT_FALSE(library::pathExists(cacheFile()));

  // An unbound result: the first file of its location within a second of its date.
  writeScan(history + "/2-a.sqlite", "/place", 99);       // too far apart
  writeScan(history + "/3-b.sqlite", "/place", 100.4);    // the one
  writeScan(history + "/4-c.sqlite", "/place", 100.6);    // a later match is not looked at
  writeScan(history + "/5-d.sqlite", "/elsewhere", 100);  // another place
  writeScan(cacheFile(), "/elsewhere", 100);              // a cache of another place stays
  EXPECT_FALSE(forget(makeScan("/place", 100), ForgetChoice::kDelete));
  EXPECT_EQ(test::listFolder(history),
            (std::vector<std::string>{"1-other.sqlite", "2-a.sqlite", "4-c.sqlite", "5-d.sqlite"}));
  EXPECT_TRUE(library::pathExists(cacheFile()));
  EXPECT_EQ(forgotten.size(), 3u);
  EXPECT_TRUE(alerts.empty());
}

TEST_F(LibraryRestoreTest, RemovingALocationDeletesItsScansAndCacheOnlyAndNothingForNoPath) {
  writeScan(history + "/1-a.sqlite", "/data", 10);
  writeScan(history + "/2-b.sqlite", "/data/", 20);
  writeScan(history + "/3-c.sqlite", "/data/sub", 30);
  writeScan(history + "/4-d.sqlite", "/other", 40);
  writeScan(cacheFile(), "/data", 20);
  library->setCachedRoot(makeScan("/data", 20));
  library::setForgottenScanDate("/data", 15);
  library::setForgottenScanDate("/other", 5);
  std::optional<std::optional<Error>> removed;
  library->removeAllScansForPath("/data/./", [&](std::optional<Error> e) { removed = e; });
  ASSERT_TRUE(main.runUntil([&] { return removed.has_value(); }));
  EXPECT_FALSE(*removed);
  EXPECT_EQ(test::listFolder(history), (std::vector<std::string>{"3-c.sqlite", "4-d.sqlite"}));
  EXPECT_FALSE(library::pathExists(cacheFile()));
  EXPECT_EQ(library->cachedRoot(), nullptr);
  EXPECT_EQ(library->forgottenScanDates(), (Dates{{"/other", 5}}));
  bool called = false;  // an empty path completes at once
  library->removeAllScansForPath("", [&](std::optional<Error> error) { called = !error; });
  EXPECT_TRUE(called);
}

// As a user who may read the library but not change it: nothing goes and nothing is forgotten.
TEST_F(LibraryRestoreTest, DeleteOrRemovalThatCannotRemoveTheFilesReportsItAndForgetsNothing) {
  ScanNodeRef root = makeScan("/data", 100);
  SaveOutcome saved = acceptAndWait(*library, root);
  library::setForgottenScanDate("/data", 15);
  ASSERT_EQ(::chmod(libraryFolder().c_str(), 0755), 0);
  ASSERT_EQ(::chmod(history.c_str(), 0755), 0);
  QThreadPool::globalInstance()->waitForDone();  // the child gets no pool threads
  const std::string failure = test::runUnprivilegedReporting([&]() -> std::string {
    auto child = test::inlineLibrary();
    child->setHandlers(handlers());
    child->setCachedRoot(root);
    std::optional<LibraryAlert> alert;
    child->forgetScanResult(root, ForgetChoice::kDelete, [&](auto a) { alert = a; });
    if (!alert || alert->message != "The saved scan could not be deleted") return "no alert";
    if (alert->informativeText != posixError(EACCES).description) return alert->informativeText;
    if (!forgotten.empty() || alerts != std::vector<LibraryAlert>{*alert}) return "forgotten";
    // Removing every scan of the location reports the first error and keeps the forgotten date.
    std::optional<Error> error;
    child->removeAllScansForPath("/data", [&](std::optional<Error> e) { error = e; });
    if (!error || *error != posixError(EACCES)) return "removal did not fail";
    if (child->cachedRoot() != root) return "no longer current";
    return child->forgottenScanDates().size() == 1 ? "" : "date lost";
  });
  EXPECT_EQ(failure, "");
  EXPECT_TRUE(library::pathExists(saved.historyPath) && library::pathExists(cacheFile()));
}

}  // namespace
}  // namespace tw
