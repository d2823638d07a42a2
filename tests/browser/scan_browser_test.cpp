// The scan browser as a user drives it: navigation and history, breadcrumbs, the list, chart
// clicks and hover previews, the preview window, long names, disks, drags, odd names and a
// damaged saved scan.
#include "browser/scan_browser.h"

#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QImageReader>
#include <QLabel>
#include <QMimeData>
#include <QSignalSpy>
#include <QTest>
#include <algorithm>

#include "browser/breadcrumb_bar.h"
#include "browser/elided_label.h"
#include "browser/preview_window.h"
#include "browser/scan_children_model.h"
#include "browser/scan_list_view.h"
#include "browser/sunburst_view.h"
#include "browser/volume_presentation.h"
#include "browser_test_support.h"
#include "platform/file_url.h"
#include "store/scan_store.h"
#include "support/scan_trees.h"
#include "support/test_volume_layout.h"

namespace tw {
namespace {

using test::addFile;
using test::addFolder;
using test::makeFolderRoot;
using test::TempTree;

// Nothing is a disk (the only one is elsewhere), so hand-built trees stay folder scans.
ScanBrowser::Options quietOptions() {
  ScanBrowser::Options options;
  options.volumeLayout = std::make_shared<test::TestVolumeLayout>("/no-disk-here");
  options.openTerminal = [](const std::string&) {};
  options.revealInFiles = [](const std::vector<std::string>&) {};
  return options;
}

std::vector<std::string> listedNames(const ScanBrowser& browser) {
  return test::namesOf(browser.listModel()->nodes());
}

std::vector<std::string> crumbTitles(const ScanBrowser& browser) {
  std::vector<std::string> titles;
  for (QAbstractButton* button : browser.breadcrumbBar()->findChildren<QAbstractButton*>())
    titles.push_back(button->text().toStdString());
  return titles;
}

const std::string kSmaller(kSmallerObjectsName);

// /r 100: a/ 60 (b/ 40 (c/ 40 (d/ 40 (e/ 40 (f/ 40 (g.txt 40))))), a.txt 20), notes.txt 20,
// todo.txt 10, empty 0, "smaller objects…" 10 (tiny 10), "smaller objects…" 0 (no children)
class ScanBrowserTest : public ::testing::Test {
 protected:
  void SetUp() override {
    root_ = makeFolderRoot(100);
    a_ = addFolder(root_.get(), "a", 60);
    ScanNode* level = a_;
    for (const char* name : {"b", "c", "d", "e", "f"}) level = addFolder(level, name, 40);
    deepest_ = level;
    addFile(deepest_, "g.txt", 40);
    addFile(a_, "a.txt", 20);
    notes_ = addFile(root_.get(), "notes.txt", 20);
    todo_ = addFile(root_.get(), "todo.txt", 10);
    addFile(root_.get(), "empty", 0);
    group_ = addFolder(root_.get(), kSmallerObjectsName, 10);
    group_->setAggregate(true);
    addFile(group_, "tiny", 10);
    emptyGroup_ = addFolder(root_.get(), kSmallerObjectsName, 0);
    emptyGroup_->setAggregate(true);
    browser_ = std::make_unique<ScanBrowser>(root_, quietOptions());
  }
  ScanNode* currentRow() const {
    return browser_->listModel()->nodeAt(browser_->listView()->currentIndex());
  }

