// Taking results off the main screen: Forget, Delete and removing every scan of a location.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QThreadPool>
#include <cmath>

#include "app/library_files.h"
#include "app/library_preferences.h"
#include "app/library_test_support.h"
#include "store/scan_store.h"

namespace tw {
namespace {

using test::makeScan;
using test::writeScan;

class LibraryForgetTest : public test::LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    library = makeLibrary();
    history = library->historyDirectoryPath();
    library->setHandlers({
        nullptr,
        [this](const ScanNodeRef& root) { forgotten.push_back(root); },
        [this](const LibraryAlert& alert) { alerts.push_back(alert); },
    });
  }
  std::optional<LibraryAlert> forget(const ScanNodeRef& root, ForgetChoice choice) {
    bool finished = false;
    std::optional<LibraryAlert> result;
    library->forgetScanResult(root, choice, [&](std::optional<LibraryAlert> alert) {
      result = alert;
      finished = true;
    });
    EXPECT_TRUE(main.runUntil([&] { return finished; }));
    return result;
  }
  std::optional<Error> removeAll(const std::string& path) {
    bool finished = false;
    std::optional<Error> result;
    library->removeAllScansForPath(path, [&](std::optional<Error> error) {
      result = error;
      finished = true;
    });
    EXPECT_TRUE(main.runUntil([&] { return finished; }));
    return result;
  }

  // A library that does all its work on the calling thread, for child processes.
  std::unique_ptr<ScanLibrary> inlineLibrary() {
    ScanLibrary::Options options;
    options.mainExecutor = inlineExecutor();
    options.backgroundExecutor = inlineExecutor();
    auto child = makeLibrary(std::move(options));
    child->setHandlers({
        nullptr,
        [this](const ScanNodeRef& root) { forgotten.push_back(root); },
        [this](const LibraryAlert& alert) { alerts.push_back(alert); },
    });
    return child;
  }

  std::unique_ptr<ScanLibrary> library;
  std::string history;
  std::vector<ScanNodeRef> forgotten;
  std::vector<LibraryAlert> alerts;
};

TEST_F(LibraryForgetTest, CancelChangesNothing) {
  ScanNodeRef root = makeScan("/data", 100);
  SaveOutcome saved = acceptAndWait(*library, root);
  EXPECT_FALSE(forget(root, ForgetChoice::kCancel));
  EXPECT_TRUE(forgotten.empty());
  EXPECT_TRUE(library->forgottenScanDates().empty());
  EXPECT_EQ(library->cachedRoot(), root);
  EXPECT_TRUE(library::pathExists(saved.historyPath));
}

TEST_F(LibraryForgetTest, ForgetRemembersTheScanDateAndKeepsTheFiles) {
  ScanNodeRef root = makeScan("/data/", 1700000000.5);
  SaveOutcome saved = acceptAndWait(*library, root);
  EXPECT_FALSE(forget(root, ForgetChoice::kForget));
  EXPECT_EQ(library->forgottenScanDates(),
            (std::map<std::string, double>{{"/data", 1700000000.5}}));
  EXPECT_EQ(library->cachedRoot(), nullptr);
  EXPECT_EQ(forgotten, std::vector<ScanNodeRef>{root});
  EXPECT_TRUE(library::pathExists(saved.historyPath));
  EXPECT_TRUE(library::pathExists(cacheFile()));
  // The next start does not bring it back; a new scan of the location does.
  EXPECT_TRUE(restoreAndWait(*makeLibrary()).roots.empty());
  acceptAndWait(*library, makeScan("/data", 1700000100));
  EXPECT_TRUE(library->forgottenScanDates().empty());
}

TEST_F(LibraryForgetTest, ForgettingAnUndatedResultUsesTheTimeNow) {
  ScanNodeRef root = makeScan("/data", 0);
  const double before = library::currentTime();
  forget(root, ForgetChoice::kForget);
  const double date = library->forgottenScanDates().at("/data");
  EXPECT_GE(date, before);
  EXPECT_LE(date, library::currentTime());
}

TEST_F(LibraryForgetTest, ForgettingAnotherLocationKeepsTheCurrentResult) {
  ScanNodeRef current = makeScan("/a", 100);
  library->setCachedRoot(current);
  forget(makeScan("/b", 100), ForgetChoice::kForget);
  EXPECT_EQ(library->cachedRoot(), current);
}

TEST_F(LibraryForgetTest, DeleteRemovesTheBoundFileAndTheMatchingCacheThenForgets) {
  writeScan(history + "/1-other.sqlite", "/data", 50);  // an older scan of the same place stays
  ScanNodeRef root = makeScan("/data", 100);
  SaveOutcome saved = acceptAndWait(*library, root);
  ASSERT_TRUE(saved.cacheReplaced);
  EXPECT_FALSE(forget(root, ForgetChoice::kDelete));
  EXPECT_FALSE(library::pathExists(saved.historyPath));
  EXPECT_FALSE(library::pathExists(cacheFile()));
  EXPECT_TRUE(library::pathExists(history + "/1-other.sqlite"));
  EXPECT_EQ(forgotten, std::vector<ScanNodeRef>{root});
  EXPECT_EQ(library->forgottenScanDates().at("/data"), 100);
  EXPECT_TRUE(alerts.empty());
}

