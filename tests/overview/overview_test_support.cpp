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

std::unique_ptr<OverviewController> OverviewWorld::makeController() {
  OverviewController::Options options;
  options.disks = [this] { return disks; };
  options.hasDiskAccess = [this](const std::string& path) { return !unreadable.count(path); };
  options.revealDisk = [this](const std::string& path) { revealed.push_back(path); };
  options.scannerOptions = [hold = holdWalks] {
    DirectoryScanner::Options o;
    o.threads = 1;
    o.settings = [hold] {
      while (hold->load()) QThread::msleep(1);
      return ScanSettings{};
    };
    return o;
  };
  if (keepBackgroundWork)
    options.backgroundExecutor = [this](auto work) { backgroundWork.push_back(std::move(work)); };
  auto c = std::make_unique<OverviewController>(options);
  OverviewController::Handlers h;
  h.showResult = [this](const ScanNodeRef& root) { shown.push_back(root); };
  h.forgetResult = [this](const ScanNodeRef& root) { forgotten.push_back(root); };
  h.removeScansForPath = [this](const std::string& path, auto done) {
    removeRequests.push_back(path);
    done(removeError);
  };
  h.scanDidBegin = [this] { ++began; };
  h.scanDidEnd = [this](bool completedScan) { ended.push_back(completedScan); };
  h.scanCompleted = [this](const ScanNodeRef& root) { completed.push_back(root); };
  c->setHandlers(std::move(h));
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

std::string OverviewWorld::makeFolder(const std::string& name, int files) {
  const std::string folder = env.tree.folder(name);
  for (int i = 0; i < files; ++i) env.tree.file(name + "/f" + std::to_string(i), 4096);
  return folder;
}

bool OverviewWorld::waitUntil(const std::function<bool()>& done) {
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