  ScanNodeRef root_;
  ScanNode *a_ = nullptr, *deepest_ = nullptr, *notes_ = nullptr, *todo_ = nullptr,
           *group_ = nullptr, *emptyGroup_ = nullptr;
  std::unique_ptr<ScanBrowser> browser_;
};

TEST_F(ScanBrowserTest, HistoryRecordsVisitsAndBackAndForwardMirrorEachOther) {
  QSignalSpy changed(browser_.get(), &ScanBrowser::navigationChanged);
  browser_->navigateToNode(root_.get(), true);  // already current
  EXPECT_TRUE(browser_->backHistory().empty());
  EXPECT_EQ(changed.count(), 0);
  EXPECT_FALSE(browser_->canGoToParent());

  ScanNode* b = a_->children()[0];
  browser_->navigateToNode(a_, true);
  browser_->navigateToNode(b, true);
  EXPECT_EQ(browser_->backHistory(), (std::vector<ScanNode*>{root_.get(), a_}));
  EXPECT_EQ(browser_->sunburstView()->rootNode(), b);
  EXPECT_EQ(changed.count(), 2);
  for (int i = 0; i < 3; ++i) browser_->navigateBack();  // the third finds nothing left
  EXPECT_EQ(browser_->currentNode(), root_.get());
  EXPECT_FALSE(browser_->canGoBack());
  EXPECT_EQ(browser_->forwardHistory(), (std::vector<ScanNode*>{b, a_}));
  browser_->navigateForward();
  EXPECT_EQ(browser_->currentNode(), a_);
  EXPECT_EQ(browser_->backHistory(), (std::vector<ScanNode*>{root_.get()}));
  EXPECT_EQ(browser_->forwardHistory(), (std::vector<ScanNode*>{b}));

  // A new visit forgets the way forward; the parent is a visit too.
  browser_->navigateToNode(notes_, false);
  EXPECT_EQ(browser_->forwardHistory(), (std::vector<ScanNode*>{b}));
  browser_->navigateToParent();
  EXPECT_EQ(browser_->currentNode(), root_.get());
  EXPECT_TRUE(browser_->forwardHistory().empty());
  EXPECT_EQ(browser_->backHistory(), (std::vector<ScanNode*>{root_.get(), notes_}));

  // Seven levels deep the bar shows the first, a placeholder and the last three; crumbs navigate.
  browser_->navigateToNode(deepest_, true);
  EXPECT_EQ(crumbTitles(*browser_), (test::Names{"Disks and Folders", "r", "d", "e", "f"}));
  const auto labels = browser_->breadcrumbBar()->findChildren<QLabel*>();
  EXPECT_EQ(
      std::count_if(labels.begin(), labels.end(),
                    [](QLabel* l) { return l->accessibleName() == kHiddenFoldersAccessibleName; }),
      1);
  QSignalSpy overview(browser_.get(), &ScanBrowser::showOverviewRequested);
  const auto buttons = browser_->breadcrumbBar()->findChildren<QAbstractButton*>();
  buttons[0]->click();
  EXPECT_EQ(overview.count(), 1);
  buttons[2]->click();  // "d"
  EXPECT_EQ(browser_->currentNode()->name(), "d");
  EXPECT_EQ(browser_->backHistory().back(), deepest_);
}

TEST_F(ScanBrowserTest, ChartClicksOpenFoldersSelectOtherRowsAndTheListSkipsEmptyAndQueuedItems) {
  SunburstView* chart = browser_->sunburstView();
  emit chart->didChooseNode(notes_);
  EXPECT_EQ(browser_->currentNode(), root_.get());
  EXPECT_EQ(currentRow(), notes_);
  emit chart->didChooseNode(emptyGroup_);
  EXPECT_EQ(browser_->currentNode(), root_.get());
  emit chart->didChooseNode(group_);  // a group with something in it opens like a folder
  EXPECT_EQ(listedNames(*browser_), test::Names{"tiny"});
  browser_->navigateBack();
  emit chart->didChooseNode(a_);
  EXPECT_EQ(browser_->currentNode(), a_);
  browser_->navigateBack();

  EXPECT_EQ(listedNames(*browser_), (test::Names{"a", "notes.txt", "todo.txt", kSmaller}));
  browser_->setIsNodeRepresentedInCollector([this](const ScanNode* n) { return n == notes_; });
  EXPECT_EQ(listedNames(*browser_), (test::Names{"a", "todo.txt", kSmaller}));
  EXPECT_TRUE(browser_->visibleChildrenForNode(notes_).empty());
  EXPECT_TRUE(browser_->visibleChildrenForNode(nullptr).empty());
  // The Size header sits on the right, over its figures.
  const ScanChildrenModel* rows = browser_->listModel();
  EXPECT_EQ(rows->headerData(ScanChildrenModel::kSizeColumn, Qt::Horizontal, Qt::TextAlignmentRole),
            rows->data(rows->index(0, ScanChildrenModel::kSizeColumn), Qt::TextAlignmentRole));
}

TEST_F(ScanBrowserTest, HoverPreviewRetitlesAndListsThePreviewedFolder) {
  SunburstView* chart = browser_->sunburstView();
  browser_->listView()->setCurrentIndex(browser_->listModel()->index(1, 0));
  emit chart->didPreviewNode(a_);
  EXPECT_EQ(browser_->summaryNode(), a_);
  EXPECT_EQ(browser_->titleText(), QStringLiteral("\u25cf \u2068a\u2069"));
  EXPECT_EQ(browser_->findChild<ElidedLabel*>("title")->dotColor(), chart->colorForNode(a_));
  EXPECT_EQ(browser_->sizeText(), QStringLiteral("60 B"));
  EXPECT_EQ(listedNames(*browser_), (test::Names{"b", "a.txt"}));
  EXPECT_TRUE(browser_->listView()->selectionModel()->selectedRows().isEmpty());
  // A click on a file while another folder is previewed still finds its row.
  emit chart->didChooseNode(notes_);
  EXPECT_EQ(currentRow(), notes_);

  emit chart->didPreviewNode(a_);
  emit chart->didPreviewNode(nullptr);
  EXPECT_EQ(browser_->titleText(), QStringLiteral("\u2068r\u2069"));
  EXPECT_EQ(browser_->sizeText(), QStringLiteral("100 B"));
  EXPECT_EQ(listedNames(*browser_).size(), 4u);
}

TEST_F(ScanBrowserTest, KeysOpenRowsGoUpAndThePreviewFollowsTheCurrentFileOrCloses) {
  ScanListView* list = browser_->listView();
  list->setCurrentIndex(browser_->listModel()->index(0, 0));  // a
  QTest::keyClick(list, Qt::Key_Return);
  EXPECT_EQ(browser_->currentNode(), a_);
  QTest::keyClick(list, Qt::Key_Backspace);
  EXPECT_EQ(browser_->currentNode(), root_.get());
  browser_->navigateToNode(a_, true);
  QTest::keyClick(list, Qt::Key_Up, Qt::AltModifier);
  EXPECT_EQ(browser_->currentNode(), root_.get());

  // Space on a folder shows nothing; on a file it toggles the preview.
  PreviewWindow* preview = browser_->previewWindow();
  list->setCurrentIndex(browser_->listModel()->index(0, 0));
  QTest::keyClick(list, Qt::Key_Space);
  EXPECT_FALSE(preview->isVisible());
  QTest::keyClick(list, Qt::Key_Down);
  QTest::keyClick(list, Qt::Key_Space);
  EXPECT_EQ(browser_->previewNode(), notes_);
  QTest::keyClick(list, Qt::Key_Space);
  EXPECT_FALSE(preview->isVisible());
  EXPECT_EQ(browser_->previewNode(), nullptr);

  // The open preview follows the current row to the next file and closes on a folder...
  QTest::keyClick(list, Qt::Key_Space);
  QTest::keyClick(list, Qt::Key_Down);
  EXPECT_EQ(browser_->previewNode(), todo_);
  EXPECT_EQ(preview->path(), "/r/todo.txt");
  QTest::keyClick(list, Qt::Key_Up);
  QTest::keyClick(list, Qt::Key_Up);
  EXPECT_FALSE(preview->isVisible());
  // ...and when the list moves to another folder, by hovering in the chart or by going there.
  list->setCurrentIndex(browser_->listModel()->index(1, 0));
  QTest::keyClick(list, Qt::Key_Space);
  emit browser_->sunburstView()->didPreviewNode(a_);
  EXPECT_FALSE(preview->isVisible());
  emit browser_->sunburstView()->didPreviewNode(nullptr);
  list->setCurrentIndex(browser_->listModel()->index(1, 0));
  QTest::keyClick(list, Qt::Key_Space);
  ASSERT_TRUE(preview->isVisible());
  browser_->navigateToNode(a_, true);
  EXPECT_FALSE(preview->isVisible());
  EXPECT_EQ(browser_->previewNode(), nullptr);
}

TEST_F(ScanBrowserTest, FilesAndTerminalGetTheCurrentFolder) {
  std::vector<std::string> revealed, opened;
  ScanBrowser::Options options = quietOptions();
  options.revealInFiles = [&](const std::vector<std::string>& paths) { revealed = paths; };
  options.openTerminal = [&](const std::string& folder) { opened.push_back(folder); };
  ScanBrowser browser(root_, options);
  browser.navigateToNode(a_, true);
  browser.showCurrentFolderInFiles();
  browser.openCurrentFolderInTerminal();
  EXPECT_EQ(revealed, std::vector<std::string>{"/r/a"});
  EXPECT_EQ(opened, std::vector<std::string>{"/r/a"});
}

TEST(ScanBrowserLayoutTest, LongNamesElideAndNeverMoveTheChartNorWidenTheWindow) {
  // Five nested folders with 189-character names, the first one the scanned folder.
  const std::string name(188, 'n');
  ScanNodeRef root = makeFolderRoot(100, "/" + name + "0");
  ScanNode* deepest = root.get();
  for (char level : {'1', '2', '3', '4'}) deepest = addFolder(deepest, name + level, 100);
  addFile(deepest, "file", 100);
  auto chartAt760 = [](ScanBrowser& browser) {
    browser.resize(760, 500);
    browser.show();
    EXPECT_TRUE(QTest::qWaitForWindowExposed(&browser));
    QCoreApplication::processEvents();
    return browser.sunburstView()->geometry();
  };
  ScanBrowser plain(makeFolderRoot(1), quietOptions());
  const QRect chart = chartAt760(plain);
  EXPECT_GT(chart.width(), 400);
  ScanBrowser browser(root, quietOptions());
  EXPECT_EQ(chartAt760(browser), chart);

  // Neither a hover preview of a long name nor five long crumbs move the chart or grow the window.
  emit browser.sunburstView()->didPreviewNode(root->children()[0]);
  QCoreApplication::processEvents();
  EXPECT_EQ(browser.sunburstView()->geometry(), chart);
  browser.navigateToNode(deepest, true);
  QCoreApplication::processEvents();
  EXPECT_EQ(browser.sunburstView()->geometry(), chart);
  EXPECT_EQ(browser.width(), 760);
  EXPECT_LE(browser.minimumSizeHint().width(), 760);
  // The title and the crumbs show their names elided within their own width.
  auto* title = browser.findChild<ElidedLabel*>("title");
  EXPECT_LE(title->fontMetrics().horizontalAdvance(title->shownText()), title->width());
  EXPECT_TRUE(title->shownText().contains(QChar(0x2026)));
  const auto crumbs = browser.breadcrumbBar()->findChildren<QAbstractButton*>();
  ASSERT_EQ(crumbs.size(), 6);
  for (QAbstractButton* crumb : crumbs.mid(1)) {
    EXPECT_TRUE(crumb->text().contains(QChar(0x2026))) << crumb->text().toStdString();
    EXPECT_LE(crumb->fontMetrics().horizontalAdvance(crumb->text()), crumb->width());
  }
}

TEST(ScanBrowserVolumeTest, DiskRootTakesVolumeFiguresAndListsSystemFoldersOnTheirOwn) {
  TempTree tree;
  auto layout = std::make_shared<test::TestVolumeLayout>(tree.root());
  layout->volume.totalCapacity = 1000;
  layout->volume.availableCapacity = 300;
  layout->volume.availableForImportantUsage = 200;  // below free: raised to it
  ScanNodeRef root = makeFolderRoot(500, tree.root());
  addFolder(root.get(), "home", 400);
  ScanNode* group = addFolder(root.get(), kSmallerObjectsName, 100);
  group->setAggregate(true);
  addFolder(group, "Users", 30);
  addFile(group, "x", 50);
  addFolder(group, "Library", 20);

  ScanBrowser::Options options = quietOptions();
  options.volumeLayout = layout;
  ScanBrowser browser(root, options);
  EXPECT_TRUE(root->isVolumeRoot());
  EXPECT_EQ(root->name(), "Test Disk");
  EXPECT_EQ(root->volumeCapacity(), 1000u);
  EXPECT_EQ(root->volumeFreeSpace(), 300u);
  EXPECT_EQ(root->volumeAvailableSpace(), 300u);
  EXPECT_EQ(test::childNames(root.get()), (test::Names{"home", "Users", "Library", kSmaller}));
  EXPECT_EQ(group->size(), 50u);
  EXPECT_EQ(test::childNames(group), test::Names{"x"});
  EXPECT_EQ(test::find(root.get(), "Users")->parent(), root.get());
  EXPECT_EQ(crumbTitles(browser)[1], "Test Disk");

  // A folder below the mount point is not a disk.
  ScanNodeRef folder = makeFolderRoot(10, tree.folder("sub"));
  prepareVolumePresentationForRoot(*folder, *layout);
  EXPECT_FALSE(folder->isVolumeRoot());
  EXPECT_EQ(folder->name(), "sub");
}

TEST(ScanBrowserNamesTest, OddNamesShowReplacementsAndDragTheirRealBytes) {
  const std::string odd = "bad\xff\nline \xd7\xa9\xd7\x9c\xd7\x95\xd7\x9d";  // RTL Hebrew
  ScanNodeRef root = makeFolderRoot(30);
  ScanNode* file = addFile(root.get(), odd, 20);
  addFile(root.get(), "plain", 10);
  ScanBrowser browser(root, quietOptions());
  ScanChildrenModel* rows = browser.listModel();
  const QString shown = rows->data(rows->index(0, 0), Qt::DisplayRole).toString();
  EXPECT_EQ(shown, QStringLiteral("bad\ufffd\ufffdline \u05e9\u05dc\u05d5\u05dd"));
  std::unique_ptr<QMimeData> data(rows->mimeData({rows->index(0, 0), rows->index(0, 1)}));
  ASSERT_TRUE(data);
  const QByteArray uris = data->data(QStringLiteral("text/uri-list"));
  ASSERT_TRUE(uris.endsWith("\r\n"));
  const std::string url = uris.chopped(2).toStdString();
  EXPECT_EQ(pathForFileURL(url), "/r/" + odd);
  EXPECT_EQ(data->data(QString::fromLatin1(kScanNodeMimeType)).toStdString(), "0 " + url + "\n");
  EXPECT_EQ(data->urls().size(), 1);
  emit browser.sunburstView()->didPreviewNode(file);
  EXPECT_FALSE(browser.titleText().contains(QLatin1Char('\n')));
}

TEST(ScanBrowserFilesTest, PreviewShowsTextImagesBeforeTextAndSaysWhenTheFileIsGone) {
  TempTree tree;
  test::writeFile(tree.path("notes.txt"), "hello from the preview\n");
  test::writeFile(tree.path("gone.txt"), "soon gone");
  PreviewWindow preview;
  QSignalSpy shown(&preview, &PreviewWindow::contentShown);
  preview.showFile(tree.path("notes.txt"), QStringLiteral("notes.txt"), 4096);
  ASSERT_TRUE(shown.wait(5000));
  EXPECT_EQ(preview.shownKind(), PreviewContent::Kind::kText);
  EXPECT_EQ(preview.shownText(), QStringLiteral("hello from the preview\n"));
  ::unlink(tree.path("gone.txt").c_str());
  preview.showFile(tree.path("gone.txt"), QStringLiteral("gone.txt"), 4096);
  ASSERT_TRUE(shown.wait(5000));
  EXPECT_EQ(preview.shownKind(), PreviewContent::Kind::kMissing);
  EXPECT_TRUE(preview.shownText().contains(QStringLiteral("no longer on disk")));

  QImage image(64, 32, QImage::Format_RGB32);
  image.fill(Qt::red);
  ASSERT_TRUE(image.save(QString::fromStdString(tree.path("red.png"))));
  const PreviewContent png = readPreviewContent(tree.path("red.png"), QSize(16, 16));
  EXPECT_EQ(png.kind, PreviewContent::Kind::kImage);
  EXPECT_EQ(png.image.size(), QSize(16, 8));
  // SVG is a kind of text to shared-mime-info, but it is an image first.
  if (!QImageReader::supportedMimeTypes().contains("image/svg+xml"))
    GTEST_SKIP() << "Qt's SVG image plugin is not installed";
  test::writeFile(tree.path("blue.svg"),
                  "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"64\" height=\"32\">"
                  "<rect width=\"64\" height=\"32\" fill=\"blue\"/></svg>");
  const PreviewContent svg = readPreviewContent(tree.path("blue.svg"), QSize(16, 16));
  EXPECT_EQ(svg.kind, PreviewContent::Kind::kImage);
  EXPECT_EQ(svg.image.size(), QSize(16, 8));
}

TEST(ScanBrowserStoreTest, DamagedSavedScanKeepsWhatIsShownAndReportsOnce) {
  TempTree tree;
  // Folders too small for the chart are read only when the browser goes into them.
  ScanNodeRef built = makeFolderRoot(1000000, "/data");
  addFile(built.get(), "big", 999700);
  for (const char* name : {"one", "two", "three"}) {
    ScanNode* folder = addFolder(built.get(), name, 100);
    addFile(addFolder(folder, "inner", 100), "leaf", 100);
  }
  const std::string file = tree.path("scan.sqlite");
  ASSERT_TRUE(ScanStore::writeRootNode(built.get(), file));
  std::shared_ptr<ScanStore> store = ScanStore::open(file);
  ASSERT_TRUE(store);
  ScanNodeRef root = store->rootNode();
  store.reset();
  auto browser = std::make_unique<ScanBrowser>(root, quietOptions());
  QSignalSpy reported(browser.get(), &ScanBrowser::readErrorReported);
  ScanNode* one = test::child(root.get(), "one");
  ScanNode* two = test::child(root.get(), "two");
  browser->navigateToNode(one, true);
  EXPECT_TRUE(browser->readErrorText().isEmpty());
  browser->navigateBack();
  // The file is overwritten in place while the browser shows it.
  test::writeFile(file, std::string(test::readFile(file).size(), '\0'));
  browser->navigateToNode(two, true);  // the chart needs two's unread rows
  browser->navigateBack();
  emit browser->sunburstView()->didPreviewNode(test::child(root.get(), "three"));
  EXPECT_EQ(reported.count(), 1);
  EXPECT_FALSE(browser->readErrorText().isEmpty());
  // What was read before stays on screen.
  EXPECT_EQ(browser->visibleChildrenForNode(one).size(), 1u);
  EXPECT_EQ(browser->visibleChildrenForNode(root.get()).size(), 4u);
  EXPECT_TRUE(browser->visibleChildrenForNode(two).empty());
}

}  // namespace
}  // namespace tw
