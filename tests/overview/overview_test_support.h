// A private world for overview tests: temporary HOME and XDG folders with the settings file there,
// the process's one QApplication, a controller with an injected disk list, and event-loop waits.
#pragma once

#include <QString>
#include <QStringList>
#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "overview/overview_controller.h"
#include "support/temp_tree.h"

class QApplication;

namespace tw {

// Reaches the controller's scanner callbacks, so tests can send progress and stale completions.
struct OverviewControllerTestAccess {
  static void progress(OverviewController& c, const std::string& path, double fraction);
  static void staleCompletion(OverviewController& c, const std::string& path, ScanNodeRef root);
};

namespace test {

QApplication& application();

class OverviewEnvironment {
 public:
  OverviewEnvironment();
  ~OverviewEnvironment();
  OverviewEnvironment(const OverviewEnvironment&) = delete;
  OverviewEnvironment& operator=(const OverviewEnvironment&) = delete;

  TempTree tree;  // "home" and "data" live in it; tests add their folders beside them

 private:
  std::string saved_[4];
  bool had_[4] = {};
};

// What the handlers and signals of one controller reported.
struct Recorder {
  int began = 0;
  std::vector<bool> ended;
  std::vector<ScanNodeRef> completed, shown, forgotten;
  std::vector<std::string> removeRequests;
  std::optional<Error> removeError;  // what the remove handler answers
  QStringList statuses;
  std::vector<std::pair<QString, QString>> alerts;
  std::vector<std::string> changedChoices, unlockRequests, revealed;
  int beeps = 0, addDiskSheets = 0;
  // While true, walks wait before they start (set it before scanning, clear it to let them run).
  std::shared_ptr<std::atomic<bool>> holdWalks = std::make_shared<std::atomic<bool>>(false);
  // When set before the controller is made, background work (freeing trees) waits here.
  bool keepBackgroundWork = false;
  std::vector<std::function<void()>> backgroundWork;
};

// A controller over `disks` whose scanners use the system layout on temporary folders, with every
// handler and signal reported to `recorder`.
std::unique_ptr<OverviewController> makeController(
    Recorder& recorder, std::vector<OverviewDisk> disks = {},
    std::function<bool(const std::string&)> access = {});

// Runs the event loop until `done` answers true; false when 20 s pass first.
bool waitUntil(const std::function<bool()>& done);

}  // namespace test
}  // namespace tw
