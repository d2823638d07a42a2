// The overview's widgets driven through their real signals, offscreen.
#include "overview/overview_view.h"

#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QApplication>
#include <QLabel>
#include <QListView>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QToolButton>

#include "overview/disk_sheets.h"
#include "overview/overview_rows.h"
#include "overview/usage_bar.h"
#include "overview_test_support.h"
#include "platform/file_url.h"

namespace tw {
namespace {

using test::makeController;
using test::OverviewEnvironment;
using test::Recorder;

class OverviewViewTest : public ::testing::Test {
 protected:
  OverviewEnvironment env;
  Recorder recorder;
  OverviewDisk disk{"/", "", 2000000000000, 500000000000, 0, true, true};
  OverviewDisk efi{"/boot/efi", "EFI", 500000000, 400000000, 0, true, false};
};

TEST_F(OverviewViewTest, RowsShowDiskFiguresFolderStatesAndTheirMenusInOrder) {
  auto c = makeController(recorder, {disk});
  c->addFolder("/data/music");
  OverviewView view(c.get());
  ASSERT_EQ(view.rowWidgets().size(), 2u);
  auto* diskRow = qobject_cast<DiskRowWidget*>(view.rowWidgets()[0]);
  ASSERT_NE(diskRow, nullptr);
  EXPECT_EQ(diskRow->nameLabel()->text(), "Root Disk");
  EXPECT_EQ(diskRow->subtitleLabel()->text(), "2.0 TB startup disk");
  EXPECT_EQ(diskRow->freeLabel()->text(), "500.0 GB free");
  EXPECT_TRUE(diskRow->usedLabel()->isHidden());
  EXPECT_DOUBLE_EQ(diskRow->usageBar()->value(), 0.75);
  EXPECT_EQ(diskRow->primaryButton()->text(), "Scan");

  auto* folderRow = qobject_cast<FolderRowWidget*>(view.rowWidget("/data/music"));
  ASSERT_NE(folderRow, nullptr);
  EXPECT_EQ(folderRow->statusLabel()->text(), "local folder");
  EXPECT_EQ(folderRow->accessibleName(), "music, Scan");
  EXPECT_EQ(folderRow->starButton()->accessibleName(), "Star folder");
  folderRow->starButton()->click();
  EXPECT_EQ(folderRow->starButton()->accessibleName(), "Unstar folder");
  EXPECT_EQ(c->favoriteFolderPaths(), std::vector<std::string>{"/data/music"});

  auto texts = [&](const char* path) {
    std::unique_ptr<QMenu> menu(view.createRowMenu(path));
    QStringList list;
    for (QAction* action : menu->actions())
      list << (action->isSeparator() ? "-" : action->text() + (action->isEnabled() ? "" : "(off)"));
    return list;
  };
  EXPECT_EQ(texts("/data/music"),
            (QStringList{"Rescan", "-", "Unstar \u201Cmusic\u201D", "Show in Files", "Get Info",
                         "-", "Forget Scan Result(off)", "Remove"}));
  EXPECT_EQ(texts("/"), (QStringList{"Rescan", "-", "Show in Files", "Get Info", "-",
                                     "Forget Scan Result(off)", "Remove"}));
}

TEST_F(OverviewViewTest, DroppedFolderWithAnOddNameBecomesARowAndRemoveAsksFirst) {
  auto c = makeController(recorder);
  OverviewView view(c.get());
  const std::string folder = env.tree.folder("caf\xe9 folder");
  EXPECT_TRUE(view.dropUriList(QByteArray::fromStdString(fileURLForPath(folder, true)) + "\r\n"));
  ASSERT_NE(view.rowWidget(folder), nullptr);
  EXPECT_EQ(c->knownFolderPaths(), std::vector<std::string>{folder});

  view.confirmRemove(folder);
  auto* box = qobject_cast<QMessageBox*>(view.activeSheet());
  ASSERT_NE(box, nullptr);
  EXPECT_EQ(box->text(), "Are you sure you want to remove caf\ufffd folder?");
  EXPECT_EQ(box->windowModality(), Qt::WindowModal);
  QAbstractButton* yes = nullptr;
  for (QAbstractButton* b : box->buttons())
    if (b->text() == "Yes") yes = b;
  ASSERT_NE(yes, nullptr);
  yes->click();
  EXPECT_EQ(recorder.removeRequests, std::vector<std::string>{folder});
  EXPECT_EQ(view.rowWidget(folder), nullptr);
}

TEST_F(OverviewViewTest, AddHardDiskOffersOnlyDisksWithoutARowAndRemembersTheChoice) {
  auto c = makeController(recorder, {disk, efi});
  OverviewView view(c.get());
  view.addHardDiskButton()->click();
  auto* sheet = qobject_cast<AddDiskSheet*>(view.activeSheet());
  ASSERT_NE(sheet, nullptr);
  ASSERT_EQ(sheet->model()->rowCount(), 1);
  const QModelIndex first = sheet->model()->index(0);
  EXPECT_EQ(first.data(AddDiskModel::kDetailRole).toString(), "500.0 MB \u2022 internal volume");
  EXPECT_EQ(first.data(Qt::AccessibleTextRole).toString(), "EFI, 500.0 MB, internal volume");
  sheet->openButton()->click();
  ASSERT_NE(view.rowWidget("/boot/efi"), nullptr);
  EXPECT_EQ(c->addedDiskPaths(), std::vector<std::string>{"/boot/efi"});
  EXPECT_TRUE(c->disksForAdding().empty());
  EXPECT_FALSE(c->addDisk("/boot/efi"));
  EXPECT_EQ(recorder.alerts.back().second, "Choose a different hard disk.");
  // With every disk listed there is nothing to offer.
  const int sheets = recorder.addDiskSheets;
  c->addHardDisk();
  EXPECT_EQ(recorder.alerts.back().first, "All available hard disks have already been added.");
  EXPECT_EQ(recorder.addDiskSheets, sheets);
  // A disk unmounted while the sheet was open is refused, not remembered.
  EXPECT_FALSE(c->addDisk("/media/gone"));
  EXPECT_EQ(recorder.alerts.back(),
            std::make_pair(QString("Unable to Add Hard Disk"),
                           QString("The system did not grant access to this disk.")));
  EXPECT_EQ(c->addedDiskPaths(), std::vector<std::string>{"/boot/efi"});
  auto restarted = makeController(recorder, {disk, efi});
  ASSERT_NE(restarted->rowForPath("/boot/efi"), nullptr);
  EXPECT_TRUE(restarted->rowForPath("/boot/efi")->disk);
}

}  // namespace
}  // namespace tw
