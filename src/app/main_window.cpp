#include "app/main_window.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QDialog>
#include <QScreen>
#include <QStackedWidget>
#include <cmath>

namespace tw {

namespace {

// The Go and Action items that act on the browser, with the slot each one calls.
struct BrowserItem {
  QAction* MainMenus::*action;
  const char* slot;
  const char* query;  // whether the item can act now; null: whenever the slot exists
};
constexpr BrowserItem kBrowserItems[] = {
    {&MainMenus::back, kBrowserBackSlot, kBrowserCanGoBackQuery},
    {&MainMenus::forward, kBrowserForwardSlot, kBrowserCanGoForwardQuery},
    {&MainMenus::enclosingFolder, kBrowserParentSlot, kBrowserCanGoToParentQuery},
    {&MainMenus::showCurrentFolderInFiles, kBrowserShowInFilesSlot, nullptr},
    {&MainMenus::openCurrentFolderInTerminal, kBrowserTerminalSlot, nullptr},
    {&MainMenus::collectSelectedItem, kBrowserCollectSlot, kBrowserCanCollectQuery},
    {&MainMenus::removeAllCollectedItems, kBrowserRemoveAllCollectedSlot,
     kBrowserHasCollectedQuery},
};

bool hasMethod(const QObject* object, const char* signature) {
  return object->metaObject()->indexOfMethod(signature) >= 0;
}

}  // namespace

QString mainWindowTitle(std::optional<double> fraction) {
  if (!fraction) return QStringLiteral("Tarnwell");
  const double clamped = std::isfinite(*fraction) ? std::clamp(*fraction, 0.0, 1.0) : 0.0;
  // Rounded down: a scan that is nearly done never reads 100 % before its result exists.
  const int percent = static_cast<int>(std::floor(clamped * 100.0 + 1e-9));
  return QStringLiteral("Tarnwell — %1%").arg(percent);
}

MainWindow::MainWindow(QWidget* parent)
    : QMainWindow(parent), screens_(new QStackedWidget(this)), placeholder_(new QWidget(screens_)) {
  setObjectName(QStringLiteral("mainWindow"));
  setWindowTitle(mainWindowTitle(std::nullopt));
  setMinimumSize(kMainWindowMinimumWidth, kMainWindowMinimumHeight);
  resize(kMainWindowWidth, kMainWindowHeight);
  screens_->setObjectName(QStringLiteral("screens"));
  screens_->addWidget(placeholder_);
  setCentralWidget(screens_);
}

void MainWindow::setMenus(const MainMenus& menus) {
  menus_ = menus;
  if (menus_.goToOverview) {
    connect(menus_.goToOverview, &QAction::triggered, this, &MainWindow::showOverview);
  }
  for (QAction* item : {menus_.scanFolder, menus_.actionScanFolder}) {
    if (!item) continue;
    connect(item, &QAction::triggered, this, [this] {
      if (!scanFolder_) return;
      showOverview();
      scanFolder_();
    });
    item->setEnabled(static_cast<bool>(scanFolder_));
  }
  updateBrowserItems();
}

void MainWindow::centreOnScreen() {
  const QScreen* screen = this->screen();
  if (!screen) return;
  QRect frame = frameGeometry();
  frame.moveCenter(screen->availableGeometry().center());
  move(frame.topLeft());
}

void MainWindow::setOverviewWidget(QWidget* overview) {
  if (!overview || overview_) return;
  const bool wasShowing = isShowingOverview();
  overview_ = overview;
  screens_->addWidget(overview);
  if (wasShowing) screens_->setCurrentWidget(overview);
  // The placeholder has done its work.
  screens_->removeWidget(placeholder_);
  placeholder_->deleteLater();
  placeholder_ = nullptr;
}

QWidget* MainWindow::overviewWidget() const {
  return overview_ ? overview_.data() : placeholder_;
}

void MainWindow::showOverview() {
  QWidget* overview = overviewWidget();
  if (overview) screens_->setCurrentWidget(overview);
  const bool hadBrowser = browser_;
  dropBrowser();
  if (hadBrowser) emit screenChanged();
}

void MainWindow::showBrowser(QWidget* browser) {
  if (!browser || browser == browser_) return;
  dropBrowser();
  browser_ = browser;
  screens_->addWidget(browser);
  screens_->setCurrentWidget(browser);
  if (hasMethod(browser, kBrowserShowOverviewSignal)) {
    connect(browser, SIGNAL(showOverviewRequested()), this, SLOT(showOverview()),
            Qt::QueuedConnection);
  }
  if (hasMethod(browser, kBrowserNavigationChangedSignal)) {
    connect(browser, SIGNAL(navigationChanged()), this, SLOT(refreshBrowserItemStates()));
  }
  if (hasMethod(browser, kBrowserCollectorChangedSignal)) {
    connect(browser, SIGNAL(collectorChanged()), this, SLOT(refreshBrowserItemStates()));
  }
  updateBrowserItems();
  emit screenChanged();
}

void MainWindow::dropBrowser() {
  if (!browser_) return;
  QWidget* browser = browser_;
  browser_ = nullptr;
  screens_->removeWidget(browser);
  browser->hide();
  // Later: the browser may be the sender of what brought us here.
  browser->deleteLater();
  updateBrowserItems();
}

void MainWindow::updateBrowserItems() {
  for (const BrowserItem& item : kBrowserItems) {
    QAction* action = menus_.*item.action;
    if (!action) continue;
    action->disconnect(this);
    if (!browser_ || !hasMethod(browser_, item.slot)) continue;
    const QByteArray name = QByteArray(item.slot).chopped(2);  // without "()"
    connect(action, &QAction::triggered, this, [this, name] {
      if (browser_) QMetaObject::invokeMethod(browser_, name.constData());
    });
  }
  if (menus_.goToOverview) menus_.goToOverview->setEnabled(static_cast<bool>(browser_));
  refreshBrowserItemStates();
}

void MainWindow::refreshBrowserItemStates() {
  for (const BrowserItem& item : kBrowserItems) {
    QAction* action = menus_.*item.action;
    if (!action) continue;
    bool enabled = browser_ && hasMethod(browser_, item.slot);
    if (enabled && item.query && hasMethod(browser_, item.query)) {
      const QByteArray query = QByteArray(item.query).chopped(2);
      QMetaObject::invokeMethod(browser_, query.constData(), Q_RETURN_ARG(bool, enabled));
    }
    action->setEnabled(enabled);
  }
}

bool MainWindow::isShowingOverview() const {
  return !browser_ && screens_->currentWidget() == overviewWidget();
}

bool MainWindow::hasSheet() const {
  for (const QDialog* dialog : findChildren<QDialog*>(Qt::FindDirectChildrenOnly)) {
    if (dialog->isVisible() && dialog->windowModality() != Qt::NonModal) return true;
  }
  // A modal window opened elsewhere on top of this one counts too.
  const QWidget* modal = QApplication::activeModalWidget();
  return modal && modal != this && modal->isVisible() && modal->parentWidget() &&
         modal->parentWidget()->window() == this;
}

void MainWindow::setScanFolderHandler(std::function<void()> handler) {
  scanFolder_ = std::move(handler);
  for (QAction* item : {menus_.scanFolder, menus_.actionScanFolder}) {
    if (item) item->setEnabled(static_cast<bool>(scanFolder_));
  }
}

void MainWindow::setScanProgress(std::optional<double> fraction) {
  const QString title = mainWindowTitle(fraction);
  if (windowTitle() != title) setWindowTitle(title);
}

void MainWindow::closeEvent(QCloseEvent* event) {
  QMainWindow::closeEvent(event);
  if (event->isAccepted()) emit closed();
}

void MainWindow::changeEvent(QEvent* event) {
  QMainWindow::changeEvent(event);
  if (event->type() == QEvent::WindowStateChange && menus_.fullScreen) {
    menus_.fullScreen->setText(
        QString::fromUtf8(isFullScreen() ? kExitFullScreenText : kEnterFullScreenText));
  }
}

}  // namespace tw
