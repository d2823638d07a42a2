// The overview's test world: a private desktop, and controllers over a disk list the test edits
// (the one seam for the system's disks and their access) with every handler and signal recorded.
#pragma once

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QStringList>
#include <QThread>
#include <atomic>
#include <set>

#include "overview/overview_controller.h"
#include "support/desktop_environment.h"

namespace tw {

// Reaches the controller's scanner callbacks, so tests can send progress and stale completions.
struct OverviewControllerTestAccess {
  static void progress(OverviewController& c, const std::string& path, double fraction) {
    if (auto it = c.scanners_.find(path); it != c.scanners_.end())
      c.scanProgressed(path, it->second->token, fraction);
  }
  static void staleCompletion(OverviewController& c, const std::string& path, ScanNodeRef root) {
    c.scanFinished(path, 0, std::move(root), std::nullopt, false);
  }
};

namespace test {

class OverviewWorld : public ::testing::Test {
 protected:
  // A controller over `disks`, whose scanners use the system layout on the world's folders.
  std::unique_ptr<OverviewController> makeController() {
    OverviewController::Options o;
    o.disks = [this] { return disks; };
    o.hasDiskAccess = [this](const std::string& path) { return !unreadable.count(path); };
    o.revealDisk = [this](const std::string& path) { revealed.push_back(path); };
    o.scannerOptions = [hold = holdWalks] {
      DirectoryScanner::Options scanner;
      scanner.threads = 1;
      scanner.settings = [hold] {
        while (hold->load()) QThread::msleep(1);
        return ScanSettings{};
      };
      return scanner;
    };
    if (keepBackgroundWork)
      o.backgroundExecutor = [this](auto work) { backgroundWork.push_back(std::move(work)); };
    auto c = std::make_unique<OverviewController>(o);
    c->setHandlers({[this](const ScanNodeRef& root) { shown.push_back(root); },
                    [this](const ScanNodeRef& root) { forgotten.push_back(root); },
                    [this](const std::string& path, auto done) {
                      removeRequests.push_back(path);
                      done(removeError);
                    },
                    [this] { ++began; }, [this](bool done) { ended.push_back(done); },
                    [this](const ScanNodeRef& root) { completed.push_back(root); }});
    using C = OverviewController;
    QObject::connect(c.get(), &C::statusChanged, [this](const QString& text) { statuses << text; });
    QObject::connect(c.get(), &C::alertRequested,
                     [this](const QString& m, const QString& i) { alerts.emplace_back(m, i); });
    QObject::connect(c.get(), &C::changedFolderChoiceRequested,
                     [this](const std::string& p) { changedChoices.push_back(p); });
    QObject::connect(c.get(), &C::unlockRequested,
                     [this](const std::string& p) { unlockRequests.push_back(p); });
    QObject::connect(c.get(), &C::beepRequested, [this] { ++beeps; });
    QObject::connect(c.get(), &C::addHardDiskRequested, [this] { ++addDiskSheets; });
    return c;
  }
  // A folder of `files` files of 4096 bytes in the world.
  std::string makeFolder(const std::string& name, int files = 3) {
    for (int i = 0; i < files; ++i) env.tree.file(name + "/f" + std::to_string(i), 4096);
    return env.tree.folder(name);
  }
  // Runs the event loop until `done` answers true; false when 20 s pass first.
  static bool waitUntil(const std::function<bool()>& done) {
    QElapsedTimer timer;
    timer.start();
    while (!done() && timer.elapsed() < 20000)
      QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    return done();
  }

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
