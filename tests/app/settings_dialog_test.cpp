// The Settings window driven as a user would: its tabs, the permission rows and the scanning
// preferences it writes for later scans.
#include "app/settings_dialog.h"

#include <unistd.h>

#include <QApplication>
#include <QCheckBox>
#include <QFileDialog>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QPushButton>
#include <QRegularExpression>
#include <QTabWidget>
#include <QTest>

#include "app/pattern_dialog.h"
#include "gtest/gtest.h"
#include "platform/paths.h"
#include "services/preferences.h"
#include "support/desktop_environment.h"

namespace tw {
namespace {

class SettingsDialogTest : public ::testing::Test {
 protected:
  void SetUp() override {
    registerDefaultPreferences();
    dialog_ = std::make_unique<SettingsDialog>(nullptr, [this] { return disks_; });
    dialog_->show();
  }
  QPushButton* button(const char* name) { return dialog_->findChild<QPushButton*>(name); }
  static QStringList texts(QListWidget* list) {
    QStringList out;
    for (int i = 0; i < list->count(); ++i) out << list->item(i)->text();
    return out;
  }
  static void select(QListWidget* list, std::initializer_list<int> rows) {
    list->clearSelection();
    for (int row : rows) list->item(row)->setSelected(true);
  }
  // Types `text` into "Add Pattern…" and presses "Add" (or "Cancel").
  void typePattern(const QString& text, bool cancel = false) {
    QTest::mouseClick(button("excludedPatternsAddButton"), Qt::LeftButton);
    PatternDialog* ask = dialog_->patternDialog();
    ASSERT_TRUE(ask && ask->isVisible());
    EXPECT_EQ(ask->windowModality(), Qt::WindowModal);
    QTest::keyClicks(ask->field(), text);
    QTest::mouseClick(cancel ? ask->cancelButton() : ask->addButton(), Qt::LeftButton);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
  }

