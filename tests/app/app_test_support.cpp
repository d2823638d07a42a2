#include "app_test_support.h"

#include <sys/stat.h>

#include <QApplication>
#include <QSettings>
#include <cstdlib>

namespace tw::test {

namespace {
const char* const kVariables[4] = {"HOME", "XDG_DATA_HOME", "XDG_CONFIG_HOME", "XDG_RUNTIME_DIR"};
}

QApplication& application() {
  static int argc = 1;
  static char name[] = "app_tests";
  static char* argv[] = {name, nullptr};
  static QApplication* app = new QApplication(argc, argv);
  return *app;
}

AppEnvironment::AppEnvironment() {
  home_ = tree_.folder("home");
  data_ = tree_.folder("home/.local/share");
  config_ = tree_.folder("home/.config");
  runtime_ = tree_.folder("run");
  ::chmod(runtime_.c_str(), 0700);  // Qt refuses a runtime folder others can enter
  const std::string values[4] = {home_, data_, config_, runtime_};
  for (int i = 0; i < 4; ++i) {
    if (const char* old = std::getenv(kVariables[i])) {
      had_[i] = true;
      saved_[i] = old;
    }
    ::setenv(kVariables[i], values[i].c_str(), 1);
  }
  application();
  // QSettings reads XDG_CONFIG_HOME once per process; point it at this world explicitly.
  QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope,
                     QString::fromStdString(config_));
  QSettings::setPath(QSettings::IniFormat, QSettings::UserScope, QString::fromStdString(config_));
}

AppEnvironment::~AppEnvironment() {
  for (int i = 0; i < 4; ++i) {
    if (had_[i]) {
      ::setenv(kVariables[i], saved_[i].c_str(), 1);
    } else {
      ::unsetenv(kVariables[i]);
    }
  }
}

QProcessEnvironment AppEnvironment::processEnvironment() const {
  QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
  env.insert(QStringLiteral("HOME"), QString::fromStdString(home_));
  env.insert(QStringLiteral("XDG_DATA_HOME"), QString::fromStdString(data_));
  env.insert(QStringLiteral("XDG_CONFIG_HOME"), QString::fromStdString(config_));
  env.insert(QStringLiteral("XDG_RUNTIME_DIR"), QString::fromStdString(runtime_));
  env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
  env.insert(QStringLiteral("TARNWELL_TEST_EVENTS"), QStringLiteral("1"));
  env.remove(QStringLiteral("XDG_ACTIVATION_TOKEN"));
  env.remove(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"));
  return env;
}

QString tarnwellBinary() {
  return QStringLiteral(TW_TARNWELL_BINARY);
}

}  // namespace tw::test
