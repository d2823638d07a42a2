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
#include <QSettings>
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
    parent_.resize(980, 650);
    parent_.show();
    dialog_ = new SettingsDialog(&parent_);
    dialog_->open();
  }
  void TearDown() override { delete dialog_; }

  QStringList listTexts(QListWidget* list) {
    QStringList texts;
    for (int i = 0; i < list->count(); ++i) texts << list->item(i)->text();
    return texts;
  }
  QStringList storedPatterns() {
    QSettings settings(kSettingsOrganization, kSettingsApplication);
    return settings.value(kExcludedFilePatternsKey).toStringList();
  }
  // Types `text` into "Add Pattern…" and presses "Add" (or "Cancel"), as a user would.
  void typePattern(const QString& text, bool cancel = false) {
    QPushButton* add = dialog_->findChild<QPushButton*>("excludedPatternsAddButton");
    ASSERT_NE(add, nullptr);
    QTest::mouseClick(add, Qt::LeftButton);
    PatternDialog* ask = dialog_->patternDialog();
    ASSERT_NE(ask, nullptr);
    ASSERT_TRUE(ask->isVisible());
    EXPECT_EQ(ask->windowModality(), Qt::WindowModal);
    QTest::keyClicks(ask->field(), text);
    QTest::mouseClick(cancel ? ask->cancelButton() : ask->addButton(), Qt::LeftButton);
    QApplication::processEvents();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
  }
  void selectRows(QListWidget* list, std::initializer_list<int> rows) {
    list->clearSelection();
    for (int row : rows) list->item(row)->setSelected(true);
  }

  test::DesktopEnvironment env_;
  QWidget parent_;
  SettingsDialog* dialog_ = nullptr;
};

TEST_F(SettingsDialogTest, ThreeTabsTheVersionLineAndDoneClosing) {
  EXPECT_EQ(dialog_->size(), QSize(680, 680));
  EXPECT_EQ(dialog_->windowModality(), Qt::WindowModal);
  QTabWidget* tabs = dialog_->tabs();
  ASSERT_EQ(tabs->count(), 3);
  const char* const names[][2] = {
      {"Disk Access", "diskAccess"}, {"Settings", "settings"}, {"Exclusions", "exclusions"}};
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(tabs->tabText(i), names[i][0]);
    EXPECT_EQ(tabs->widget(i)->objectName(), names[i][1]);
  }
  const QString version = dialog_->findChild<QLabel*>("versionLine")->text();
  EXPECT_TRUE(QRegularExpression(QStringLiteral("^Tarnwell " TW_EXPECTED_VERSION
                                                " \\((\\w+(-modified)?)\\) — debug build$"))
                  .match(version)
                  .hasMatch())
      << version.toStdString();
  auto* done = dialog_->findChild<QPushButton*>("doneButton");
  EXPECT_TRUE(done->isDefault());
  QTest::mouseClick(done, Qt::LeftButton);
  EXPECT_FALSE(dialog_->isVisible());
}

TEST_F(SettingsDialogTest, SkipPackagesIsSavedTheMomentItIsClicked) {
  QCheckBox* skip = dialog_->skipPackagesCheckBox();
  EXPECT_TRUE(skip->isChecked());  // the registered default
  QTest::mouseClick(skip, Qt::LeftButton);
  EXPECT_FALSE(skip->isChecked());
  EXPECT_FALSE(readScanSettings().skipPackages);
  QTest::mouseClick(skip, Qt::LeftButton);
  EXPECT_TRUE(readScanSettings().skipPackages);
}

TEST_F(SettingsDialogTest, PatternsAreTrimmedKeptOnceExactlyAsTypedSavedAndRemovedByRow) {
  typePattern(QStringLiteral("*.tmp"), /*cancel=*/true);
  EXPECT_EQ(dialog_->excludedPatternsList()->count(), 0);
  EXPECT_TRUE(storedPatterns().isEmpty());
  for (const char* typed :
       {"*.iso", "   *.iso  ", "   ", "*/DerivedData/*", "Node_Modules", "d", "e"})
    typePattern(QString::fromLatin1(typed));
  QListWidget* list = dialog_->excludedPatternsList();
  const QStringList expected = {"*.iso", "*/DerivedData/*", "Node_Modules", "d", "e"};
  EXPECT_EQ(listTexts(list), expected);
  EXPECT_EQ(storedPatterns(), expected);
  EXPECT_EQ(readScanSettings().excludedFilePatterns,
            (std::vector<std::string>{"*.iso", "*/DerivedData/*", "Node_Modules", "d", "e"}));
  // The new last row is selected, so Remove is ready for it.
  EXPECT_EQ(list->currentRow(), 4);
  EXPECT_TRUE(dialog_->removeExcludedPatternButton()->isEnabled());

  list->clearSelection();
  EXPECT_FALSE(dialog_->removeExcludedPatternButton()->isEnabled());
  selectRows(list, {0, 2, 4});
  EXPECT_TRUE(dialog_->removeExcludedPatternButton()->isEnabled());
  QTest::mouseClick(dialog_->removeExcludedPatternButton(), Qt::LeftButton);
  EXPECT_EQ(listTexts(list), QStringList({"*/DerivedData/*", "d"}));
  EXPECT_EQ(storedPatterns(), QStringList({"*/DerivedData/*", "d"}));
  EXPECT_FALSE(dialog_->removeExcludedPatternButton()->isEnabled());
}

