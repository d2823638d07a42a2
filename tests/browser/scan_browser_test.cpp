// The scan browser as a user drives it: history, breadcrumbs, the list, chart clicks and hovers,
// the preview, long and odd names, drags, disks and a damaged saved scan.
#include "browser/scan_browser.h"

#include <QAbstractButton>
#include <QImageReader>
#include <QLabel>
#include <QMimeData>

#include "browser/breadcrumb_bar.h"
#include "browser/elided_label.h"
#include "browser/preview_window.h"
#include "browser/scan_children_model.h"
#include "browser/scan_list_view.h"
#include "browser/volume_presentation.h"
#include "browser_test_support.h"
#include "platform/file_url.h"
#include "store/scan_store.h"
#include "support/test_volume_layout.h"

namespace tw {
namespace {

// Nothing is a disk (the only one is elsewhere), so hand-built trees stay folder scans; what is
// sent to Files and the terminal is noted in `sent`.
ScanBrowser::Options quietOptions(std::vector<std::string>* sent = nullptr) {
  static std::vector<std::string> ignored;
  if (!sent) sent = &ignored;
  ScanBrowser::Options options;
  options.volumeLayout = std::make_shared<test::TestVolumeLayout>("/no-disk-here");
  options.openTerminal = [sent](const std::string& path) { sent->push_back("terminal " + path); };
  options.revealInFiles = [sent](const auto& paths) { sent->push_back("files " + paths.at(0)); };
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
    deepest_ = a_;
    for (const char* name : {"b", "c", "d", "e", "f"}) deepest_ = addFolder(deepest_, name, 40);
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
    browser_ = std::make_unique<ScanBrowser>(root_, quietOptions(&sent_));
  }

