#include "app/main_window.h"

#include <QAction>
#include <QCloseEvent>
#include <QScreen>

#include "app/home_view.h"

namespace tw {

MainWindow::MainWindow(QWidget* parent) : QMainWindow(parent), home_(new HomeView(this)) {
  setObjectName(QStringLiteral("mainWindow"));
  setWindowTitle(QStringLiteral("Tarnwell"));
  setMinimumSize(kMainWindowMinimumWidth, kMainWindowMinimumHeight);
  resize(kMainWindowWidth, kMainWindowHeight);
  setCentralWidget(home_);
}

void MainWindow::centreOnScreen() {
  const QScreen* screen = this->screen();
  if (!screen) return;
  QRect frame = frameGeometry();
  frame.moveCenter(screen->availableGeometry().center());
  move(frame.topLeft());
}

void MainWindow::showHome() {
  if (centralWidget() != home_) {
    takeCentralWidget();
    setCentralWidget(home_);
  }
  home_->show();
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