TEST_F(SettingsDialogTest, FoldersAreStandardizedKeptOnceAndKeepTheirBytes) {
  const std::string home = homeDirectory();
  const std::string latin1 = "/srv/caf\xe9/old";
  dialog_->addExcludedFolders(
      {"~/Projects/../Movies/", "/tmp/./cache//", latin1, "", home + "/Movies", "/tmp/cache"});
  const std::vector<std::string> expected = {standardizePath(home + "/Movies"), "/tmp/cache",
                                             latin1};
  EXPECT_EQ(dialog_->excludedPaths(), expected);
  EXPECT_EQ(readScanSettings().excludedPaths, expected);
  QSettings settings(kSettingsOrganization, kSettingsApplication);
  EXPECT_EQ(settings.value(kExcludedPathsKey).toStringList().at(2), "/srv/caf%E9/old");

  // The list shows the name readably and keeps the real bytes with the row.
  QListWidget* list = dialog_->excludedPathsList();
  ASSERT_EQ(list->count(), 3);
  EXPECT_EQ(list->item(2)->data(Qt::UserRole).toByteArray().toStdString(), latin1);

  // A Settings window opened later reads the same back.
  SettingsDialog later(&parent_);
  EXPECT_EQ(later.excludedPaths(), expected);
  EXPECT_EQ(later.excludedPathsList()->count(), 3);

  selectRows(list, {1});
  QTest::mouseClick(dialog_->removeExcludedPathButton(), Qt::LeftButton);
  EXPECT_EQ(readScanSettings().excludedPaths,
            (std::vector<std::string>{standardizePath(home + "/Movies"), latin1}));
  EXPECT_FALSE(dialog_->removeExcludedPathButton()->isEnabled());
}

TEST_F(SettingsDialogTest, FolderChooserExcludesTheChosenFolders) {
  const std::string chosen = env_.home() + "/Videos";
  ASSERT_EQ(::mkdir(chosen.c_str(), 0755), 0);
  QTest::mouseClick(dialog_->findChild<QPushButton*>("excludedPathsAddButton"), Qt::LeftButton);
  QFileDialog* chooser = dialog_->folderChooser();
  ASSERT_NE(chooser, nullptr);
  EXPECT_TRUE(chooser->isVisible());
  EXPECT_EQ(chooser->windowModality(), Qt::WindowModal);
  EXPECT_EQ(chooser->fileMode(), QFileDialog::Directory);
  EXPECT_EQ(chooser->labelText(QFileDialog::Accept), "Exclude");
  chooser->selectFile(QString::fromStdString(chosen));
  QMetaObject::invokeMethod(chooser, "accept");  // the "Exclude" button
  EXPECT_EQ(dialog_->excludedPaths(), std::vector<std::string>{chosen});
  EXPECT_EQ(readScanSettings().excludedPaths, std::vector<std::string>{chosen});
}

TEST_F(SettingsDialogTest, DiskAccessShowsTheProcessAccessAndExplainsHowToScanEverything) {
  const bool root = geteuid() == 0;
  EXPECT_EQ(dialog_->fullDiskAccessStatusLabel()->text(), root ? "Granted" : "Not granted");
  const QColor colour = dialog_->fullDiskAccessStatusLabel()->palette().color(QPalette::WindowText);
  EXPECT_EQ(colour.name(), root ? "#30d158" : "#ff9f0a");
  EXPECT_EQ(dialog_->diskAccessStatusLabel()->text(), diskUnlockStatusText(unlockedDiskCount()));
  EXPECT_EQ(diskUnlockStatusText(0), "Not unlocked");
  EXPECT_EQ(diskUnlockStatusText(1), "1 disk unlocked");
  EXPECT_EQ(diskUnlockStatusText(3), "3 disks unlocked");
  // The root file system always has a row; as root its mount point is always open.
  if (root) {
    EXPECT_GE(unlockedDiskCount(), 1);
  }

  QTest::mouseClick(dialog_->findChild<QPushButton*>("openFullDiskAccessButton"), Qt::LeftButton);
  auto* box = dialog_->findChild<QMessageBox*>("fullDiskAccessExplanation");
  ASSERT_NE(box, nullptr);
  EXPECT_TRUE(box->isVisible());
  EXPECT_EQ(box->windowModality(), Qt::WindowModal);
  EXPECT_TRUE(box->informativeText().contains("pkexec"));
  box->close();
}

}  // namespace
}  // namespace tw
