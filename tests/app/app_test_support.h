// A private world for one application test: temporary HOME, XDG_DATA_HOME, XDG_CONFIG_HOME and
// XDG_RUNTIME_DIR, the settings file redirected there, and the one QApplication of the process.
#pragma once

#include <QProcessEnvironment>
#include <QString>
#include <string>

#include "support/temp_tree.h"

class QApplication;

namespace tw::test {

// The QApplication every widget test shares (offscreen under ctest).
QApplication& application();

class AppEnvironment {
 public:
  AppEnvironment();
  ~AppEnvironment();
  AppEnvironment(const AppEnvironment&) = delete;
  AppEnvironment& operator=(const AppEnvironment&) = delete;

  const std::string& home() const { return home_; }
  const std::string& dataHome() const { return data_; }
  const std::string& configHome() const { return config_; }
  const std::string& runtimeDir() const { return runtime_; }
  std::string libraryFolder() const { return data_ + "/Tarnwell"; }
  std::string settingsFile() const { return config_ + "/Tarnwell/Tarnwell.conf"; }

  // The environment for a child process: this world's folders, offscreen, events reported.
  QProcessEnvironment processEnvironment() const;

 private:
  TempTree tree_;
  std::string home_, data_, config_, runtime_;
  std::string saved_[4];
  bool had_[4] = {};
};

// The built tarnwell executable.
QString tarnwellBinary();

}  // namespace tw::test