  test::DesktopEnvironment env_;
  std::vector<OverviewDisk> disks_;
  std::unique_ptr<SettingsDialog> dialog_;
};

TEST_F(SettingsDialogTest, AWindowOfItsOwnWithThreeTabsTheBuildsVersionLineAndDone) {
  EXPECT_TRUE(dialog_->isWindow());
  EXPECT_EQ(dialog_->windowModality(), Qt::NonModal);
  EXPECT_EQ(dialog_->windowTitle(), "Settings");
  EXPECT_EQ(dialog_->size(), QSize(680, 680));
  QTabWidget* tabs = dialog_->tabs();
  QStringList pages;
  for (int i = 0; i < tabs->count(); ++i)
    pages << tabs->tabText(i) + "/" + tabs->widget(i)->objectName();
  EXPECT_EQ(pages,
            (QStringList{"Disk Access/diskAccess", "Settings/settings", "Exclusions/exclusions"}));
  // The build type the project was configured with, whichever it is.
  const QString version = dialog_->findChild<QLabel*>("versionLine")->text();
  EXPECT_TRUE(QRegularExpression("^Tarnwell " TW_EXPECTED_VERSION
                                 " \\((\\w+(-modified)?)\\) — " TW_EXPECTED_BUILD " build$")
                  .match(version)
                  .hasMatch())
      << version.toStdString();

  QCheckBox* skip = dialog_->skipPackagesCheckBox();
  EXPECT_TRUE(skip->isChecked());  // the registered default, saved at each click
  QTest::mouseClick(skip, Qt::LeftButton);
  EXPECT_FALSE(readScanSettings().skipPackages);
  QTest::mouseClick(skip, Qt::LeftButton);
  EXPECT_TRUE(readScanSettings().skipPackages);

  EXPECT_TRUE(button("doneButton")->isDefault());
  QTest::mouseClick(button("doneButton"), Qt::LeftButton);
  EXPECT_FALSE(dialog_->isVisible());
}

TEST_F(SettingsDialogTest, PatternsAreTrimmedKeptOnceExactlyAsTypedSavedAndRemovedByRow) {
  typePattern("*.tmp", /*cancel=*/true);
  for (const char* typed : {"*.iso", "   *.iso  ", "   ", "*/DerivedData/*", "Node_Modules", "d"})
    typePattern(typed);
  QListWidget* list = dialog_->excludedPatternsList();
  EXPECT_EQ(texts(list), (QStringList{"*.iso", "*/DerivedData/*", "Node_Modules", "d"}));
  EXPECT_EQ(readScanSettings().excludedFilePatterns,
            (std::vector<std::string>{"*.iso", "*/DerivedData/*", "Node_Modules", "d"}));
  // The new last row is selected, so Remove is ready for it.
  EXPECT_EQ(list->currentRow(), 3);
  QPushButton* remove = dialog_->removeExcludedPatternButton();
  EXPECT_TRUE(remove->isEnabled());
  list->clearSelection();
  EXPECT_FALSE(remove->isEnabled());
  select(list, {0, 3});
  QTest::mouseClick(remove, Qt::LeftButton);
  EXPECT_EQ(texts(list), (QStringList{"*/DerivedData/*", "Node_Modules"}));
  EXPECT_EQ(readScanSettings().excludedFilePatterns,
            (std::vector<std::string>{"*/DerivedData/*", "Node_Modules"}));
  EXPECT_FALSE(remove->isEnabled());
}

TEST_F(SettingsDialogTest, FoldersAreStandardizedKeptOnceKeepTheirBytesAndComeFromTheChooser) {
  const std::string home = homeDirectory(), movies = standardizePath(home + "/Movies");
  const std::string latin1 = "/srv/caf\xe9/old";
  dialog_->addExcludedFolders(
      {"~/Projects/../Movies/", "/tmp/./cache//", latin1, "", home + "/Movies", "/tmp/cache"});
  const std::vector<std::string> expected = {movies, "/tmp/cache", latin1};
  EXPECT_EQ(readScanSettings().excludedPaths, expected);
  // The list shows the name readably and keeps the real bytes with the row.
  QListWidget* list = dialog_->excludedPathsList();
  ASSERT_EQ(list->count(), 3);
  EXPECT_EQ(list->item(2)->data(Qt::UserRole).toByteArray().toStdString(), latin1);
  EXPECT_EQ(SettingsDialog().excludedPaths(), expected);  // a later window reads them back
  select(list, {1});
  QTest::mouseClick(dialog_->removeExcludedPathButton(), Qt::LeftButton);
  EXPECT_EQ(readScanSettings().excludedPaths, (std::vector<std::string>{movies, latin1}));
  EXPECT_FALSE(dialog_->removeExcludedPathButton()->isEnabled());

  const std::string chosen = env_.tree.folder("home/Videos");
  QTest::mouseClick(button("excludedPathsAddButton"), Qt::LeftButton);
  QFileDialog* chooser = dialog_->folderChooser();
  ASSERT_TRUE(chooser && chooser->isVisible());
  EXPECT_EQ(chooser->windowModality(), Qt::WindowModal);
  EXPECT_EQ(chooser->fileMode(), QFileDialog::Directory);
  EXPECT_EQ(chooser->labelText(QFileDialog::Accept), "Exclude");
  chooser->selectFile(QString::fromStdString(chosen));
  QMetaObject::invokeMethod(chooser, "accept");  // the "Exclude" button
  EXPECT_EQ(readScanSettings().excludedPaths, (std::vector<std::string>{movies, latin1, chosen}));
}

TEST_F(SettingsDialogTest, DiskAccessCountsEveryReadableDiskWithARowAndExplainsFullAccess) {
  const bool root = geteuid() == 0;
  QLabel* full = dialog_->fullDiskAccessStatusLabel();
  EXPECT_EQ(full->text(), root ? "Granted" : "Not granted");
  EXPECT_EQ(full->palette().color(QPalette::WindowText).name(), root ? "#30d158" : "#ff9f0a");
  QLabel* unlocked = dialog_->diskAccessStatusLabel();
  EXPECT_EQ(unlocked->text(), "Not unlocked");
  EXPECT_EQ(unlocked->palette().color(QPalette::WindowText).name(), "#ff9f0a");

  // Default rows and disks added with Add Hard Disk count; removed and never added ones do not.
  auto disk = [&](const char* name, bool defaultRow) {
    return OverviewDisk{env_.tree.folder(name), name, 1000, 500, 0, true, defaultRow};
  };
  disks_ = {disk("root", true), disk("efi", false), disk("usb", false), disk("spare", false),
            disk("gone", true)};
  QSettings settings(kSettingsOrganization, kSettingsApplication);
  setPathListPreference(settings, kAddedOverviewDiskPathsKey, {disks_[1].path, disks_[2].path});
  setPathListPreference(settings, kRemovedOverviewPathsKey, {disks_[4].path});
  dialog_->refreshPermissionStatus();
  EXPECT_EQ(unlocked->text(), "3 disks unlocked");
  EXPECT_EQ(unlocked->palette().color(QPalette::WindowText).name(), "#30d158");
  EXPECT_EQ(diskUnlockStatusText(1), "1 disk unlocked");

  QTest::mouseClick(button("openFullDiskAccessButton"), Qt::LeftButton);
  auto* box = dialog_->findChild<QMessageBox*>("fullDiskAccessExplanation");
  ASSERT_TRUE(box && box->isVisible());
  EXPECT_EQ(box->windowModality(), Qt::WindowModal);
  EXPECT_TRUE(box->informativeText().contains("pkexec"));
  box->close();
}

}  // namespace
}  // namespace tw
