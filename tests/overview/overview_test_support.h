// The overview's test world: a private desktop, and controllers over a disk list the test edits
// (the one seam for the system's disks and their access) with every handler and signal recorded.
#pragma once

#include <gtest/gtest.h>

#include <QStringList>
#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <set>
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

class OverviewWorld : public ::testing::Test {
 protected:
  // A controller over `disks`, whose scanners use the system layout on the world's folders.
  std::unique_ptr<OverviewController> makeController();
  // A folder of `files` files of 4096 bytes in the world.
  std::string makeFolder(const std::string& name, int files = 3);
  // Runs the event loop until `done` answers true; false when 20 s pass first.
  static bool waitUntil(const std::function<bool()>& done);

  DesktopEnvironment env;
  // What the system reports, read at every call; mount points in `unreadable` cannot be read.
  std::vector<OverviewDisk> disks;
  std::set<std::string> unreadable;
  // While true, walks wait before they start.
  std::shared_ptr<std::atomic<bool>> holdWalks = std::make_shared<std::atomic<bool>>(false);
  // When set before the controller is made, background work (freeing trees) waits here.
  bool keepBackgroundWork = false;
  std::vector<std::function<void()>> backgroundWork;

  // What the handlers and signals reported.
  int began = 0, beeps = 0, addDiskSheets = 0;
  std::vector<bool> ended;
  std::vector<ScanNodeRef> completed, shown, forgotten;
  std::vector<std::string> removeRequests, changedChoices, unlockRequests, revealed;
  std::optional<Error> removeError;  // what the remove handler answers
  QStringList statuses;
  std::vector<std::pair<QString, QString>> alerts;
};

}  // namespace test
}  // namespace tw
