#include "overview_test_support.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QThread>

namespace tw {

void OverviewControllerTestAccess::progress(OverviewController& c, const std::string& path,
                                            double fraction) {
  auto it = c.scanners_.find(path);
  if (it != c.scanners_.end()) c.scanProgressed(path, it->second->token, fraction);
}

void OverviewControllerTestAccess::staleCompletion(OverviewController& c, const std::string& path,
                                                   ScanNodeRef root) {
  c.scanFinished(path, 0, std::move(root), std::nullopt, false);
}

namespace test {

std::unique_ptr<OverviewController> makeController(Recorder& r, std::vector<OverviewDisk> disks,
                                                   std::function<bool(const std::string&)> access) {
  OverviewController::Options options;
  options.disks = [disks] { return disks; };
  options.hasDiskAccess = access ? access : [](const std::string&) { return true; };
  options.revealDisk = [&r](const std::string& path) { r.revealed.push_back(path); };
  options.scannerOptions = [hold = r.holdWalks] {
    DirectoryScanner::Options o;
    o.threads = 1;
    o.settings = [hold] {
      while (hold->load()) QThread::msleep(1);
      return ScanSettings{};
    };
    return o;
  };
  if (r.keepBackgroundWork)
    options.backgroundExecutor = [&r](std::function<void()> work) {
      r.backgroundWork.push_back(std::move(work));
    };
  auto c = std::make_unique<OverviewController>(options);
  OverviewController::Handlers h;
  h.showResult = [&r](const ScanNodeRef& root) { r.shown.push_back(root); };
  h.forgetResult = [&r](const ScanNodeRef& root) { r.forgotten.push_back(root); };
  h.removeScansForPath = [&r](const std::string& path,
                              std::function<void(std::optional<Error>)> done) {
    r.removeRequests.push_back(path);
    done(r.removeError);
  };
  h.scanDidBegin = [&r] { ++r.began; };
  h.scanDidEnd = [&r](bool completed) { r.ended.push_back(completed); };
  h.scanCompleted = [&r](const ScanNodeRef& root) { r.completed.push_back(root); };
  c->setHandlers(std::move(h));
  OverviewController* raw = c.get();
  QObject::connect(raw, &OverviewController::statusChanged,
                   [&r](const QString& text) { r.statuses << text; });
  QObject::connect(raw, &OverviewController::alertRequested,
                   [&r](const QString& m, const QString& i) { r.alerts.emplace_back(m, i); });
  QObject::connect(raw, &OverviewController::changedFolderChoiceRequested,
                   [&r](const std::string& p) { r.changedChoices.push_back(p); });
  QObject::connect(raw, &OverviewController::unlockRequested,
                   [&r](const std::string& p) { r.unlockRequests.push_back(p); });
  QObject::connect(raw, &OverviewController::beepRequested, [&r] { ++r.beeps; });
  QObject::connect(raw, &OverviewController::addHardDiskRequested, [&r] { ++r.addDiskSheets; });
  return c;
}

bool waitUntil(const std::function<bool()>& done) {
  QElapsedTimer timer;
  timer.start();
  while (!done()) {
    if (timer.elapsed() > 20000) return false;
    QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    QThread::msleep(1);
  }
  return true;
}

}  // namespace test
}  // namespace tw
