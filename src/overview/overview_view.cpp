#include "overview/overview_view.h"

#include <QApplication>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileDialog>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QListView>
#include <QMenu>
#include <QMessageBox>
#include <QMimeData>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollArea>
#include <QToolButton>
#include <QVBoxLayout>

#include "overview/disk_sheets.h"
#include "overview/overview_controller.h"
#include "overview/overview_rows.h"
#include "platform/file_manager.h"
#include "platform/item_properties.h"
#include "platform/paths.h"
#include "ui/alert.h"
#include "ui/qt_color.h"

namespace tw {

namespace {

QString qs(const std::string& text) {
  return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

const char* kUriList = "text/uri-list";

}  // namespace

OverviewView::OverviewView(OverviewController* controller, QWidget* parent)
    : QWidget(parent), controller_(controller) {
  setAcceptDrops(true);
  setAutoFillBackground(true);
  QPalette pal = palette();
  pal.setColor(QPalette::Window, toQColor(palette::kBackground));
  setPalette(pal);

  auto* title = new QLabel(QStringLiteral("Disks and Folders"), this);
  QFont font = title->font();
  font.setPixelSize(20);
  font.setBold(true);
  title->setFont(font);
  title->setStyleSheet(QStringLiteral("color: %1;").arg(toQColor(palette::kPrimaryText).name()));
  scanFolder_ = new QPushButton(QStringLiteral("Scan Folder…"), this);
  addDisk_ = new QPushButton(QStringLiteral("Add Hard Disk"), this);
  auto* header = new QHBoxLayout;
  header->addWidget(title);
  header->addStretch(1);
  header->addWidget(scanFolder_);
  header->addWidget(addDisk_);

  auto* rowsHolder = new QWidget;
  rowsHolder->setAutoFillBackground(false);
  rowsLayout_ = new QVBoxLayout(rowsHolder);
  rowsLayout_->setContentsMargins(0, 0, 0, 0);
  rowsLayout_->setSpacing(8);
  rowsLayout_->addStretch(1);
  auto* scroll = new QScrollArea(this);
  scroll->setWidget(rowsHolder);
  scroll->setWidgetResizable(true);
  scroll->setFrameShape(QFrame::NoFrame);
  scroll->viewport()->setAutoFillBackground(false);

  status_ = new QLabel(this);
  status_->setStyleSheet(
      QStringLiteral("color: %1;").arg(toQColor(palette::kSecondaryText).name()));
  statusProgress_ = new QProgressBar(this);
  statusProgress_->setRange(0, 0);
  statusProgress_->setFixedWidth(80);
  statusProgress_->setMaximumHeight(8);
  statusProgress_->setTextVisible(false);
  statusProgress_->hide();
  statusCancel_ = new QToolButton(this);
  statusCancel_->setText(QStringLiteral("Cancel"));
  statusCancel_->setAccessibleName(QStringLiteral("Cancel scan"));
  statusCancel_->hide();
  auto* statusLine = new QHBoxLayout;
  statusLine->addWidget(status_, 1);
  statusLine->addWidget(statusProgress_);
  statusLine->addWidget(statusCancel_);

  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(24, 20, 24, 12);
  layout->setSpacing(14);
  layout->addLayout(header);
  layout->addWidget(scroll, 1);
  layout->addLayout(statusLine);

  connect(scanFolder_, &QPushButton::clicked, this, &OverviewView::scanFolder);
  connect(addDisk_, &QPushButton::clicked, this, &OverviewView::addHardDisk);
  connect(statusCancel_, &QToolButton::clicked, controller_, &OverviewController::cancelScan);
  connect(controller_, &OverviewController::rowsChanged, this, &OverviewView::rebuildRows);
  connect(controller_, &OverviewController::statusChanged, this, [this](const QString& text) {
    status_->setText(text);
    // A new scan hides the status line's own progress and cancel controls: rows carry them.
    statusProgress_->hide();
    statusCancel_->hide();
  });
  connect(controller_, &OverviewController::alertRequested, this, &OverviewView::showAlert);
  connect(controller_, &OverviewController::changedFolderChoiceRequested, this,
          &OverviewView::showChangedFolderChoice);
  connect(controller_, &OverviewController::unlockRequested, this, &OverviewView::showUnlockSheet);
  connect(controller_, &OverviewController::unlockFinished, this, [this] {
    if (unlockSheet_) unlockSheet_->accept();
  });
  connect(controller_, &OverviewController::addHardDiskRequested, this, [this] {
    auto* sheet = new AddDiskSheet(this);
    sheet->model()->setDisks(controller_->disksForAdding());
    connect(sheet, &AddDiskSheet::diskChosen, controller_, &OverviewController::addDisk);
    addDiskSheet_ = sheet;
    showSheet(sheet);
  });
  connect(controller_, &OverviewController::beepRequested, this, [] { QApplication::beep(); });
  status_->setText(controller_->statusText());
  rebuildRows();
}

void OverviewView::rebuildRows() {
  const std::vector<OverviewRow>& rows = controller_->rows();
  bool same = rows.size() == rowWidgets_.size();
  for (std::size_t i = 0; same && i < rows.size(); ++i)
    same = rowWidgets_[i]->path() == rows[i].path && rowWidgets_[i]->isDiskRow() == rows[i].disk;
  if (same) {
    // Only rows whose data changed are touched: restoring hundreds of folders rebuilds often.
    for (std::size_t i = 0; i < rows.size(); ++i) {
      if (shownRows_[i] == rows[i]) continue;
      rowWidgets_[i]->setRow(rows[i]);
      shownRows_[i] = rows[i];
    }
    return;
  }
  for (OverviewRowWidget* widget : rowWidgets_) widget->deleteLater();
  rowWidgets_.clear();
  shownRows_ = rows;
  for (const OverviewRow& row : rows) {
    OverviewRowWidget* widget = row.disk
                                    ? static_cast<OverviewRowWidget*>(new DiskRowWidget(row))
                                    : static_cast<OverviewRowWidget*>(new FolderRowWidget(row));
    connect(widget, &OverviewRowWidget::primaryClicked, controller_,
            &OverviewController::primaryAction);
    connect(widget, &OverviewRowWidget::favoriteClicked, controller_,
            &OverviewController::toggleFavorite);
    connect(widget, &OverviewRowWidget::menuRequested, this,
            [this](const std::string& path, const QPoint& at) {
              QMenu* menu = createRowMenu(path);
              menu->setAttribute(Qt::WA_DeleteOnClose);
              menu->popup(at);
            });
    rowsLayout_->insertWidget(rowsLayout_->count() - 1, widget);
    rowWidgets_.push_back(widget);
  }
}

OverviewRowWidget* OverviewView::rowWidget(const std::string& path) const {
  for (OverviewRowWidget* widget : rowWidgets_)
    if (widget->path() == path) return widget;
  return nullptr;
}

QMenu* OverviewView::createRowMenu(const std::string& path) {
  auto* menu = new QMenu(this);
  const OverviewRow* row = controller_->rowForPath(path);
  if (!row) return menu;
  const bool disk = row->disk;
  QAction* rescan = menu->addAction(QStringLiteral("Rescan"));
  rescan->setEnabled(!row->scanning);
  connect(rescan, &QAction::triggered, controller_, [this, path] { controller_->rescan(path); });
  menu->addSeparator();
  if (!disk) {
    std::string name(displayNameForPath(path));
    if (name.empty()) name = path;
    const QString verb = row->favorite ? QStringLiteral("Unstar") : QStringLiteral("Star");
    QAction* star = menu->addAction(QStringLiteral("%1 \u201C%2\u201D").arg(verb, qs(name)));
    connect(star, &QAction::triggered, controller_,
            [this, path] { controller_->toggleFavorite(path); });
  }
  QAction* show = menu->addAction(QStringLiteral("Show in Files"));
  connect(show, &QAction::triggered, this, [path] { revealInFileManager({path}); });
  QAction* info = menu->addAction(QStringLiteral("Get Info"));
  connect(info, &QAction::triggered, this, [this, path] { getInfo(path); });
  menu->addSeparator();
  QAction* forget = menu->addAction(QStringLiteral("Forget Scan Result"));
  forget->setEnabled(row->hasResult);
  connect(forget, &QAction::triggered, controller_,
          [this, path] { controller_->forgetResult(path); });
  QAction* remove = menu->addAction(QStringLiteral("Remove"));
  connect(remove, &QAction::triggered, this, [this, path] { confirmRemove(path); });
  return menu;
}

// --- Sheets -----------------------------------------------------------------------------------

void OverviewView::showSheet(QWidget* sheet) {
  sheet->setAttribute(Qt::WA_DeleteOnClose);
  sheet->setWindowModality(Qt::WindowModal);
  sheet_ = sheet;
  if (auto* dialog = qobject_cast<QDialog*>(sheet)) {
    dialog->open();
  } else {
    sheet->show();
  }
}

void OverviewView::showAlert(const QString& message, const QString& informativeText) {
  QMessageBox* box = makeAlert(this, QMessageBox::Warning, message, informativeText);
  box->addButton(QMessageBox::Ok);
  showSheet(box);
}

void OverviewView::showChangedFolderChoice(const std::string& path) {
  QMessageBox* box = makeAlert(this, QMessageBox::Warning, QString::fromUtf8(kChangedFolderMessage),
                               QString::fromUtf8(kChangedFolderInformativeText));
  QPushButton* rescan = box->addButton(QStringLiteral("Rescan"), QMessageBox::AcceptRole);
  QPushButton* view = box->addButton(QStringLiteral("View Saved Result"), QMessageBox::ActionRole);
  box->addButton(QMessageBox::Cancel);
  box->setDefaultButton(rescan);
  connect(box, &QMessageBox::finished, this, [this, box, rescan, view, path] {
    if (box->clickedButton() == rescan) controller_->rescan(path);
    if (box->clickedButton() == view) controller_->viewSavedResult(path);
  });
  showSheet(box);
}

void OverviewView::confirmRemove(const std::string& path) {
  QMessageBox* box = makeAlert(this, QMessageBox::Question,
                               QStringLiteral("Are you sure you want to remove %1?")
                                   .arg(qs(controller_->displayName(path))));
  QPushButton* yes = box->addButton(QStringLiteral("Yes"), QMessageBox::YesRole);
  box->addButton(QMessageBox::Cancel);
  box->setDefaultButton(yes);
  connect(box, &QMessageBox::finished, this, [this, box, yes, path] {
    if (box->clickedButton() == yes) controller_->removeLocation(path);
  });
  showSheet(box);
}

void OverviewView::getInfo(const std::string& path) {
  QPointer<OverviewView> self(this);
  showItemProperties(path, [self](bool shown) {
    if (!self || shown) return;
    self->showAlert(
        QStringLiteral("Unable to Show Info"),
        QStringLiteral("The file manager could not display information for this item."));
  });
}

void OverviewView::scanFolder() {
  auto* dialog = new QFileDialog(this);
  dialog->setOption(QFileDialog::DontUseNativeDialog);
  dialog->setOption(QFileDialog::ShowDirsOnly);
  dialog->setFileMode(QFileDialog::Directory);
  dialog->setAcceptMode(QFileDialog::AcceptOpen);
  dialog->setLabelText(QFileDialog::Accept, QStringLiteral("Add"));
  dialog->setWindowTitle(QStringLiteral("Scan Folder"));
  if (auto* grid = qobject_cast<QGridLayout*>(dialog->layout())) {
    auto* message = new QLabel(
        QStringLiteral("Choose a folder to add. Scanning starts when you click its Scan button."),
        dialog);
    grid->addWidget(message, grid->rowCount(), 0, 1, grid->columnCount());
  }
  connect(dialog, &QFileDialog::accepted, this, [this, dialog] {
    const QList<QUrl> urls = dialog->selectedUrls();
    if (urls.isEmpty()) return;
    const std::vector<std::string> paths = pathsFromUriList(urls.front().toEncoded());
    if (!paths.empty()) controller_->addFolder(paths.front());
  });
  showSheet(dialog);
}

void OverviewView::addHardDisk() {
  if (addDiskSheet_) {
    addDiskSheet_->raise();
    addDiskSheet_->activateWindow();
    return;
  }
  controller_->addHardDisk();
}

void OverviewView::showUnlockSheet(const std::string& diskPath) {
  (void)diskPath;
  auto* sheet = new UnlockDiskSheet(this);
  unlockSheet_ = sheet;
  connect(sheet->dropTarget(), &DiskDropTarget::pathDropped, controller_,
          &OverviewController::acceptDroppedVolume);
  connect(sheet, &QDialog::rejected, controller_, &OverviewController::cancelUnlock);
  showSheet(sheet);
}

// --- Drops ------------------------------------------------------------------------------------

void OverviewView::dragEnterEvent(QDragEnterEvent* event) {
  if (event->mimeData()->hasFormat(QString::fromLatin1(kUriList))) event->acceptProposedAction();
}

void OverviewView::dropEvent(QDropEvent* event) {
  if (dropUriList(event->mimeData()->data(QString::fromLatin1(kUriList))))
    event->acceptProposedAction();
}

bool OverviewView::dropUriList(const QByteArray& uriList) {
  const std::vector<std::string> paths = pathsFromUriList(uriList);
  if (paths.empty()) {
    QApplication::beep();
    return false;
  }
  controller_->scanDroppedURL(paths.front());
  return true;
}

}  // namespace tw
