#include "app/settings_dialog.h"

#include <QAbstractItemView>
#include <QApplication>
#include <QCheckBox>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QPushButton>
#include <QSettings>
#include <QTabWidget>
#include <QVBoxLayout>
#include <algorithm>

#include "app/appearance.h"
#include "app/build_info.h"
#include "app/pattern_dialog.h"
#include "platform/disk_access.h"
#include "platform/file_manager.h"
#include "platform/paths.h"
#include "services/preferences.h"
#include "ui/alert.h"

namespace tw {

namespace {

constexpr int kSettingsWidth = 680;
constexpr int kSettingsHeight = 680;

QLabel* makeLabel(const QString& text, QWidget* parent, int pixelSize = 13, bool bold = false,
                  bool secondary = false) {
  auto* label = new QLabel(text, parent);
  label->setWordWrap(true);
  QFont font = label->font();
  font.setPixelSize(pixelSize);
  if (bold) font.setWeight(QFont::DemiBold);
  label->setFont(font);
  if (secondary) {
    QPalette p = label->palette();
    p.setColor(QPalette::WindowText, toQColor(palette::kSecondaryText));
    label->setPalette(p);
  }
  return label;
}

void setStatus(QLabel* label, const QString& text, const Rgba& colour) {
  label->setText(text);
  QPalette p = label->palette();
  p.setColor(QPalette::WindowText, toQColor(colour));
  label->setPalette(p);
}

// A rounded panel on the window background, like a grouped section.
QFrame* makePanel(QWidget* parent) {
  auto* panel = new QFrame(parent);
  panel->setObjectName(QStringLiteral("settingsPanel"));
  const QColor fill = toQColor(palette::kPanel);
  const QColor line = toQColor(palette::kHairline);
  panel->setStyleSheet(QStringLiteral("QFrame#settingsPanel { background: %1; border: 1px solid "
                                      "rgba(%2, %3, %4, %5); border-radius: 8px; }")
                           .arg(fill.name())
                           .arg(line.red())
                           .arg(line.green())
                           .arg(line.blue())
                           .arg(line.alphaF()));
  return panel;
}

QString displayPath(const std::string& path) {
  return QString::fromUtf8(path.data(), static_cast<qsizetype>(path.size()));
}

// Removes the rows selected in `list` from `items`; returns whether any were.
template <typename Items>
bool removeSelectedRows(QListWidget* list, Items& items) {
  std::vector<int> rows;
  for (const QListWidgetItem* item : list->selectedItems()) rows.push_back(list->row(item));
  if (rows.empty()) return false;
  std::sort(rows.rbegin(), rows.rend());
  for (int row : rows) {
    if (row >= 0 && row < static_cast<int>(items.size())) items.erase(items.begin() + row);
  }
  return true;
}

}  // namespace

int unlockedDiskCount(const std::vector<OverviewDisk>& mounted) {
  int count = 0;
  for (const OverviewDisk& disk : overviewDiskRows(mounted)) {
    if (isReadableAndSearchable(disk.path)) ++count;
  }
  return count;
}

QString diskUnlockStatusText(int unlockedDisks) {
  if (unlockedDisks <= 0) return QStringLiteral("Not unlocked");
  return QStringLiteral("%1 disk%2 unlocked")
      .arg(unlockedDisks)
      .arg(unlockedDisks == 1 ? QString() : QStringLiteral("s"));
}

SettingsDialog::SettingsDialog(QWidget* parent,
                               std::function<std::vector<OverviewDisk>()> mountedDisks)
    : QDialog(parent), mountedDisks_(mountedDisks ? std::move(mountedDisks) : systemOverviewDisks) {
  setObjectName(QStringLiteral("settingsDialog"));
  setWindowTitle(QStringLiteral("Settings"));
  setFixedSize(kSettingsWidth, kSettingsHeight);

  QSettings settings(kSettingsOrganization, kSettingsApplication);
  excludedPaths_ = pathListPreference(settings, kExcludedPathsKey);
  excludedPatterns_ = preferenceValue(settings, kExcludedFilePatternsKey).toStringList();

  tabs_ = new QTabWidget(this);
  tabs_->setObjectName(QStringLiteral("settingsTabs"));
  tabs_->setDocumentMode(true);  // pages on the window background; panels stand out on it
  tabs_->addTab(buildDiskAccessTab(), QStringLiteral("Disk Access"));
  tabs_->addTab(buildSettingsTab(), QStringLiteral("Settings"));
  tabs_->addTab(buildExclusionsTab(), QStringLiteral("Exclusions"));

  auto* version = makeLabel(versionLine(), this, 11, false, true);
  version->setObjectName(QStringLiteral("versionLine"));
  version->setWordWrap(false);
  version->setTextInteractionFlags(Qt::TextSelectableByMouse);
  auto* done = new QPushButton(QStringLiteral("Done"), this);
  done->setObjectName(QStringLiteral("doneButton"));
  done->setDefault(true);
  connect(done, &QPushButton::clicked, this, &QDialog::accept);

  auto* bottom = new QHBoxLayout;
  bottom->addWidget(version, 1);
  bottom->addWidget(done);

  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(20, 20, 20, 16);
  layout->setSpacing(12);
  layout->addWidget(tabs_, 1);
  layout->addLayout(bottom);

  connect(qApp, &QGuiApplication::applicationStateChanged, this, [this](Qt::ApplicationState s) {
    if (s == Qt::ApplicationActive) refreshPermissionStatus();
  });
  reloadFolders();
  reloadPatterns();
  refreshPermissionStatus();
}

QWidget* SettingsDialog::buildDiskAccessTab() {
  auto* tab = new QWidget;
  tab->setObjectName(QStringLiteral("diskAccess"));
  auto* layout = new QVBoxLayout(tab);
  layout->setContentsMargins(20, 20, 20, 20);
  layout->setSpacing(14);
  layout->addWidget(
      makeLabel(QStringLiteral(
                    "Review the permissions Tarnwell uses to produce complete and accurate scans."),
                tab));

  QFrame* panel = makePanel(tab);
  auto* grid = new QGridLayout(panel);
  grid->setContentsMargins(16, 12, 16, 12);
  grid->setHorizontalSpacing(16);
  grid->setVerticalSpacing(10);
  grid->addWidget(makeLabel(QStringLiteral("Disk unlock"), panel), 0, 0);
  diskAccessStatus_ = makeLabel(QString(), panel);
  diskAccessStatus_->setObjectName(QStringLiteral("diskAccessStatus"));
  diskAccessStatus_->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
  grid->addWidget(diskAccessStatus_, 0, 1);
  grid->addWidget(makeLabel(QStringLiteral("Full Disk Access"), panel), 1, 0);
  fullDiskAccessStatus_ = makeLabel(QString(), panel);
  fullDiskAccessStatus_->setObjectName(QStringLiteral("fullDiskAccessStatus"));
  fullDiskAccessStatus_->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
  grid->addWidget(fullDiskAccessStatus_, 1, 1);
  layout->addWidget(panel);

  auto* openAccess = new QPushButton(QStringLiteral("Open Full Disk Access…"), tab);
  openAccess->setObjectName(QStringLiteral("openFullDiskAccessButton"));
  connect(openAccess, &QPushButton::clicked, this, &SettingsDialog::showFullDiskAccessExplanation);
  auto* showApp = new QPushButton(QStringLiteral("Show Tarnwell in Files"), tab);
  showApp->setObjectName(QStringLiteral("showApplicationButton"));
  connect(showApp, &QPushButton::clicked, this, &SettingsDialog::showApplicationInFiles);
  auto* buttons = new QHBoxLayout;
  buttons->addWidget(openAccess);
  buttons->addWidget(showApp);
  buttons->addStretch(1);
  layout->addLayout(buttons);

  layout->addWidget(makeLabel(
      QStringLiteral("Without full disk access, disk scans count folders they cannot read as "
                     "hidden space."),
      tab, 12, false, true));
  layout->addStretch(1);
  return tab;
}

QWidget* SettingsDialog::buildSettingsTab() {
  auto* tab = new QWidget;
  tab->setObjectName(QStringLiteral("settings"));
  auto* layout = new QVBoxLayout(tab);
  layout->setContentsMargins(20, 20, 20, 20);
  layout->setSpacing(6);
  layout->addWidget(makeLabel(QStringLiteral("Scanning Settings"), tab, 17, true));
  layout->addWidget(makeLabel(QStringLiteral("Choose how Tarnwell scans."), tab, 13, false, true));
  layout->addSpacing(14);
  layout->addWidget(makeLabel(QStringLiteral("Scanning"), tab, 13, true));
  layout->addSpacing(4);

  QFrame* panel = makePanel(tab);
  auto* inner = new QVBoxLayout(panel);
  inner->setContentsMargins(16, 12, 16, 12);
  inner->setSpacing(4);
  skipPackages_ = new QCheckBox(QStringLiteral("Skip Application Bundles and Packages"), panel);
  skipPackages_->setObjectName(QStringLiteral("skipPackagesCheckBox"));
  QSettings settings(kSettingsOrganization, kSettingsApplication);
  skipPackages_->setChecked(preferenceValue(settings, kSkipPackagesKey).toBool());
  connect(skipPackages_, &QCheckBox::toggled, this, [](bool on) {
    QSettings settings(kSettingsOrganization, kSettingsApplication);
    settings.setValue(kSkipPackagesKey, on);
  });
  inner->addWidget(skipPackages_);
  QLabel* explanation = makeLabel(
      QStringLiteral("Speeds up scanning, but storage inside skipped packages is excluded from "
                     "folder totals and appears as hidden space in whole-disk results."),
      panel, 12, false, true);
  explanation->setContentsMargins(24, 0, 0, 0);
  inner->addWidget(explanation);
  layout->addWidget(panel);
  layout->addStretch(1);
  return tab;
}

QWidget* SettingsDialog::buildExclusionsTab() {
  auto* tab = new QWidget;
  tab->setObjectName(QStringLiteral("exclusions"));
  auto* layout = new QVBoxLayout(tab);
  layout->setContentsMargins(20, 20, 20, 20);
  layout->setSpacing(6);
  layout->addWidget(makeLabel(QStringLiteral("Exclusion Rules"), tab, 17, true));
  layout->addWidget(
      makeLabel(QStringLiteral("Excluded folders and file patterns are skipped in future scans."),
                tab, 13, false, true));
  layout->addSpacing(10);

  auto addList = [&](const QString& title, const QString& name, const QString& addText,
                     QListWidget*& list, QPushButton*& remove) -> QPushButton* {
    layout->addWidget(makeLabel(title, tab, 13, true));
    list = new QListWidget(tab);
    list->setObjectName(name);
    list->setSelectionMode(QAbstractItemView::ExtendedSelection);
    list->setAlternatingRowColors(true);
    list->setUniformItemSizes(true);
    list->setStyleSheet(QStringLiteral("QListWidget::item { padding: 4px 6px; }"));
    layout->addWidget(list, 1);
    auto* add = new QPushButton(addText, tab);
    add->setObjectName(name + QStringLiteral("AddButton"));
    remove = new QPushButton(QStringLiteral("Remove"), tab);
    remove->setObjectName(name + QStringLiteral("RemoveButton"));
    remove->setEnabled(false);
    QPushButton* removeButton = remove;
    connect(list, &QListWidget::itemSelectionChanged, this,
            [list, removeButton] { removeButton->setEnabled(!list->selectedItems().isEmpty()); });
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(add);
    buttons->addWidget(remove);
    buttons->addStretch(1);
    layout->addLayout(buttons);
    layout->addSpacing(8);
    return add;
  };
  QPushButton* addFolder =
      addList(QStringLiteral("Excluded Folders"), QStringLiteral("excludedPaths"),
              QStringLiteral("Add Folder…"), excludedPathsList_, removeExcludedPath_);
  connect(addFolder, &QPushButton::clicked, this, &SettingsDialog::chooseExcludedFolder);
  connect(removeExcludedPath_, &QPushButton::clicked, this, &SettingsDialog::removeSelectedFolders);
  QPushButton* addPattern =
      addList(QStringLiteral("Excluded File Patterns"), QStringLiteral("excludedPatterns"),
              QStringLiteral("Add Pattern…"), excludedPatternsList_, removeExcludedPattern_);
  connect(addPattern, &QPushButton::clicked, this, &SettingsDialog::askForExcludedPattern);
  connect(removeExcludedPattern_, &QPushButton::clicked, this,
          &SettingsDialog::removeSelectedPatterns);

  layout->addWidget(makeLabel(
      QStringLiteral("Match names or paths, e.g. node_modules, *.iso, or */DerivedData/*."), tab,
      12, false, true));
  return tab;
}

void SettingsDialog::refreshPermissionStatus() {
  const int unlocked = unlockedDiskCount(mountedDisks_());
  setStatus(diskAccessStatus_, diskUnlockStatusText(unlocked),
            unlocked > 0 ? palette::kSystemGreen : palette::kSystemOrange);
  if (hasFullDiskAccess()) {
    setStatus(fullDiskAccessStatus_, QStringLiteral("Granted"), palette::kSystemGreen);
  } else {
    setStatus(fullDiskAccessStatus_, QStringLiteral("Not granted"), palette::kSystemOrange);
  }
}

void SettingsDialog::addExcludedFolders(const std::vector<std::string>& paths) {
  for (const std::string& chosen : paths) {
    std::string path = standardizeUserPath(chosen);
    if (path.empty()) continue;
    if (std::find(excludedPaths_.begin(), excludedPaths_.end(), path) != excludedPaths_.end()) {
      continue;
    }
    excludedPaths_.push_back(std::move(path));
  }
  reloadFolders();
  saveExclusionRules();
}

void SettingsDialog::addExcludedPattern(const QString& text) {
  const QString pattern = text.trimmed();
  if (pattern.isEmpty() || excludedPatterns_.contains(pattern)) return;
  excludedPatterns_.append(pattern);
  reloadPatterns();
  excludedPatternsList_->setCurrentRow(static_cast<int>(excludedPatterns_.size()) - 1);
  saveExclusionRules();
}

void SettingsDialog::removeSelectedFolders() {
  if (!removeSelectedRows(excludedPathsList_, excludedPaths_)) return;
  reloadFolders();
  removeExcludedPath_->setEnabled(false);
  saveExclusionRules();
}

void SettingsDialog::removeSelectedPatterns() {
  if (!removeSelectedRows(excludedPatternsList_, excludedPatterns_)) return;
  reloadPatterns();
  removeExcludedPattern_->setEnabled(false);
  saveExclusionRules();
}

void SettingsDialog::reloadFolders() {
  excludedPathsList_->clear();
  for (const std::string& path : excludedPaths_) {
    auto* item = new QListWidgetItem(displayPath(path), excludedPathsList_);
    item->setData(Qt::UserRole, QByteArray::fromStdString(path));
    item->setToolTip(item->text());
  }
}

void SettingsDialog::reloadPatterns() {
  excludedPatternsList_->clear();
  excludedPatternsList_->addItems(excludedPatterns_);
}

void SettingsDialog::saveExclusionRules() {
  QSettings settings(kSettingsOrganization, kSettingsApplication);
  setPathListPreference(settings, kExcludedPathsKey, excludedPaths_);
  settings.setValue(kExcludedFilePatternsKey, excludedPatterns_);
}

void SettingsDialog::chooseExcludedFolder() {
  if (folderChooser_) return;
  folderChooser_ = new QFileDialog(this, QString(), QDir::homePath());
  folderChooser_->setObjectName(QStringLiteral("excludedFolderChooser"));
  folderChooser_->setAttribute(Qt::WA_DeleteOnClose);
  folderChooser_->setWindowModality(Qt::WindowModal);
  // The desktop's own dialogs choose one folder at a time; ours lets several be picked at once.
  folderChooser_->setOption(QFileDialog::DontUseNativeDialog);
  folderChooser_->setOption(QFileDialog::ShowDirsOnly);
  folderChooser_->setFileMode(QFileDialog::Directory);
  folderChooser_->setLabelText(QFileDialog::Accept, QStringLiteral("Exclude"));
  for (QAbstractItemView* view : folderChooser_->findChildren<QAbstractItemView*>()) {
    view->setSelectionMode(QAbstractItemView::ExtendedSelection);
  }
  connect(folderChooser_, &QFileDialog::filesSelected, this, [this](const QStringList& files) {
    std::vector<std::string> paths;
    for (const QString& file : files) paths.push_back(QFile::encodeName(file).toStdString());
    addExcludedFolders(paths);
  });
  connect(folderChooser_, &QObject::destroyed, this, [this] { folderChooser_ = nullptr; });
  folderChooser_->open();
}

void SettingsDialog::askForExcludedPattern() {
  if (patternDialog_) return;
  patternDialog_ = new PatternDialog(this);
  patternDialog_->setAttribute(Qt::WA_DeleteOnClose);
  connect(patternDialog_, &PatternDialog::patternEntered, this,
          &SettingsDialog::addExcludedPattern);
  connect(patternDialog_, &QObject::destroyed, this, [this] { patternDialog_ = nullptr; });
  patternDialog_->open();
}

void SettingsDialog::showFullDiskAccessExplanation() {
  QMessageBox* box = makeAlert(
      this, QMessageBox::Information, QStringLiteral("Full Disk Access"),
      QStringLiteral("Full Disk Access means read access to every folder. Scans made as a normal "
                     "user leave out the folders that user cannot read, and their space shows as "
                     "hidden space.\n\nFor a complete scan, start Tarnwell as root with pkexec. "
                     "A copy started as root keeps its own library of saved scans."));
  box->setObjectName(QStringLiteral("fullDiskAccessExplanation"));
  box->setWindowTitle(QStringLiteral("Full Disk Access"));
  box->setStandardButtons(QMessageBox::Ok);
  box->open();
}

void SettingsDialog::showApplicationInFiles() {
  const QByteArray executable = QFile::encodeName(QCoreApplication::applicationFilePath());
  revealInFileManager({executable.toStdString()});
}

}  // namespace tw
