// A private desktop world for one widget test: temporary HOME, XDG_DATA_HOME, XDG_CONFIG_HOME and
// XDG_RUNTIME_DIR inside `tree`, the settings file redirected there, and the process's one
// QApplication. The variables the test program had come back when the world goes.
#pragma once

#include <QProcessEnvironment>
#include <optional>
#include <string>

#include "support/temp_tree.h"

class QApplication;

namespace tw::test {

// The QApplication every widget test of the program shares (offscreen under ctest).
QApplication& application();

class DesktopEnvironment {
 public:
  DesktopEnvironment();
  ~DesktopEnvironment();
  DesktopEnvironment(const DesktopEnvironment&) = delete;
  DesktopEnvironment& operator=(const DesktopEnvironment&) = delete;

  TempTree tree;  // "home" and "run" live in it; tests add their folders beside them
  std::string home() const { return tree.path("home"); }
  std::string runtimeDir() const { return tree.path("run"); }
  std::string libraryFolder() const { return tree.path("home/.local/share/Tarnwell"); }

  // The environment for a child process: this world's folders, offscreen, events reported.
  QProcessEnvironment processEnvironment() const;

 private:
  std::optional<std::string> saved_[4];
};

}  // namespace tw::test
