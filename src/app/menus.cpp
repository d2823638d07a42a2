#include "app/menus.h"

#include <QAction>
#include <QMainWindow>
#include <QMenu>
#include <QMenuBar>

#include "app/application.h"
#include "app/edit_actions.h"

namespace tw {

namespace {

QAction* addItem(QMenu* menu, const QString& text, const QString& objectName,
                 const QList<QKeySequence>& keys = {}) {
  QAction* action = menu->addAction(text);
  action->setObjectName(objectName);
  action->setShortcuts(keys);
  return action;
}

// An item whose screen does not exist yet: shown, never triggered.
QAction* addUnavailableItem(QMenu* menu, const QString& text, const QString& objectName,
                            const QList<QKeySequence>& keys = {}) {
  QAction* action = addItem(menu, text, objectName, keys);
  action->setEnabled(false);
  return action;
}

}  // namespace

MainMenus buildMenus(QMainWindow* window, Application* app) {
  MainMenus m;
  QMenuBar* bar = window->menuBar();

  m.fileMenu = bar->addMenu(QStringLiteral("&File"));
  m.fileMenu->setObjectName(QStringLiteral("fileMenu"));
  m.scanFolder =
      addUnavailableItem(m.fileMenu, QStringLiteral("Scan Folder…"),
                         QStringLiteral("scanFolderAction"), {QKeySequence(Qt::CTRL | Qt::Key_O)});
  m.fileMenu->addSeparator();
  m.quit = addItem(m.fileMenu, QStringLiteral("Quit Tarnwell"), QStringLiteral("quitAction"),
                   {QKeySequence(Qt::CTRL | Qt::Key_Q)});
  m.quit->setMenuRole(QAction::QuitRole);
  QObject::connect(m.quit, &QAction::triggered, app, &Application::quit);

  m.editMenu = bar->addMenu(QStringLiteral("&Edit"));
  m.editMenu->setObjectName(QStringLiteral("editMenu"));
  m.editActions = new EditActions(window);
  m.editMenu->addAction(m.editActions->undo());
  m.editMenu->addAction(m.editActions->redo());
  m.editMenu->addSeparator();
  m.editMenu->addAction(m.editActions->cut());
  m.editMenu->addAction(m.editActions->copy());
  m.editMenu->addAction(m.editActions->paste());
  m.editMenu->addAction(m.editActions->selectAll());
  m.editMenu->addSeparator();
  m.settings = addItem(m.editMenu, QStringLiteral("Settings…"), QStringLiteral("settingsAction"),
                       {QKeySequence(Qt::CTRL | Qt::Key_Comma)});
  m.settings->setMenuRole(QAction::PreferencesRole);
  QObject::connect(m.settings, &QAction::triggered, app, &Application::showSettings);
  EditActions* editActions = m.editActions;
  QObject::connect(m.editMenu, &QMenu::aboutToShow, editActions, &EditActions::update);

  m.viewMenu = bar->addMenu(QStringLiteral("&View"));
  m.viewMenu->setObjectName(QStringLiteral("viewMenu"));
  m.fullScreen = addItem(m.viewMenu, QString::fromUtf8(kEnterFullScreenText),
                         QStringLiteral("fullScreenAction"), {QKeySequence(Qt::Key_F11)});
  QObject::connect(m.fullScreen, &QAction::triggered, window, [window] {
    if (window->isFullScreen()) {
      window->showNormal();
    } else {
      window->showFullScreen();
    }
  });

  m.actionMenu = bar->addMenu(QStringLiteral("&Action"));
  m.actionMenu->setObjectName(QStringLiteral("actionMenu"));
  m.actionScanFolder = addUnavailableItem(m.actionMenu, QStringLiteral("Scan Folder…"),
                                          QStringLiteral("actionScanFolderAction"));
  m.actionMenu->addSeparator();
  m.collectSelectedItem =
      addUnavailableItem(m.actionMenu, QStringLiteral("Add Selected Item to Delete Queue"),
                         QStringLiteral("collectSelectedItemAction"));
  m.removeAllCollectedItems =
      addUnavailableItem(m.actionMenu, QStringLiteral("Remove All Items from Delete Queue"),
                         QStringLiteral("removeAllCollectedItemsAction"));
  m.actionMenu->addSeparator();
  m.showCurrentFolderInFiles =
      addUnavailableItem(m.actionMenu, QStringLiteral("Show Current Folder in Files"),
                         QStringLiteral("showCurrentFolderInFilesAction"));
  m.openCurrentFolderInTerminal =
      addUnavailableItem(m.actionMenu, QStringLiteral("Open Current Folder in Terminal"),
                         QStringLiteral("openCurrentFolderInTerminalAction"));

  m.goMenu = bar->addMenu(QStringLiteral("&Go"));
  m.goMenu->setObjectName(QStringLiteral("goMenu"));
  // The window connects this item and the browser's items (MainWindow::setMenus): they act
  // only while the browser shows.
  m.goToOverview = addUnavailableItem(m.goMenu, QStringLiteral("Back to Disks and Folders"),
                                      QStringLiteral("goToOverviewAction"),
                                      {QKeySequence(Qt::CTRL | Qt::Key_1)});
  m.goMenu->addSeparator();
  m.back = addUnavailableItem(
      m.goMenu, QStringLiteral("Back"), QStringLiteral("backAction"),
      {QKeySequence(Qt::ALT | Qt::Key_Left), QKeySequence(Qt::CTRL | Qt::Key_BracketLeft)});
  m.forward = addUnavailableItem(
      m.goMenu, QStringLiteral("Forward"), QStringLiteral("forwardAction"),
      {QKeySequence(Qt::ALT | Qt::Key_Right), QKeySequence(Qt::CTRL | Qt::Key_BracketRight)});
  m.enclosingFolder = addUnavailableItem(m.goMenu, QStringLiteral("Enclosing Folder"),
                                         QStringLiteral("enclosingFolderAction"),
                                         {QKeySequence(Qt::ALT | Qt::Key_Up)});

  m.windowMenu = bar->addMenu(QStringLiteral("&Window"));
  m.windowMenu->setObjectName(QStringLiteral("windowMenu"));
  m.minimize = addItem(m.windowMenu, QStringLiteral("Minimize"), QStringLiteral("minimizeAction"),
                       {QKeySequence(Qt::CTRL | Qt::Key_M)});
  QObject::connect(m.minimize, &QAction::triggered, window, &QWidget::showMinimized);
  m.zoom = addItem(m.windowMenu, QStringLiteral("Zoom"), QStringLiteral("zoomAction"));
  QObject::connect(m.zoom, &QAction::triggered, window, [window] {
    if (window->isMaximized()) {
      window->showNormal();
    } else {
      window->showMaximized();
    }
  });

  m.helpMenu = bar->addMenu(QStringLiteral("&Help"));
  m.helpMenu->setObjectName(QStringLiteral("helpMenu"));
  m.help = addItem(m.helpMenu, QStringLiteral("Tarnwell Help"), QStringLiteral("helpAction"),
                   {QKeySequence(Qt::Key_F1)});
  QObject::connect(m.help, &QAction::triggered, app, &Application::showHelp);
  m.helpMenu->addSeparator();
  m.about = addItem(m.helpMenu, QStringLiteral("About Tarnwell"), QStringLiteral("aboutAction"));
  m.about->setMenuRole(QAction::AboutRole);
  QObject::connect(m.about, &QAction::triggered, app, &Application::showAbout);
  return m;
}

}  // namespace tw
