// The Delete Queue in one hand-built scan: which items it takes, how overlapping items merge, its
// texts and panel heights, and what the browser's list and chart stop showing while items wait.
#include "cleanup/delete_queue.h"

#include <gtest/gtest.h>

#include <QLabel>
#include <QMimeData>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QUrl>

#include "browser/scan_browser.h"
#include "browser/scan_children_model.h"
#include "browser/scan_list_view.h"
#include "browser/sunburst_view.h"
#include "cleanup/collector_icon_view.h"
#include "cleanup/collector_panel.h"
#include "cleanup/collector_table_view.h"
#include "platform/file_manager.h"
#include "support/desktop_environment.h"
#include "support/scan_trees.h"
#include "support/test_volume_layout.h"

namespace tw {
namespace {

using test::Names;

// /r 1000: docs/ 600 (a.txt 400, b.txt 200), pics/ 300 (p.jpg 300), empty.txt 0,
// "smaller objects…" 60 (tiny 60), "other system data…" 20, "hidden space…" 20
class DeleteQueueTest : public ::testing::Test {
 protected:
  void SetUp() override {
    root_ = test::makeFolderRoot(1000);
    ScanNode* docs = test::addFolder(root_.get(), "docs", 600);
    test::addFiles(docs, "a.txt:400 b.txt:200");
    test::addFile(test::addFolder(root_.get(), "pics", 300), "p.jpg", 300);
    test::addFile(root_.get(), "empty.txt", 0);
    ScanNode* group = test::addFolder(root_.get(), kSmallerObjectsName, 60);
    group->setAggregate(true);
    test::addFile(group, "tiny", 60);
    test::addFolder(root_.get(), kOtherSystemDataName, 20)->setAggregate(true);
    test::addFolder(root_.get(), kHiddenSpaceName, 20)->setVirtualNode(true);
    queue_.setScanRoot(root_);
  }

  Names queued() const {
    Names paths;
    for (const QueuedItem& item : queue_.collectedNodes()) paths.push_back(item.path);
    return paths;
  }

