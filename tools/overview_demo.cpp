// A window for looking at the overview by hand (not a test): a startup disk with a result, an
// external disk, a starred folder with a trusted result, a folder whose result is out of date and
// a folder being scanned. Settings and folders live in a temporary directory.
#include <QApplication>
#include <QTemporaryDir>
#include <QTimer>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <thread>

#include "app/appearance.h"
#include "overview/overview_controller.h"
#include "overview/overview_view.h"

int main(int argc, char** argv) {
  QTemporaryDir world;
  const std::string base = world.path().toStdString();
  ::setenv("XDG_CONFIG_HOME", (base + "/config").c_str(), 1);
  QApplication app(argc, argv);
  tw::applyDarkAppearance(app);

  auto folder = [&](const std::string& name, int files) {
    const std::string path = base + "/" + name;
    std::filesystem::create_directories(path);
    for (int i = 0; i < files; ++i) std::ofstream(path + "/file" + std::to_string(i)) << "data";
    return path;
  };
  const std::string projects = folder("Projects", 4), downloads = folder("Downloads", 3),
                    photos = folder("Photos", 2);

  // Once the freshness checks are done, walks wait until the window closes, so the folder scan
  // stays visible.
  auto hold = std::make_shared<std::atomic<bool>>(false);
  tw::OverviewController::Options options;
  options.disks = [] {
    return std::vector<tw::OverviewDisk>{
        {"/", "", 512110190592, 201326592000, 0, true, true},
        {"/media/backup", "Backup", 2000398934016, 1500000000000, 0, false, true}};
  };
  options.hasDiskAccess = [](const std::string&) { return true; };
  options.scannerOptions = [hold] {
    tw::DirectoryScanner::Options o;
    o.settings = [hold] {
      while (hold->load()) std::this_thread::sleep_for(std::chrono::milliseconds(5));
      return tw::ScanSettings{};
    };
    return o;
  };
  tw::OverviewController controller(options);
  QObject::connect(&app, &QApplication::aboutToQuit, [hold] { hold->store(false); });

  auto root = [](const std::string& path, uint64_t size, uint64_t fingerprint, int64_t items) {
    tw::ScanNodeRef r = tw::ScanNode::makeRoot(path, true);
    r->setSize(size);
    r->setScanDate(1.7e9);
    r->setSourceFingerprint(fingerprint);
    r->setSourceItemCount(items);
    return r;
  };
  tw::ScanNodeRef disk = root("/", 310783598592, 0, 0);
  disk->setVolumeRoot(true);
  tw::ScanNodeRef projectsRoot = root(projects, 18400000000, 0, 0);
  projectsRoot->setSourceFingerprint(
      tw::DirectoryScanner::computeSourceSnapshot(projects, {}).fingerprint);
  projectsRoot->setSourceItemCount(
      tw::DirectoryScanner::computeSourceSnapshot(projects, {}).itemCount);
  controller.toggleFavorite(projects);
  controller.restoreCachedScanRoots(
      {disk, projectsRoot, root(downloads, 4200000000, 1, 1)});  // Downloads no longer matches
  controller.addFolder(photos);
  while (controller.isChecking(projects) || controller.isChecking(downloads))
    QApplication::processEvents(QEventLoop::AllEvents, 20);
  hold->store(true);
  controller.scanURL(photos);

  tw::OverviewView view(&controller);
  view.resize(980, 650);
  view.setWindowTitle(QStringLiteral("Tarnwell"));
  view.show();
  // Arguments: milliseconds until the window closes, then a PNG file to save it to first.
  if (argc > 1) {
    const QString png = argc > 2 ? QString::fromLocal8Bit(argv[2]) : QString();
    QTimer::singleShot(std::atoi(argv[1]), &app, [&view, png] {
      if (!png.isEmpty()) view.grab().save(png);
      QApplication::quit();
    });
  }
  return app.exec();
}