  ScanNodeRef root_;
  ScanNode *a_ = nullptr, *deepest_ = nullptr, *notes_ = nullptr, *todo_ = nullptr,
           *group_ = nullptr, *emptyGroup_ = nullptr;
  std::vector<std::string> sent_;
  std::unique_ptr<ScanBrowser> browser_;
};

TEST_F(ScanBrowserTest, HistoryBreadcrumbsFilesAndTerminalFollowTheCurrentFolder) {
  QSignalSpy changed(browser_.get(), &ScanBrowser::navigationChanged);
  browser_->navigateToNode(root_.get(), true);  // already current
  EXPECT_TRUE(browser_->backHistory().empty());
  EXPECT_EQ(changed.count(), 0);

  ScanNode* b = a_->children()[0];
  browser_->navigateToNode(a_, true);
  browser_->navigateToNode(b, true);
  EXPECT_EQ(browser_->backHistory(), (std::vector<ScanNode*>{root_.get(), a_}));
  EXPECT_EQ(browser_->sunburstView()->rootNode(), b);
  EXPECT_EQ(changed.count(), 2);
  for (int i = 0; i < 3; ++i) browser_->navigateBack();  // the third finds nothing left
  EXPECT_EQ(browser_->currentNode(), root_.get());
  EXPECT_EQ(browser_->forwardHistory(), (std::vector<ScanNode*>{b, a_}));
  browser_->navigateForward();
  EXPECT_EQ(browser_->currentNode(), a_);
  EXPECT_EQ(browser_->backHistory(), (std::vector<ScanNode*>{root_.get()}));
  EXPECT_EQ(browser_->forwardHistory(), (std::vector<ScanNode*>{b}));
  browser_->showCurrentFolderInFiles();
  browser_->openCurrentFolderInTerminal();
  EXPECT_EQ(sent_, (test::Names{"files /r/a", "terminal /r/a"}));

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
  int placeholders = 0;
  for (QLabel* label : browser_->breadcrumbBar()->findChildren<QLabel*>())
    placeholders += label->accessibleName() == kHiddenFoldersAccessibleName;
  EXPECT_EQ(placeholders, 1);
  QSignalSpy overview(browser_.get(), &ScanBrowser::showOverviewRequested);
  const auto buttons = browser_->breadcrumbBar()->findChildren<QAbstractButton*>();
  buttons[0]->click();
  EXPECT_EQ(overview.count(), 1);
  buttons[2]->click();  // "d"
  EXPECT_EQ(browser_->currentNode()->name(), "d");
  EXPECT_EQ(browser_->backHistory().back(), deepest_);
}

TEST_F(ScanBrowserTest, ChartClicksOpenOrSelectHoversPreviewAndTheListSkipsEmptyAndQueuedItems) {
  SunburstView* chart = browser_->sunburstView();
  emit chart->didChooseNode(notes_);
  EXPECT_EQ(browser_->currentNode(), root_.get());
  EXPECT_EQ(browser_->listModel()->nodeAt(browser_->listView()->currentIndex()), notes_);
  emit chart->didChooseNode(emptyGroup_);
  EXPECT_EQ(browser_->currentNode(), root_.get());
  emit chart->didChooseNode(group_);  // a group with something in it opens like a folder
  EXPECT_EQ(listedNames(*browser_), test::Names{"tiny"});
  browser_->navigateBack();

  // A resting hover retitles the panel and lists the previewed folder.
  browser_->listView()->setCurrentIndex(browser_->listModel()->index(1, 0));
  emit chart->didPreviewNode(a_);
  EXPECT_EQ(browser_->titleText(), QStringLiteral("\u25cf \u2068a\u2069"));
  EXPECT_EQ(browser_->findChild<ElidedLabel*>("title")->dotColor(), chart->colorForNode(a_));
  EXPECT_EQ(browser_->sizeText(), QStringLiteral("60 B"));
  EXPECT_EQ(listedNames(*browser_), (test::Names{"b", "a.txt"}));
  EXPECT_TRUE(browser_->listView()->selectionModel()->selectedRows().isEmpty());
  // A click on a file while another folder is previewed still finds its row.
  emit chart->didChooseNode(notes_);
  EXPECT_EQ(browser_->listModel()->nodeAt(browser_->listView()->currentIndex()), notes_);

  emit chart->didPreviewNode(a_);
  emit chart->didPreviewNode(nullptr);
  EXPECT_EQ(browser_->titleText(), QStringLiteral("\u2068r\u2069"));
  EXPECT_EQ(browser_->sizeText(), QStringLiteral("100 B"));
  EXPECT_EQ(listedNames(*browser_), (test::Names{"a", "notes.txt", "todo.txt", kSmaller}));
  browser_->setIsNodeRepresentedInCollector([this](const ScanNode* n) { return n == notes_; });
  EXPECT_EQ(listedNames(*browser_), (test::Names{"a", "todo.txt", kSmaller}));
  // The Size header sits on the right, over its figures.
  const ScanChildrenModel* rows = browser_->listModel();
  EXPECT_EQ(rows->headerData(ScanChildrenModel::kSizeColumn, Qt::Horizontal, Qt::TextAlignmentRole),
            rows->data(rows->index(0, ScanChildrenModel::kSizeColumn), Qt::TextAlignmentRole));
}

TEST_F(ScanBrowserTest, KeysOpenRowsGoUpAndThePreviewFollowsTheCurrentFileOrCloses) {
  ScanListView* list = browser_->listView();
  auto press = [list](const std::vector<Qt::Key>& keys, Qt::KeyboardModifiers modifiers = {}) {
    for (Qt::Key key : keys) QTest::keyClick(list, key, modifiers);
  };
  list->setCurrentIndex(browser_->listModel()->index(0, 0));  // a
  press({Qt::Key_Return});
  EXPECT_EQ(browser_->currentNode(), a_);
  press({Qt::Key_Backspace});
  EXPECT_EQ(browser_->currentNode(), root_.get());
  browser_->navigateToNode(a_, true);
  press({Qt::Key_Up}, Qt::AltModifier);
  EXPECT_EQ(browser_->currentNode(), root_.get());

  // Space on a folder shows nothing; on a file it toggles the preview, which follows the current
  // row to the next file and closes on a folder.
  list->setCurrentIndex(browser_->listModel()->index(0, 0));
  const std::pair<std::vector<Qt::Key>, ScanNode*> steps[] = {
      {{Qt::Key_Space}, nullptr},
      {{Qt::Key_Down, Qt::Key_Space}, notes_},
      {{Qt::Key_Space}, nullptr},
      {{Qt::Key_Space, Qt::Key_Down}, todo_},
      {{Qt::Key_Up, Qt::Key_Up}, nullptr}};
  for (const auto& [keys, shown] : steps) {
    press(keys);
    EXPECT_EQ(browser_->previewNode(), shown);
    EXPECT_TRUE(!shown || browser_->previewWindow()->path() == shown->path());
  }
  PreviewWindow* preview = browser_->previewWindow();
  // It closes too when the list shows another folder, by a hover in the chart or by going there.
  press({Qt::Key_Down, Qt::Key_Space});
  emit browser_->sunburstView()->didPreviewNode(a_);
  EXPECT_FALSE(preview->isVisible());
  emit browser_->sunburstView()->didPreviewNode(nullptr);
  list->setCurrentIndex(browser_->listModel()->index(1, 0));
  press({Qt::Key_Space});
  ASSERT_TRUE(preview->isVisible());
  browser_->navigateToNode(a_, true);
  EXPECT_FALSE(preview->isVisible());
}

TEST(ScanBrowserNamesTest, LongNamesElideWithoutMovingTheChartAndOddBytesShowButDragAsTheyAre) {
  // Five nested folders with 189-character names, the first one the scanned folder, and a file
  // whose name is invalid UTF-8 with a newline and right-to-left Hebrew.
  const std::string name(188, 'n');
  const std::string odd = "bad\xff\nline \xd7\xa9\xd7\x9c\xd7\x95\xd7\x9d";
  ScanNodeRef root = makeFolderRoot(110, "/" + name + "0");
  ScanNode* deepest = root.get();
  for (char level : {'1', '2', '3', '4'}) deepest = addFolder(deepest, name + level, 100);
  addFile(deepest, "file", 100);
  ScanNode* oddFile = addFile(root.get(), odd, 10);
  ScanNode* shortName = addFolder(root.get(), "Photos 2024", 0);
  ScanBrowser browser(root, quietOptions());
  browser.resize(760, 500);
  browser.show();
  ASSERT_TRUE(QTest::qWaitForWindowExposed(&browser));
  const QRect chart = browser.sunburstView()->geometry();
  EXPECT_GT(chart.width(), 400);  // far from the smallest the chart may be

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
  // A name that fits is shown whole, not shortened by a rounding of its width.
  browser.navigateToNode(shortName, true);
  QCoreApplication::processEvents();
  EXPECT_EQ(crumbTitles(browser).back(), "Photos 2024");

  // Odd bytes show as replacement characters on one line; a drag carries the real bytes.
  browser.navigateToNode(root.get(), true);
  ScanChildrenModel* rows = browser.listModel();
  const QModelIndex oddRow = rows->index(rows->rowOf(oddFile), 0);
  EXPECT_EQ(rows->data(oddRow, Qt::DisplayRole).toString(),
            QStringLiteral("bad\ufffd\ufffdline \u05e9\u05dc\u05d5\u05dd"));
  std::unique_ptr<QMimeData> data(rows->mimeData({oddRow, oddRow.siblingAtColumn(1)}));
  ASSERT_TRUE(data);
  const QByteArray uris = data->data(QStringLiteral("text/uri-list"));
  ASSERT_TRUE(uris.endsWith("\r\n"));
  const std::string url = uris.chopped(2).toStdString();
  EXPECT_EQ(pathForFileURL(url), root->path() + "/" + odd);
  EXPECT_EQ(data->data(QString::fromLatin1(kScanNodeMimeType)).toStdString(), "0 " + url + "\n");
  EXPECT_EQ(data->urls().size(), 1);
  emit browser.sunburstView()->didPreviewNode(oddFile);
  EXPECT_FALSE(browser.titleText().contains(QLatin1Char('\n')));
}

TEST(ScanBrowserVolumeTest, DiskRootTakesVolumeFiguresAndListsSystemFoldersOnTheirOwn) {
  test::TempTree tree;
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
  EXPECT_EQ(std::tuple(root->isVolumeRoot(), root->volumeCapacity(), root->volumeFreeSpace(),
                       root->volumeAvailableSpace()),
            (std::tuple<bool, uint64_t, uint64_t, uint64_t>{true, 1000, 300, 300}));
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

TEST(ScanBrowserFilesTest, PreviewShowsTextImagesBeforeTextAndSaysWhenTheFileIsGone) {
  test::TempTree tree;
  test::writeFile(tree.path("notes.txt"), "hello from the preview\n");
  PreviewWindow preview;
  QSignalSpy shown(&preview, &PreviewWindow::contentShown);
  preview.showFile(tree.path("notes.txt"), QStringLiteral("notes.txt"), 4096);
  ASSERT_TRUE(shown.wait(5000));
  EXPECT_EQ(preview.shownKind(), PreviewContent::Kind::kText);
  EXPECT_EQ(preview.shownText(), QStringLiteral("hello from the preview\n"));
  preview.showFile(tree.path("gone.txt"), QStringLiteral("gone.txt"), 4096);
  ASSERT_TRUE(shown.wait(5000));
  EXPECT_EQ(preview.shownKind(), PreviewContent::Kind::kMissing);
  EXPECT_TRUE(preview.shownText().contains(QStringLiteral("no longer on disk")));

  // Images are scaled to fit; SVG, a kind of text to shared-mime-info, is an image first.
  if (!QImageReader::supportedMimeTypes().contains("image/svg+xml"))
    GTEST_SKIP() << "Qt's SVG image plugin is not installed";
  test::writeFile(tree.path("blank.pbm"), "P4 64 32 " + std::string(8 * 32, '\0'));
  test::writeFile(tree.path("blue.svg"),
                  "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"64\" "
                  "height=\"32\"><rect width=\"64\" height=\"32\"/></svg>");
  for (const char* name : {"blank.pbm", "blue.svg"}) {
    const PreviewContent content = readPreviewContent(tree.path(name), QSize(16, 16));
    EXPECT_EQ(content.kind, PreviewContent::Kind::kImage) << name;
    EXPECT_EQ(content.image.size(), QSize(16, 8)) << name;
  }
}

TEST(ScanBrowserStoreTest, AnUnreadableSavedScanIsReportedOnceAndWhatWasReadStays) {
  test::TempTree tree;
  // Folders too thin for the chart are read only when the browser shows them.
  ScanNodeRef built = makeFolderRoot(1'000'000, "/data");
  addFile(built.get(), "big", 999'800);
  for (const char* name : {"two", "three"}) addFile(addFolder(built.get(), name, 100), "leaf", 100);
  const std::string file = tree.path("scan.sqlite");
  ASSERT_TRUE(ScanStore::writeRootNode(built.get(), file));
  ScanNodeRef root = ScanStore::open(file)->rootNode();
  ScanBrowser browser(root, quietOptions());
  QSignalSpy reported(&browser, &ScanBrowser::readErrorReported);
  EXPECT_TRUE(browser.readErrorText().isEmpty());
  // The file is overwritten in place while the browser shows it.
  test::writeFile(file, std::string(test::readFile(file).size(), '\0'));
  browser.navigateToNode(test::child(root.get(), "two"), true);
  emit browser.sunburstView()->didPreviewNode(test::child(root.get(), "three"));
  EXPECT_EQ(reported.count(), 1);
  EXPECT_TRUE(browser.readErrorText().startsWith("Part of this scan could not be read: "));
  EXPECT_EQ(browser.visibleChildrenForNode(root.get()).size(), 3u);
}

}  // namespace
}  // namespace tw
