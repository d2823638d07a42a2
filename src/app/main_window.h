// The single main window: 980 × 650 with a minimum of 760 × 500, titled "Tarnwell", centred on
// its screen; closing it quits the application. It hosts two screens: the Disks and Folders
// overview (an empty page until the overview widget is installed) and the scan
// browser, one at a time. While scans run, the title carries their averaged progress.
#pragma once

#include <QMainWindow>
#include <QPointer>
#include <functional>
#include <optional>

#include "app/menus.h"

class QStackedWidget;

namespace tw {

// Sizes in device-independent pixels (the macOS points of the original layout).
inline constexpr int kMainWindowWidth = 980;
inline constexpr int kMainWindowHeight = 650;
inline constexpr int kMainWindowMinimumWidth = 760;
inline constexpr int kMainWindowMinimumHeight = 500;

// The browser's slots the Go and Action items reach, by name; an item whose slot the browser
// lacks stays disabled. The browser may also emit showOverviewRequested() to go back.
inline constexpr const char* kBrowserBackSlot = "navigateBack()";
inline constexpr const char* kBrowserForwardSlot = "navigateForward()";
inline constexpr const char* kBrowserParentSlot = "navigateToParent()";
inline constexpr const char* kBrowserShowInFilesSlot = "showCurrentFolderInFiles()";
inline constexpr const char* kBrowserTerminalSlot = "openCurrentFolderInTerminal()";
inline constexpr const char* kBrowserCollectSlot = "collectSelectedItem()";
inline constexpr const char* kBrowserRemoveAllCollectedSlot = "removeAllCollectedItems()";
inline constexpr const char* kBrowserShowOverviewSignal = "showOverviewRequested()";
// When the browser has them, these invokables say whether Back, Forward and Enclosing Folder can
// act, and this signal says the answers may have changed.
inline constexpr const char* kBrowserCanGoBackQuery = "canGoBack()";
inline constexpr const char* kBrowserCanGoForwardQuery = "canGoForward()";
inline constexpr const char* kBrowserCanGoToParentQuery = "canGoToParent()";
inline constexpr const char* kBrowserNavigationChangedSignal = "navigationChanged()";
// The same for the Delete Queue's items: a selected row to queue, a queue to empty.
inline constexpr const char* kBrowserCanCollectQuery = "canCollectSelectedItem()";
inline constexpr const char* kBrowserHasCollectedQuery = "hasCollectedItems()";
inline constexpr const char* kBrowserCollectorChangedSignal = "collectorChanged()";

class MainWindow : public QMainWindow {
  Q_OBJECT
 public:
  explicit MainWindow(QWidget* parent = nullptr);

  MainMenus& menus() { return menus_; }
  // Installs the menus and connects the window's own items (screens, Scan Folder…).
  void setMenus(const MainMenus& menus);

  // Moves the window to the middle of its screen's available area.
  void centreOnScreen();

  // Screens. The overview widget is installed once and owned by the window; until then the home
  // view stands in for it. The browser is owned while it shows and deleted when it is replaced
  // or the overview comes back.
  void setOverviewWidget(QWidget* overview);
  QWidget* overviewWidget() const;
  void showBrowser(QWidget* browser);
  QWidget* browserWidget() const { return browser_; }
  bool isShowingOverview() const;
  // A window-modal dialog (a sheet) is up on this window.
  bool hasSheet() const;

  // "Scan Folder…" in File and Action: enabled once a handler is installed; choosing it shows the
  // overview first, then calls the handler (the overview's add-folder operation).
  void setScanFolderHandler(std::function<void()> handler);

  // The title: "Tarnwell — 42%" while scans run (`fraction` of 1), plain "Tarnwell" otherwise.
  void setScanProgress(std::optional<double> fraction);

 public slots:
  // Shows the overview and drops the browser.
  void showOverview();

 signals:
  void closed();
  void screenChanged();

 protected:
  void closeEvent(QCloseEvent* event) override;
  void changeEvent(QEvent* event) override;

 private slots:
  // Enables each browser item that the browser can act on now.
  void refreshBrowserItemStates();

 private:
  void dropBrowser();
  void updateBrowserItems();

  QStackedWidget* screens_;
  QWidget* placeholder_;  // until the overview is installed
  QPointer<QWidget> overview_;
  QPointer<QWidget> browser_;
  MainMenus menus_;
  std::function<void()> scanFolder_;
};

// The window title for a scan progress fraction, or the plain title without one.
QString mainWindowTitle(std::optional<double> fraction);

}  // namespace tw