TEST_F(LibraryForgetTest, DeleteFindsAnUnboundResultsFileByLocationAndDate) {
  writeScan(history + "/1-a.sqlite", "/data", 99);        // too far apart
  writeScan(history + "/2-b.sqlite", "/data", 100.4);     // the one
  writeScan(history + "/3-c.sqlite", "/data", 100.6);     // a later match is not looked at
  writeScan(history + "/4-d.sqlite", "/elsewhere", 100);  // another place
  writeScan(cacheFile(), "/elsewhere", 100);              // a cache of another place stays
  ScanNodeRef root = makeScan("/data", 100);
  EXPECT_FALSE(forget(root, ForgetChoice::kDelete));
  EXPECT_EQ(test::namesIn(history),
            (std::vector<std::string>{"1-a.sqlite", "3-c.sqlite", "4-d.sqlite"}));
  EXPECT_TRUE(library::pathExists(cacheFile()));
  EXPECT_EQ(forgotten.size(), 1u);
}

TEST_F(LibraryForgetTest, DeleteOfAResultWhoseRetainedFileIsMissingStillRemovesTheCache) {
  ScanNodeRef root = makeScan("/data", 100);
  SaveOutcome saved = acceptAndWait(*library, root);
  ASSERT_EQ(::unlink(saved.historyPath.c_str()), 0);
  EXPECT_FALSE(forget(root, ForgetChoice::kDelete));
  EXPECT_FALSE(library::pathExists(cacheFile()));
  EXPECT_EQ(forgotten.size(), 1u);
  EXPECT_TRUE(alerts.empty());
}

TEST_F(LibraryForgetTest, DeleteThatCannotRemoveTheFileAlertsAndDoesNotForget) {
  ScanNodeRef root = makeScan("/data", 100);
  SaveOutcome saved = acceptAndWait(*library, root);
  // As a user who may read the library but not change it.
  ASSERT_EQ(::chmod(libraryFolder().c_str(), 0755), 0);
  ASSERT_EQ(::chmod(history.c_str(), 0755), 0);
  QThreadPool::globalInstance()->waitForDone();  // the child gets no pool threads
  const int status = test::runUnprivileged([&] {
    auto child = inlineLibrary();
    child->setCachedRoot(root);
    std::optional<LibraryAlert> alert;
    child->forgetScanResult(root, ForgetChoice::kDelete,
                            [&](std::optional<LibraryAlert> a) { alert = a; });
    if (!alert || alert->message != "The saved scan could not be deleted") return 3;
    if (alert->informativeText != posixError(EACCES).description) return 4;
    if (!forgotten.empty() || alerts.size() != 1 || alerts[0] != *alert) return 5;
    if (child->cachedRoot() != root) return 6;
    return 0;
  });
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(library::pathExists(saved.historyPath));
}

TEST_F(LibraryForgetTest, RemovingALocationDeletesItsScansAndCacheOnly) {
  writeScan(history + "/1-a.sqlite", "/data", 10);
  writeScan(history + "/2-b.sqlite", "/data/", 20);
  writeScan(history + "/3-c.sqlite", "/data/sub", 30);
  writeScan(history + "/4-d.sqlite", "/other", 40);
  writeScan(cacheFile(), "/data", 20);
  library->setCachedRoot(makeScan("/data", 20));
  library::setForgottenScanDate("/data", 15);
  library::setForgottenScanDate("/other", 5);
  EXPECT_FALSE(removeAll("/data/./"));
  EXPECT_EQ(test::namesIn(history), (std::vector<std::string>{"3-c.sqlite", "4-d.sqlite"}));
  EXPECT_FALSE(library::pathExists(cacheFile()));
  EXPECT_EQ(library->cachedRoot(), nullptr);
  EXPECT_EQ(library->forgottenScanDates(), (std::map<std::string, double>{{"/other", 5}}));
}

TEST_F(LibraryForgetTest, RemovingAnEmptyPathCompletesAtOnce) {
  bool called = false;
  library->removeAllScansForPath("", [&](std::optional<Error> error) {
    called = true;
    EXPECT_FALSE(error);
  });
  EXPECT_TRUE(called);
}

TEST_F(LibraryForgetTest, RemovingThatFailsReportsTheFirstErrorAndKeepsTheForgottenDate) {
  writeScan(history + "/1-a.sqlite", "/data", 10);
  writeScan(cacheFile(), "/data", 20);
  library::setForgottenScanDate("/data", 15);
  ScanNodeRef current = makeScan("/data", 20);
  ASSERT_EQ(::chmod(libraryFolder().c_str(), 0755), 0);
  ASSERT_EQ(::chmod(history.c_str(), 0755), 0);
  QThreadPool::globalInstance()->waitForDone();  // the child gets no pool threads
  const int status = test::runUnprivileged([&] {
    auto child = inlineLibrary();
    child->setCachedRoot(current);
    std::optional<Error> error;
    child->removeAllScansForPath("/data", [&](std::optional<Error> e) { error = e; });
    if (!error || *error != posixError(EACCES)) return 3;
    if (child->cachedRoot() != current) return 4;
    if (child->forgottenScanDates().size() != 1) return 5;
    return 0;
  });
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(library::pathExists(cacheFile()));
  EXPECT_TRUE(library::pathExists(history + "/1-a.sqlite"));
}

}  // namespace
}  // namespace tw
