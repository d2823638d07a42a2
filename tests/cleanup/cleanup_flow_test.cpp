// A cleanup from the browser on a real folder that was scanned and saved, with a Trash of its
// own: the confirmation's wording, the safety stop, the move and its marks in the saved scan, the
// browser keeping its place, the result sheet and Undo Cleanup with an occupied original place.
#include "cleanup/cleanup_flow.h"

#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QPushButton>
#include <QTest>
#include <QThreadPool>
#include <filesystem>

#include "browser/scan_browser.h"
#include "browser/scan_children_model.h"
#include "cleanup/cleanup_sheets.h"
#include "cleanup/collector_panel.h"
#include "cleanup/delete_queue.h"
#include "store/scan_store.h"
#include "support/desktop_environment.h"
#include "support/scan_trees.h"
#include "support/test_volume_layout.h"

namespace tw {
namespace {

using test::Names;

TEST(CleanupTexts, SingularAndPluralForms) {
  struct Case {
    std::size_t count;
    const char* title;
    const char* confirmation;
    const char* result;
  };
  const Case cases[] = {
      {1, "Delete 1 file?",
       "1 file will be deleted, saving you 999 B. It will be moved to the Trash.",
       "1 item was moved successfully. Space is reclaimed when the Trash is emptied."},
      {2, "Delete 2 files?",
       "2 files will be deleted, saving you 999 B. They will be moved to the Trash.",
       "2 items were moved successfully. Space is reclaimed when the Trash is emptied."},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(cleanup_text::confirmationTitle(c.count), c.title);
    EXPECT_EQ(cleanup_text::confirmationText(c.count, 999), c.confirmation);
    EXPECT_EQ(cleanup_text::resultText(c.count, std::nullopt), c.result);
  }
  EXPECT_EQ(cleanup_text::undoText(1),
            "1 items could not be restored because their original location is unavailable or "
            "already contains an item with the same name.");
}

// <tree>/data: one.bin 8 KB, keep/ (deep/ (three.bin 12 KB, four.bin 4 KB), stay.bin 4 KB),
// scanned, saved and opened from its saved scan in a browser on screen.
class CleanupFlowTest : public ::testing::Test {
 protected:
  void SetUp() override { setUpWorld(500); }
  // `markOnPoolAbove`: the queue length above which marking runs on the pool.
  void setUpWorld(std::size_t markOnPoolAbove) {
    data_ = world_.tree.folder("data");
    world_.tree.file("data/one.bin", 8192);
    world_.tree.file("data/keep/deep/three.bin", 12288);
    world_.tree.file("data/keep/deep/four.bin", 4096);
    world_.tree.file("data/keep/stay.bin", 4096);
    ScanResult scan = test::scanTree(data_);
    ASSERT_TRUE(scan.root);
    const std::string saved = world_.tree.path("scan.sqlite");
    ASSERT_TRUE(ScanStore::writeRootNode(scan.root.get(), saved));
    std::shared_ptr<ScanStore> store = ScanStore::open(saved);
    ASSERT_TRUE(store);
    trash_ = world_.tree.path("home/.local/share/Trash");

    ScanBrowser::Options options;
    options.volumeLayout = std::make_shared<test::TestVolumeLayout>("/no-disk-here");
    options.cleanup.safety = SafetyRule{world_.home(), {}};
    options.cleanup.trash.homeTrash = trash_;
    options.cleanup.openFolder = [this](const std::string& folder) { opened_.push_back(folder); };
    options.cleanup.markOnPoolAbove = markOnPoolAbove;
    browser_ = std::make_unique<ScanBrowser>(store->rootNode(), options);
    browser_->resize(1000, 700);
    browser_->show();
    flow_ = browser_->cleanupFlow();
  }

  ScanNode* node(std::string_view relative) { return test::find(browser_->scanRoot(), relative); }
  Names listed() const { return test::namesOf(browser_->listModel()->nodes()); }
  QAbstractButton* button(const char* text) {
    QMessageBox* sheet = flow_->openSheet();
    if (!sheet) return nullptr;
    for (QAbstractButton* b : sheet->buttons())
      if (b->text() == text) return b;
    return nullptr;
  }
  // Confirms the queue and waits for the result sheet.
  void TearDown() override { QThreadPool::globalInstance()->waitForDone(); }
  void deleteQueued() {
    browser_->deleteCollectedItems();
    QAbstractButton* confirm = button("Delete");
    ASSERT_TRUE(confirm);
    confirm->click();
    ASSERT_TRUE(QTest::qWaitFor(
        [this] {
          return flow_->openSheet() && flow_->openSheet()->objectName() == "cleanupResult";
        },
        10000))
        << browser_->collectorPanel()->statusText().toStdString();
  }

