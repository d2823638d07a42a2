// The overview's widgets driven through their real signals, offscreen.
#include "overview/overview_view.h"

#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QApplication>
#include <QLabel>
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

class OverviewViewTest : public test::OverviewWorld {
 protected:
  OverviewDisk root{"/", "", 2000000000000, 500000000000, 0, true, true};
  OverviewDisk efi{"/boot/efi", "EFI", 500000000, 400000000, 0, true, false};
};

QAbstractButton* button(QMessageBox* box, const QString& text) {
  for (QAbstractButton* b : box->buttons())
    if (b->text() == text) return b;
  return nullptr;
}

TEST_F(OverviewViewTest, RowsShowDiskFiguresFolderStatesAndTheirMenusInOrder) {
  disks = {root};
  auto c = makeController();
  c->addFolder("/data/music");
  OverviewView view(c.get());
  ASSERT_EQ(view.rowWidgets().size(), 2u);
  auto* disk = qobject_cast<DiskRowWidget*>(view.rowWidgets()[0]);
  ASSERT_NE(disk, nullptr);
  EXPECT_EQ(disk->nameLabel()->text(), "Root Disk");
  EXPECT_EQ(disk->subtitleLabel()->text(), "2.0 TB startup disk");
  EXPECT_EQ(disk->freeLabel()->text(), "500.0 GB free");
  EXPECT_TRUE(disk->usedLabel()->isHidden());
  EXPECT_DOUBLE_EQ(disk->usageBar()->value(), 0.75);
  EXPECT_EQ(disk->primaryButton()->text(), "Scan");

  auto* folder = qobject_cast<FolderRowWidget*>(view.rowWidget("/data/music"));
  ASSERT_NE(folder, nullptr);
  EXPECT_EQ(folder->statusLabel()->text(), "local folder");
  EXPECT_EQ(folder->accessibleName(), "music, Scan");
  EXPECT_EQ(folder->starButton()->accessibleName(), "Star folder");
  folder->starButton()->click();
  EXPECT_EQ(folder->starButton()->accessibleName(), "Unstar folder");
  EXPECT_EQ(c->favoriteFolderPaths(), std::vector<std::string>{"/data/music"});

  auto texts = [&](const char* path) {
    std::unique_ptr<QMenu> menu(view.createRowMenu(path));
    QStringList list;
    for (QAction* action : menu->actions())
      list << (action->isSeparator() ? "-" : action->text() + (action->isEnabled() ? "" : "(off)"));
    return list;
  };
  EXPECT_EQ(texts("/data/music"),
            (QStringList{"Rescan", "-", "Unstar “music”", "Show in Files", "Get Info", "-",
                         "Forget Scan Result(off)", "Remove"}));
  EXPECT_EQ(texts("/"), (QStringList{"Rescan", "-", "Show in Files", "Get Info", "-",
                                     "Forget Scan Result(off)", "Remove"}));
}

TEST_F(OverviewViewTest, EveryAlertIsASheetWithABoldMessageAndText360PixelsWide) {
  disks = {root};
  auto c = makeController();
  OverviewView view(c.get());
  view.resize(980, 650);
  view.show();
  const std::string folder = env.tree.folder("caf\xe9 folder");
  EXPECT_TRUE(view.dropUriList(QByteArray::fromStdString(fileURLForPath(folder, true)) + "\r\n"));
  ASSERT_NE(view.rowWidget(folder), nullptr);

  const std::pair<std::function<void()>, QString> asks[] = {
      {[&] { c->addFolder(folder); }, "“caf\ufffd folder” is already added"},
      {[&] { c->addHardDisk(); }, "All available hard disks have already been added."},
      {[&] { emit c->changedFolderChoiceRequested(folder); }, "This folder may have changed"},
      {[&] { view.confirmRemove(folder); }, "Are you sure you want to remove caf\ufffd folder?"},
  };
  for (const auto& [ask, message] : asks) {
    SCOPED_TRACE(message.toStdString());
    if (auto* open = view.activeSheet()) open->close();
    ask();
    auto* box = qobject_cast<QMessageBox*>(view.activeSheet());
    ASSERT_NE(box, nullptr);
    QApplication::processEvents();
    EXPECT_EQ(box->text(), message);
    EXPECT_EQ(box->windowModality(), Qt::WindowModal);
    auto* label = box->findChild<QLabel*>("qt_msgbox_label");
    EXPECT_TRUE(label->font().bold());
    auto* informative = box->findChild<QLabel*>("qt_msgbox_informativelabel");
    EXPECT_GE((informative ? informative : label)->width(), 360);
  }
  // The last one asks whether to remove the folder: "Yes" hands it to the library.
  button(qobject_cast<QMessageBox*>(view.activeSheet()), "Yes")->click();
  EXPECT_EQ(removeRequests, std::vector<std::string>{folder});
  EXPECT_EQ(view.rowWidget(folder), nullptr);
}

TEST_F(OverviewViewTest, AddHardDiskOffersOnlyDisksWithoutARowAndRemembersTheChoice) {
  disks = {root, efi};
  auto c = makeController();
  OverviewView view(c.get());
  view.addHardDiskButton()->click();
  auto* sheet = qobject_cast<AddDiskSheet*>(view.activeSheet());
  ASSERT_NE(sheet, nullptr);
  ASSERT_EQ(sheet->model()->rowCount(), 1);
  const QModelIndex first = sheet->model()->index(0);
  EXPECT_EQ(first.data(AddDiskModel::kDetailRole).toString(), "500.0 MB • internal volume");
  EXPECT_EQ(first.data(Qt::AccessibleTextRole).toString(), "EFI, 500.0 MB, internal volume");
  sheet->openButton()->click();
  ASSERT_NE(view.rowWidget("/boot/efi"), nullptr);
  EXPECT_EQ(c->addedDiskPaths(), std::vector<std::string>{"/boot/efi"});
  EXPECT_TRUE(c->disksForAdding().empty());
  EXPECT_FALSE(c->addDisk("/boot/efi"));
  EXPECT_EQ(alerts.back().second, "Choose a different hard disk.");
  c->addHardDisk();  // with every disk listed there is nothing to offer
  EXPECT_EQ(alerts.back().first, "All available hard disks have already been added.");
  EXPECT_EQ(addDiskSheets, 1);
  // A disk unmounted while the sheet was open is refused, not remembered.
  EXPECT_FALSE(c->addDisk("/media/gone"));
  EXPECT_EQ(alerts.back(),
            std::make_pair(QString("Unable to Add Hard Disk"),
                           QString("The system did not grant access to this disk.")));
  EXPECT_EQ(c->addedDiskPaths(), std::vector<std::string>{"/boot/efi"});
  auto restarted = makeController();
  ASSERT_TRUE(restarted->rowForPath("/boot/efi") && restarted->rowForPath("/boot/efi")->disk);
}

}  // namespace
}  // namespace tw
