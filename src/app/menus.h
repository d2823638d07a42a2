// The main window's menu bar: File, Edit, View, Action, Go, Window and Help, with the desktop's
// placement of the application items (Settings… in Edit, About in Help, Quit in File). An item
// that cannot act yet is present but disabled: "Scan Folder…" until the overview's add-folder
// operation is installed, the browser's Go and Action items (the Delete Queue's among them) while
// no browser shows.
#pragma once

#include <QString>

class QAction;
class QMainWindow;
class QMenu;

namespace tw {

class Application;
class EditActions;

struct MainMenus {
  QMenu* fileMenu = nullptr;
  QMenu* editMenu = nullptr;
  QMenu* viewMenu = nullptr;
  QMenu* actionMenu = nullptr;
  QMenu* goMenu = nullptr;
  QMenu* windowMenu = nullptr;
  QMenu* helpMenu = nullptr;
  EditActions* editActions = nullptr;

  QAction* scanFolder = nullptr;  // File
  QAction* quit = nullptr;
  QAction* settings = nullptr;          // Edit
  QAction* fullScreen = nullptr;        // View
  QAction* actionScanFolder = nullptr;  // Action
  QAction* collectSelectedItem = nullptr;
  QAction* removeAllCollectedItems = nullptr;
  QAction* showCurrentFolderInFiles = nullptr;
  QAction* openCurrentFolderInTerminal = nullptr;
  QAction* goToOverview = nullptr;  // Go
  QAction* back = nullptr;
  QAction* forward = nullptr;
  QAction* enclosingFolder = nullptr;
  QAction* minimize = nullptr;  // Window
  QAction* zoom = nullptr;
  QAction* help = nullptr;  // Help
  QAction* about = nullptr;
};

// Texts of the full-screen item in its two states.
inline constexpr const char* kEnterFullScreenText = "Enter Full Screen";
inline constexpr const char* kExitFullScreenText = "Exit Full Screen";

// Fills `window`'s menu bar and connects the items to `app`.
MainMenus buildMenus(QMainWindow* window, Application* app);

}  // namespace tw
