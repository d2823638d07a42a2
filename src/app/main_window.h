// The single main window: 980 × 650 with a minimum of 760 × 500, titled "Tarnwell", centred on
// its screen. Its central area shows the home screen; closing it quits the application.
#pragma once

#include <QMainWindow>

#include "app/menus.h"

namespace tw {

class HomeView;

// Sizes in device-independent pixels (the macOS points of the original layout).
inline constexpr int kMainWindowWidth = 980;
inline constexpr int kMainWindowHeight = 650;
inline constexpr int kMainWindowMinimumWidth = 760;
inline constexpr int kMainWindowMinimumHeight = 500;

class MainWindow : public QMainWindow {
  Q_OBJECT
 public:
  explicit MainWindow(QWidget* parent = nullptr);

  HomeView* homeView() const { return home_; }
  MainMenus& menus() { return menus_; }
  void setMenus(const MainMenus& menus) { menus_ = menus; }

  // Moves the window to the middle of its screen's available area.
  void centreOnScreen();

 public slots:
  // Shows the home screen in the central area.
  void showHome();

 signals:
  void closed();

 protected:
  void closeEvent(QCloseEvent* event) override;
  void changeEvent(QEvent* event) override;

 private:
  HomeView* home_;
  MainMenus menus_;
};

}  // namespace tw
