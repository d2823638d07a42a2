#include "app/scan_completion_prompts.h"

#include <QMessageBox>
#include <QPushButton>
#include <QTimer>

#include "app/main_window.h"
#include "platform/paths.h"
#include "platform/volume_layout.h"
#include "ui/alert.h"
#include "ui/placeholder.h"

namespace tw {

std::string scanResultDisplayName(const ScanNode& root, const std::string& rootDiskName) {
  const std::string_view name = root.name();
  if (!name.empty() && name != "/") return std::string(name);
  const std::string path = root.path();
  const std::string_view last = displayNameForPath(path);
  if (!last.empty() && last != "/") return std::string(last);
  return rootDiskName;
}

std::string rootDiskName() {
  // The layout names "/" by its label, else "Root Disk".
  static const std::shared_ptr<VolumeLayout> layout = makeLinuxVolumeLayout();
  if (std::optional<VolumeInfo> volume = layout->volumeForPath("/");
      volume && !volume->name.empty())
    return volume->name;
  return kRootDiskFallbackName;
}

ScanCompletionPrompts::ScanCompletionPrompts(MainWindow* window, QObject* parent)
    : QObject(parent), window_(window), timer_(new QTimer(this)), rootDiskName_(rootDiskName) {
  timer_->setSingleShot(true);
  timer_->setInterval(kScanCompletionPromptDelayMs);
  connect(timer_, &QTimer::timeout, this, [this] {
    scheduled_ = false;
    presentNext();
  });
}

void ScanCompletionPrompts::setViewHandler(std::function<void(const ScanNodeRef&)> view) {
  view_ = std::move(view);
  if (yes_) yes_->setEnabled(bool(view_));
}

void ScanCompletionPrompts::setRootDiskNameProvider(std::function<std::string()> provider) {
  rootDiskName_ = std::move(provider);
}

void ScanCompletionPrompts::offer(ScanNodeRef root) {
  if (!root) return;
  queue_.push_back(std::move(root));
  scheduleNext();
}

void ScanCompletionPrompts::scheduleNext() {
  if (presenting_ || scheduled_ || queue_.empty()) return;
  scheduled_ = true;
  timer_->start();
}

void ScanCompletionPrompts::presentNext() {
  if (presenting_ || queue_.empty() || !window_) return;
  if (!window_->isShowingOverview() || window_->hasSheet()) {
    queue_.clear();
    return;
  }
  ScanNodeRef root = std::move(queue_.front());
  queue_.pop_front();
  presenting_ = true;

  const std::string name = scanResultDisplayName(*root, rootDiskName_ ? rootDiskName_() : "");
  const std::string text = fillPlaceholder(kScanCompletionPromptFormat, name);
  const QString message = QString::fromUtf8(text.data(), qsizetype(text.size()));

  QMessageBox* box = makeAlert(window_, QMessageBox::Question, message);
  box->setObjectName(QStringLiteral("scanCompletionPrompt"));
  QPushButton* yes =
      box->addButton(QString::fromUtf8(kScanCompletionYesButton), QMessageBox::AcceptRole);
  yes->setObjectName(QStringLiteral("scanCompletionYesButton"));
  QPushButton* cancel =
      box->addButton(QString::fromUtf8(kScanCompletionCancelButton), QMessageBox::RejectRole);
  cancel->setObjectName(QStringLiteral("scanCompletionCancelButton"));
  box->setEscapeButton(cancel);
  // No browser to open yet: the choice is not offered rather than pretended.
  yes->setEnabled(bool(view_));
  box->setDefaultButton(view_ ? yes : cancel);
  connect(box, &QMessageBox::finished, this,
          [this, box, yes, root] { finished(root, box->clickedButton() == yes); });
  prompt_ = box;
  yes_ = yes;
  box->open();
}

void ScanCompletionPrompts::finished(const ScanNodeRef& root, bool accepted) {
  presenting_ = false;
  prompt_ = nullptr;
  if (accepted && view_) view_(root);
  scheduleNext();
}

}  // namespace tw