  ScanNodeRef root_;
  DeleteQueue queue_;
};

TEST_F(DeleteQueueTest, OverlappingItemsMergeIntoTheOutermost) {
  struct Case {
    Names collect;
    Names expected;
  };
  const Case cases[] = {
      {{"/r/docs", "/r/docs/a.txt"}, {"/r/docs"}},  // a folder covers its files
      {{"/r/docs/a.txt", "/r/docs"}, {"/r/docs"}},  // a folder replaces its files
      {{"/r/docs/a.txt", "/r/pics", "/r/docs/b.txt", "/r/docs"}, {"/r/pics", "/r/docs"}},
      {{"/r/pics", "/r/pics"}, {"/r/pics"}},                         // twice is once
      {{"/r/tiny", "/r/docs/b.txt"}, {"/r/tiny", "/r/docs/b.txt"}},  // inside a group
  };
  for (const Case& c : cases) {
    queue_.removeAll();
    for (const std::string& path : c.collect) EXPECT_TRUE(queue_.collectPath(path)) << path;
    EXPECT_EQ(queued(), c.expected) << c.collect.front();
  }
  EXPECT_TRUE(queue_.isPathRepresented("/r/docs/b.txt"));
  EXPECT_FALSE(queue_.isPathRepresented("/r/doc"));
}

TEST_F(DeleteQueueTest, RootSyntheticEntriesEmptyFilesAndStrangersAreRefused) {
  QSignalSpy changed(&queue_, &DeleteQueue::changed);
  for (const char* path : {"/r", "/r/empty.txt", "/r/nowhere", "/elsewhere/x", ""})
    EXPECT_FALSE(queue_.collectPath(path)) << path;
  for (ScanNode* node : root_->children()) {
    if (node->isSynthetic()) {
      EXPECT_FALSE(queue_.collectNode(node)) << node->name();
    }
  }
  EXPECT_FALSE(queue_.collectNode(nullptr));
  EXPECT_TRUE(queue_.isEmpty());
  EXPECT_EQ(changed.count(), 0);
}

TEST_F(DeleteQueueTest, CollectableFilesAreThoseNotYetQueued) {
  ScanNode* docs = test::find(root_.get(), "docs");
  EXPECT_TRUE(queue_.nodeContainsCollectableFile(docs));
  queue_.collectPath("/r/docs/a.txt");
  EXPECT_TRUE(queue_.nodeContainsCollectableFile(docs));
  queue_.collectPath("/r/docs/b.txt");
  EXPECT_FALSE(queue_.nodeContainsCollectableFile(docs));
  EXPECT_FALSE(queue_.nodeContainsCollectableFile(test::find(root_.get(), "hidden space…")));
}

TEST(DeleteQueueTexts, AmountStatusAccessibilityAndPanelHeight) {
  struct Case {
    uint64_t total;
    const char* amount;
    const char* status;
  };
  for (const Case& c : {Case{999, "999", "B collected"}, Case{4096, "4.1", "KB collected"},
                        Case{1'500'000'000, "1.5", "GB collected"}, Case{0, "0", "collected"}}) {
    EXPECT_EQ(collector::amountText(c.total).amount, QString::fromUtf8(c.amount));
    EXPECT_EQ(collector::statusLine(false, c.total), QString::fromUtf8(c.status));
  }
  EXPECT_EQ(collector::statusLine(true, 0), "Drag and drop files here to collect them");
  EXPECT_EQ(collector::iconAccessibleText(false, 999, true), "999 B collected. Collapse collector");
  EXPECT_EQ(collector::iconAccessibleText(true, 0, false), "Collector empty");
  for (auto [rows, height, expected] : {std::tuple{1, 24, 104}, {10, 24, 190}, {5, 24, 150}})
    EXPECT_EQ(collector::panelHeight(rows, height), expected) << rows;
}

// The queue inside the browser: what the list and the chart show, and the panel's controls.
class QueueInBrowserTest : public DeleteQueueTest {
 protected:
  void SetUp() override {
    world_ = std::make_unique<test::DesktopEnvironment>();
    DeleteQueueTest::SetUp();
    ScanBrowser::Options options;
    options.volumeLayout = std::make_shared<test::TestVolumeLayout>("/no-disk-here");
    browser_ = std::make_unique<ScanBrowser>(root_, options);
    browser_->resize(1000, 700);
    browser_->show();
    queue_.setScanRoot(nullptr);
  }

  Names listed() const { return test::namesOf(browser_->listModel()->nodes()); }
  bool charted(std::string_view name) const {
    for (const SunburstSegment& s : browser_->sunburstView()->segments())
      if (s.node->name() == name) return true;
    return false;
  }
  void selectRows(const Names& names) {
    ScanListView* list = browser_->listView();
    list->clearSelection();
    for (const std::string& name : names) {
      const int row = browser_->listModel()->rowOf(test::find(browser_->currentNode(), name));
      list->selectionModel()->select(browser_->listModel()->index(row, 0),
                                     QItemSelectionModel::Select | QItemSelectionModel::Rows);
    }
  }

  std::unique_ptr<test::DesktopEnvironment> world_;
  std::unique_ptr<ScanBrowser> browser_;
};

TEST_F(QueueInBrowserTest, QueuedItemsLeaveTheListAndTheChartAndComeBack) {
  DeleteQueue* queue = browser_->deleteQueue();
  CollectorPanel* panel = browser_->collectorPanel();
  EXPECT_EQ(panel->statusText(), "Drag and drop files here to collect them");
  EXPECT_FALSE(panel->deleteButton()->isVisible());
  ASSERT_TRUE(charted("p.jpg"));

  // The Delete key on the list queues the selected rows.
  QSignalSpy changed(browser_.get(), &ScanBrowser::collectorChanged);
  selectRows({"pics"});
  QTest::keyClick(browser_->listView(), Qt::Key_Delete);
  EXPECT_EQ(listed(), (Names{"docs", std::string(kSmallerObjectsName),
                             std::string(kOtherSystemDataName), std::string(kHiddenSpaceName)}));
  EXPECT_FALSE(charted("pics"));
  EXPECT_FALSE(charted("p.jpg"));
  EXPECT_TRUE(charted("a.txt"));
  EXPECT_GE(changed.count(), 1);
  EXPECT_TRUE(browser_->hasCollectedItems());
  EXPECT_EQ(panel->icon()->amountText(), "300");
  EXPECT_EQ(panel->statusText(), "B collected");
  EXPECT_TRUE(panel->deleteButton()->isVisible());

  // Dropped file URLs are queued; what is not in the scan is not.
  QMimeData dropped;
  dropped.setData("text/uri-list", fileUrlForPath("/r/docs/a.txt") + "\r\n" +
                                       fileUrlForPath("/not/scanned") + "\r\n");
  // The drop goes where the drag entered, as during a real drag.
  QDragEnterEvent enter(QPoint(5, 5), Qt::CopyAction, &dropped, Qt::LeftButton, Qt::NoModifier);
  QCoreApplication::sendEvent(panel, &enter);
  EXPECT_TRUE(panel->icon()->isDropTarget());
  QDropEvent drop(QPointF(5, 5), Qt::CopyAction, &dropped, Qt::LeftButton, Qt::NoModifier);
  QCoreApplication::sendEvent(panel, &drop);
  EXPECT_TRUE(drop.isAccepted());
  EXPECT_EQ(queue->count(), 2);
  EXPECT_FALSE(charted("a.txt"));
  EXPECT_EQ(panel->statusText(), "B collected");  // 700 B
  // The list shows what a folder will hold after the cleanup.
  ScanChildrenModel* rows = browser_->listModel();
  EXPECT_EQ(rows->index(0, ScanChildrenModel::kSizeColumn).data().toString(), "200 B");

  // The icon opens the table; its remove button returns an item.
  QTest::mouseClick(panel->icon(), Qt::LeftButton);
  EXPECT_TRUE(panel->isExpanded());
  EXPECT_EQ(panel->panelHeight(), 104);
  CollectorTableView* table = panel->tableView();
  ASSERT_EQ(table->model()->rowCount(), 2);
  const QRect removeCell =
      table->visualRect(table->model()->index(0, CollectorModel::kRemoveColumn));
  QTest::mouseClick(table->viewport(), Qt::LeftButton, {}, removeCell.center());
  EXPECT_EQ(queue->count(), 1);
  EXPECT_TRUE(charted("pics"));
  EXPECT_EQ(listed().front(), "pics");  // 300 B before docs' 200 B left: largest first

  // Remove All empties the queue and closes the panel.
  browser_->removeAllCollectedItems();
  EXPECT_FALSE(panel->isExpanded());
  EXPECT_TRUE(charted("a.txt"));
  EXPECT_EQ(listed().size(), 5u);
  EXPECT_EQ(panel->statusText(), "Drag and drop files here to collect them");
}

}  // namespace
}  // namespace tw
