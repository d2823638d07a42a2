#include "support/desktop_environment.h"

#include <sys/stat.h>

#include <QApplication>
#include <QSettings>
#include <cstdlib>

namespace tw::test {

namespace {
const char* const kVariables[4] = {"HOME", "XDG_DATA_HOME", "XDG_CONFIG_HOME", "XDG_RUNTIME_DIR"};
const char* const kFolders[4] = {"home", "home/.local/share", "home/.config", "run"};
}  // namespace

QApplication& application() {
  static int argc = 1;
  static char name[] = "tarnwell_tests";
  static char* argv[] = {name, nullptr};
  static QApplication* app = new QApplication(argc, argv);
  return *app;
}

DesktopEnvironment::DesktopEnvironment() {
  for (int i = 0; i < 4; ++i) {
    const std::string folder = tree.folder(kFolders[i]);
    if (const char* old = std::getenv(kVariables[i])) saved_[i] = old;
    ::setenv(kVariables[i], folder.c_str(), 1);
  }
  ::chmod(runtimeDir().c_str(), 0700);  // Qt refuses a runtime folder others can enter
  application();
  // QSettings reads XDG_CONFIG_HOME once per process; point it at this world explicitly.
  const QString config = QString::fromStdString(tree.path(kFolders[2]));
  QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, config);
  QSettings::setPath(QSettings::IniFormat, QSettings::UserScope, config);
}

DesktopEnvironment::~DesktopEnvironment() {
  for (int i = 0; i < 4; ++i)
    saved_[i] ? ::setenv(kVariables[i], saved_[i]->c_str(), 1) : ::unsetenv(kVariables[i]);
}

QProcessEnvironment DesktopEnvironment::processEnvironment() const {
  QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
  for (int i = 0; i < 4; ++i)
    env.insert(QString::fromLatin1(kVariables[i]), QString::fromStdString(tree.path(kFolders[i])));
  env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
  env.insert(QStringLiteral("TARNWELL_TEST_EVENTS"), QStringLiteral("1"));
  env.remove(QStringLiteral("XDG_ACTIVATION_TOKEN"));
  env.remove(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"));
  return env;
}

}  // namespace tw::test
