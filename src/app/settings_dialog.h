// The Settings window: the state of the two permissions that decide whether scans are complete
// (disk unlock and Full Disk Access), the packages preference and the exclusion lists that every
// later scan reads. A window of its own beside the main window, never a sheet on it: scans that
// finish meanwhile are offered and the overview stays usable. It reads the preferences when it is
// built and writes each change at once.
#pragma once

#include <QDialog>
#include <QStringList>
#include <functional>
#include <string>
#include <vector>

#include "overview/overview_controller.h"

class QCheckBox;
class QFileDialog;
class QLabel;
class QListWidget;
class QPushButton;
class QTabWidget;

namespace tw {

class PatternDialog;

// The disks of `mounted` with a row in the overview (by default or added with Add Hard Disk) whose
// mount point this process can list and enter.
int unlockedDiskCount(const std::vector<OverviewDisk>& mounted);
// "Not unlocked", or "%lu disk%@ unlocked" with "s" unless the count is 1.
QString diskUnlockStatusText(int unlockedDisks);

class SettingsDialog : public QDialog {
  Q_OBJECT
 public:
  // `mountedDisks` lists the system's disks (systemOverviewDisks when empty).
  explicit SettingsDialog(QWidget* parent = nullptr,
                          std::function<std::vector<OverviewDisk>()> mountedDisks = {});

  // Re-reads both permissions into their status labels.
  void refreshPermissionStatus();

  // Appends each standardized path that is not empty and not listed yet, then saves.
  void addExcludedFolders(const std::vector<std::string>& paths);
  // Appends the trimmed text unless it is empty or listed, selects it and saves.
  void addExcludedPattern(const QString& text);
  void removeSelectedFolders();
  void removeSelectedPatterns();

  const std::vector<std::string>& excludedPaths() const { return excludedPaths_; }
  const QStringList& excludedPatterns() const { return excludedPatterns_; }

  // Widgets, for the window's tests.
  QTabWidget* tabs() const { return tabs_; }
  QLabel* diskAccessStatusLabel() const { return diskAccessStatus_; }
  QLabel* fullDiskAccessStatusLabel() const { return fullDiskAccessStatus_; }
  QCheckBox* skipPackagesCheckBox() const { return skipPackages_; }
  QListWidget* excludedPathsList() const { return excludedPathsList_; }
  QListWidget* excludedPatternsList() const { return excludedPatternsList_; }
  QPushButton* removeExcludedPathButton() const { return removeExcludedPath_; }
  QPushButton* removeExcludedPatternButton() const { return removeExcludedPattern_; }
  QFileDialog* folderChooser() const { return folderChooser_; }
  PatternDialog* patternDialog() const { return patternDialog_; }

 public slots:
  void chooseExcludedFolder();
  void askForExcludedPattern();
  void showFullDiskAccessExplanation();
  void showApplicationInFiles();

 private:
  QWidget* buildDiskAccessTab();
  QWidget* buildSettingsTab();
  QWidget* buildExclusionsTab();
  void reloadFolders();
  void reloadPatterns();
  void saveExclusionRules();

  std::function<std::vector<OverviewDisk>()> mountedDisks_;
  std::vector<std::string> excludedPaths_;
  QStringList excludedPatterns_;

  QTabWidget* tabs_ = nullptr;
  QLabel* diskAccessStatus_ = nullptr;
  QLabel* fullDiskAccessStatus_ = nullptr;
  QCheckBox* skipPackages_ = nullptr;
  QListWidget* excludedPathsList_ = nullptr;
  QListWidget* excludedPatternsList_ = nullptr;
  QPushButton* removeExcludedPath_ = nullptr;
  QPushButton* removeExcludedPattern_ = nullptr;
  QFileDialog* folderChooser_ = nullptr;
  PatternDialog* patternDialog_ = nullptr;
};

}  // namespace tw
