#include "app/scan_session.h"

#include <QMessageBox>
#include <QPointer>
#include <QPushButton>

#include "app/main_window.h"
#include "app/scan_completion_prompts.h"
#include "ui/alert.h"
#include "ui/qt_color.h"

namespace tw {

namespace {

QString text(const std::string& utf8) {
  return QString::fromUtf8(utf8.data(), static_cast<qsizetype>(utf8.size()));
}

}  // namespace

ScanSession::ScanSession(ScanLibrary& library, MainWindow* window,
                         std::unique_ptr<LauncherProgress> launcher, QObject* parent)
    : QObject(parent),
      library_(library),
      window_(window),
      launcher_(launcher ? std::move(launcher) : std::make_unique<LauncherProgress>()),
      prompts_(new ScanCompletionPrompts(window, this)) {
  ScanLibrary::Handlers handlers;
  handlers.restoreCachedScanRoots = [this](const std::vector<ScanNodeRef>& roots) {
    deliverRestoredRoots(roots);
  };
  handlers.forgetCachedScanRoot = [this](const ScanNodeRef& root) {
    if (forgetHandler_) forgetHandler_(root);
  };
  handlers.showAlert = [this](const LibraryAlert& alert) { showAlert(alert); };
  library_.setHandlers(std::move(handlers));
}

ScanSession::~ScanSession() {
  library_.setHandlers({});
  launcher_->clear();
}

void ScanSession::setBrowserFactory(BrowserFactory factory) {
  browserFactory_ = std::move(factory);
  if (browserFactory_) {
    prompts_->setViewHandler([this](const ScanNodeRef& root) { showBrowserWithRoot(root); });
  } else {
    prompts_->setViewHandler({});
  }
}

void ScanSession::setRestoreHandler(RootsHandler handler) {
  restoreHandler_ = std::move(handler);
  if (restoreHandler_ && !pendingRestoredRoots_.empty()) {
    std::vector<ScanNodeRef> roots = std::move(pendingRestoredRoots_);
    pendingRestoredRoots_.clear();
    restoreHandler_(roots);
  }
}

void ScanSession::setForgetCachedScanRootHandler(RootHandler handler) {
  forgetHandler_ = std::move(handler);
}

void ScanSession::deliverRestoredRoots(const std::vector<ScanNodeRef>& roots) {
  if (restoreHandler_) {
    restoreHandler_(roots);
  } else {
    // Nobody shows them yet: keep them for the overview.
    pendingRestoredRoots_.insert(pendingRestoredRoots_.end(), roots.begin(), roots.end());
  }
}

void ScanSession::beginPersistentScan() {
  library_.beginPersistentScan();
}

void ScanSession::endPersistentScanCompleted(bool completed) {
  library_.endPersistentScanCompleted(completed);
  clearScanProgress();
}

void ScanSession::acceptCompletedScan(const ScanNodeRef& root) {
  if (!root) return;
  library_.acceptCompletedScan(root);
  // While the browser or a sheet shows, the result is saved but not offered.
  if (window_ && window_->isShowingOverview() && !window_->hasSheet()) prompts_->offer(root);
}

bool ScanSession::showBrowserWithRoot(const ScanNodeRef& root) {
  if (!root || !browserFactory_ || !window_) return false;
  library_.setCachedRoot(root);
  QWidget* browser = browserFactory_(root);
  if (!browser) return false;
  window_->showBrowser(browser);
  return true;
}

void ScanSession::showOverview() {
  if (window_) window_->showOverview();
}

void ScanSession::showScanProgress(double fraction) {
  if (window_) window_->setScanProgress(fraction);
  launcher_->showProgress(fraction);
}

void ScanSession::clearScanProgress() {
  if (window_) window_->setScanProgress(std::nullopt);
  launcher_->clear();
}

void ScanSession::forgetScanResult(const ScanNodeRef& root) {
  if (!root || !window_) return;
  QMessageBox* box =
      makeAlert(window_, QMessageBox::Warning, QString::fromUtf8(kForgetPromptMessage),
                QString::fromUtf8(kForgetPromptInformativeText));
  box->setObjectName(QStringLiteral("forgetPrompt"));
  // Delete, Forget, Cancel from left to right whatever the desktop's button order: both choices
  // are actions, and Delete is marked destructive by its colour.
  QPushButton* remove =
      box->addButton(QString::fromUtf8(kForgetDeleteButton), QMessageBox::ActionRole);
  remove->setObjectName(QStringLiteral("forgetDeleteButton"));
  QPalette destructive = remove->palette();
  destructive.setColor(QPalette::ButtonText, toQColor(palette::kSystemRed));
  remove->setPalette(destructive);
  remove->setAccessibleDescription(QStringLiteral("Deletes the saved scan database"));
  QPushButton* forget =
      box->addButton(QString::fromUtf8(kForgetForgetButton), QMessageBox::ActionRole);
  forget->setObjectName(QStringLiteral("forgetForgetButton"));
  QPushButton* cancel =
      box->addButton(QString::fromUtf8(kForgetCancelButton), QMessageBox::RejectRole);
  cancel->setObjectName(QStringLiteral("forgetCancelButton"));
  box->setEscapeButton(cancel);
  box->setDefaultButton(forget);
  connect(box, &QMessageBox::finished, this, [this, box, remove, forget, root] {
    const QAbstractButton* clicked = box->clickedButton();
    const ForgetChoice choice = clicked == remove   ? ForgetChoice::kDelete
                                : clicked == forget ? ForgetChoice::kForget
                                                    : ForgetChoice::kCancel;
    QPointer<ScanSession> self(this);
    library_.forgetScanResult(root, choice, [self](std::optional<LibraryAlert> alert) {
      if (self && alert) self->showAlert(*alert);
    });
  });
  box->open();
}

QMessageBox* ScanSession::forgetPrompt() const {
  if (!window_) return nullptr;
  for (QMessageBox* box : window_->findChildren<QMessageBox*>(QStringLiteral("forgetPrompt"),
                                                              Qt::FindDirectChildrenOnly)) {
    if (box->isVisible()) return box;
  }
  return nullptr;
}

void ScanSession::removeAllScansForPath(const std::string& path,
                                        std::function<void(std::optional<Error>)> completion) {
  library_.removeAllScansForPath(path, std::move(completion));
}

void ScanSession::loadCachedScans() {
  QPointer<ScanSession> self(this);
  library_.loadCachedScanAsynchronously([self](const RestoreOutcome&) {
    if (self) emit self->restoreHandedOver();
  });
}

void ScanSession::showAlert(const LibraryAlert& alert) {
  if (!window_) return;
  QMessageBox* box =
      makeAlert(window_, QMessageBox::Warning, text(alert.message), text(alert.informativeText));
  box->setObjectName(QStringLiteral("libraryAlert"));
  QPushButton* ok = box->addButton(QStringLiteral("OK"), QMessageBox::AcceptRole);
  box->setDefaultButton(ok);
  box->setEscapeButton(ok);
  box->open();
}

}  // namespace tw
