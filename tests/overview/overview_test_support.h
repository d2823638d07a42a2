// Overview test helpers: the shared desktop world, a controller with an injected disk list and
// every handler recorded, and event-loop waits.
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
#include "support/desktop_environment.h"

namespace tw {

// Reaches the controller's scanner callbacks, so tests can send progress and stale completions.
struct OverviewControllerTestAccess {
  static void progress(OverviewController& c, const std::string& path, double fraction);
  static void staleCompletion(OverviewController& c, const std::string& path, ScanNodeRef root);
};

namespace test {

using OverviewEnvironment = DesktopEnvironment;

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