  test::DesktopEnvironment world_;
  std::string data_, trash_;
  std::vector<std::string> opened_;
  std::unique_ptr<ScanBrowser> browser_;
  CleanupFlow* flow_ = nullptr;
};

// The same world, marking on the GUI thread (500) or on the pool (1).
class CleanupMarkingTest : public CleanupFlowTest,
                           public ::testing::WithParamInterface<std::size_t> {
 protected:
  void SetUp() override { setUpWorld(GetParam()); }
};

TEST_F(CleanupFlowTest, AnItemThatFailsTheSafetyCheckStopsTheWholeQueue) {
  DeleteQueue* queue = browser_->deleteQueue();
  ASSERT_TRUE(queue->collectPath(data_ + "/one.bin"));
  ASSERT_TRUE(queue->collectPath(data_ + "/keep/stay.bin"));
  std::filesystem::remove(data_ + "/keep/stay.bin");  // gone since the scan
  browser_->deleteCollectedItems();
  ASSERT_TRUE(flow_->openSheet());
  EXPECT_EQ(flow_->openSheet()->text(), "Delete 2 files?");
  button("Delete")->click();
  EXPECT_EQ(browser_->collectorPanel()->statusText(),
            "Deletion stopped: an item failed the safety check.");
  EXPECT_TRUE(std::filesystem::exists(data_ + "/one.bin"));
  EXPECT_EQ(queue->count(), 2);
  EXPECT_TRUE(flow_->lastTrashMapping().empty());
}

TEST_P(CleanupMarkingTest, CleanupShrinksTheScanKeepsThePlaceAndUndoRetriesWhatWasBlocked) {
  const uint64_t before = browser_->scanRoot()->size();
  browser_->navigateToNode(node("keep/deep"), true);
  DeleteQueue* queue = browser_->deleteQueue();
  ASSERT_TRUE(queue->collectPath(data_ + "/keep/deep"));
  ASSERT_TRUE(queue->collectPath(data_ + "/one.bin"));
  const uint64_t queued = queue->totalSize();

  deleteQueued();
  EXPECT_EQ(flow_->openSheet()->text(), "Cleanup moved items to the Trash");
  EXPECT_EQ(flow_->openSheet()->informativeText(),
            "2 items were moved successfully. Space is reclaimed when the Trash is emptied.");
  EXPECT_FALSE(std::filesystem::exists(data_ + "/one.bin"));
  EXPECT_TRUE(std::filesystem::exists(trash_ + "/files/one.bin"));
  // The folder that went is skipped: the browser shows its parent, from the saved scan.
  EXPECT_EQ(browser_->currentNode()->path(), data_ + "/keep");
  EXPECT_EQ(listed(), Names{"stay.bin"});
  EXPECT_EQ(browser_->scanRoot()->size(), before - queued);
  EXPECT_TRUE(browser_->backHistory().empty());
  EXPECT_TRUE(queue->isEmpty());
  EXPECT_EQ(browser_->collectorPanel()->statusText(), "Drag and drop files here to collect them");

  button("View Trash")->click();
  EXPECT_EQ(opened_, Names{trash_ + "/files"});

  // Someone put a new one.bin in place: everything else comes back, that one stays in the Trash.
  test::writeFile(data_ + "/one.bin", "new");
  flow_->undoLastCleanup();
  ASSERT_TRUE(flow_->openSheet());
  EXPECT_EQ(flow_->openSheet()->text(), "Some items could not be restored");
  EXPECT_EQ(flow_->openSheet()->informativeText(), cleanup_text::undoText(1));
  flow_->openSheet()->done(0);
  EXPECT_TRUE(std::filesystem::exists(data_ + "/keep/deep/three.bin"));
  EXPECT_EQ(listed(), (Names{"deep", "stay.bin"}));
  EXPECT_EQ(flow_->lastTrashMapping().size(), 1u);

  // A second Undo retries only that item.
  std::filesystem::remove(data_ + "/one.bin");
  flow_->undoLastCleanup();
  EXPECT_EQ(flow_->openSheet()->text(), "Cleanup undone");
  EXPECT_EQ(flow_->openSheet()->informativeText(),
            "The items were returned to their original locations.");
  EXPECT_EQ(test::readFile(data_ + "/one.bin").size(), 8192u);
  EXPECT_TRUE(flow_->lastTrashMapping().empty());
  EXPECT_EQ(browser_->scanRoot()->size(), before);
}

TEST_F(CleanupFlowTest, WithoutASavedScanTheCleanupWaitsAndThenGivesUp) {
  ScanNodeRef unsaved = test::makeFolderRoot(100, data_);
  test::addFile(unsaved.get(), "one.bin", 100);
  DeleteQueue queue;
  queue.setScanRoot(unsaved);
  ASSERT_TRUE(queue.collectPath(data_ + "/one.bin"));
  CleanupFlow::Options options;
  options.safety = SafetyRule{world_.home(), {}};
  options.trash.homeTrash = trash_;
  options.waitIntervalMs = 1;
  options.maxWaits = 3;
  CleanupFlow flow(&queue, nullptr, options);
  flow.setScanRoot(unsaved);
  std::vector<QString> messages;
  QObject::connect(&flow, &CleanupFlow::statusMessage,
                   [&messages](const QString& text) { messages.push_back(text); });
  flow.moveCollectedItemsToTrash();
  EXPECT_TRUE(flow.isRunning());
  EXPECT_TRUE(QTest::qWaitFor([&flow] { return !flow.isRunning(); }, 5000));
  ASSERT_FALSE(messages.empty());
  EXPECT_EQ(messages.front(), "Finishing the saved scan before cleanup…");
  EXPECT_EQ(messages.back(), "Cleanup stopped because the saved scan could not be updated.");
  EXPECT_EQ(messages.size(), 5u);  // four looks, then the stop
  EXPECT_TRUE(std::filesystem::exists(data_ + "/one.bin"));
}

INSTANTIATE_TEST_SUITE_P(MarkingThread, CleanupMarkingTest, ::testing::Values(500, 1));

}  // namespace
}  // namespace tw
