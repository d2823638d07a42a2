// Taking results off the main screen: Forget, Delete and removing every scan of a location.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QThreadPool>

#include "services/library_files.h"
#include "services/library_preferences.h"
#include "services/library_test_support.h"

namespace tw {
namespace {

using test::makeScan;
using test::writeScan;
using Dates = std::map<std::string, double>;

class LibraryForgetTest : public test::LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    library = makeLibrary();
    history = library->historyDirectoryPath();
    library->setHandlers(handlers());
  }
  ScanLibrary::Handlers handlers() {
    return {nullptr, [this](const ScanNodeRef& root) { forgotten.push_back(root); },
            [this](const LibraryAlert& alert) { alerts.push_back(alert); }};
  }
  std::optional<LibraryAlert> forget(const ScanNodeRef& root, ForgetChoice choice) {
    std::optional<std::optional<LibraryAlert>> result;
    library->forgetScanResult(root, choice, [&](auto alert) { result = alert; });
    EXPECT_TRUE(main.runUntil([&] { return result.has_value(); }));
    return result.value_or(std::nullopt);
  }
  bool exists(const std::string& path) { return library::pathExists(path); }

  std::unique_ptr<ScanLibrary> library;
  std::string history;
  std::vector<ScanNodeRef> forgotten;
  std::vector<LibraryAlert> alerts;
};

TEST_F(LibraryForgetTest, ForgetRemembersTheScanDateAndKeepsTheFilesCancelChangesNothing) {
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
  EXPECT_TRUE(exists(saved.historyPath) && exists(cacheFile()));
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

TEST_F(LibraryForgetTest, DeleteRemovesTheResultsFileFoundByBindingOrByLocationAndDate) {
  writeScan(history + "/1-other.sqlite", "/data", 50);  // an older scan of the same place stays
  ScanNodeRef root = makeScan("/data", 100);
  SaveOutcome saved = acceptAndWait(*library, root);
  ASSERT_TRUE(saved.cacheReplaced);
  EXPECT_FALSE(forget(root, ForgetChoice::kDelete));
  EXPECT_FALSE(exists(saved.historyPath) || exists(cacheFile()));
  EXPECT_TRUE(exists(history + "/1-other.sqlite"));
  EXPECT_EQ(forgotten, std::vector<ScanNodeRef>{root});
  EXPECT_EQ(library->forgottenScanDates().at("/data"), 100);
  // With its History file already gone, the cache still goes.
  ScanNodeRef next = makeScan("/data", 200);
  saved = acceptAndWait(*library, next);
  ASSERT_EQ(::unlink(saved.historyPath.c_str()), 0);
  EXPECT_FALSE(forget(next, ForgetChoice::kDelete));
  EXPECT_FALSE(exists(cacheFile()));

  // An unbound result: the first file of its location within a second of its date.
  writeScan(history + "/2-a.sqlite", "/place", 99);       // too far apart
  writeScan(history + "/3-b.sqlite", "/place", 100.4);    // the one
  writeScan(history + "/4-c.sqlite", "/place", 100.6);    // a later match is not looked at
  writeScan(history + "/5-d.sqlite", "/elsewhere", 100);  // another place
  writeScan(cacheFile(), "/elsewhere", 100);              // a cache of another place stays
  EXPECT_FALSE(forget(makeScan("/place", 100), ForgetChoice::kDelete));
  EXPECT_EQ(test::listFolder(history),
            (std::vector<std::string>{"1-other.sqlite", "2-a.sqlite", "4-c.sqlite", "5-d.sqlite"}));
  EXPECT_TRUE(exists(cacheFile()));
  EXPECT_EQ(forgotten.size(), 3u);
  EXPECT_TRUE(alerts.empty());
}

TEST_F(LibraryForgetTest, RemovingALocationDeletesItsScansAndCacheOnlyAndNothingForNoPath) {
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
  EXPECT_FALSE(exists(cacheFile()));
  EXPECT_EQ(library->cachedRoot(), nullptr);
  EXPECT_EQ(library->forgottenScanDates(), (Dates{{"/other", 5}}));
  bool called = false;  // an empty path completes at once
  library->removeAllScansForPath("", [&](std::optional<Error> error) { called = !error; });
  EXPECT_TRUE(called);
}

// As a user who may read the library but not change it: nothing goes and nothing is forgotten.
TEST_F(LibraryForgetTest, DeleteOrRemovalThatCannotRemoveTheFilesReportsItAndForgetsNothing) {
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
  EXPECT_TRUE(exists(saved.historyPath) && exists(cacheFile()));
}

}  // namespace
}  // namespace tw
