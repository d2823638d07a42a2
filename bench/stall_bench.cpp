// Event-loop stalls while a large scan runs and is saved. A QApplication (offscreen) with a small
// window repainted on every tick of a 5 ms timer scans TREE with DirectoryScanner, its callbacks
// queued to the GUI thread, accepts the result through ScanLibrary (write, copy, replace, prune),
// then scans TREE again and accepts the second result, which replaces the first as the current
// result (its tree is freed), and last drops the current result. Throughout, the longest gap
// between two ticks is recorded, per phase and overall.
//
// usage: stall_bench TREE WORKDIR
#include <QApplication>
#include <QElapsedTimer>
#include <QPainter>
#include <QTimer>
#include <QWidget>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "platform/volume_layout.h"
#include "scan/directory_scanner.h"
#include "services/gui_executor.h"
#include "services/scan_library.h"

namespace {

// A widget that paints a little every time it is asked, so ticks include a real paint.
class Canvas : public QWidget {
 public:
  int frame = 0;

 protected:
  void paintEvent(QPaintEvent*) override {
    QPainter painter(this);
    painter.fillRect(rect(), QColor::fromHsv((frame * 7) % 360, 120, 160));
  }
};

struct Phase {
  const char* name;
  double longestMs = 0;
  double seconds = 0;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: stall_bench TREE WORKDIR\n");
    return 2;
  }
  qputenv("QT_QPA_PLATFORM",
          qgetenv("QT_QPA_PLATFORM").isEmpty() ? "offscreen" : qgetenv("QT_QPA_PLATFORM"));
  const std::string tree = argv[1];
  const std::string work = argv[2];
  ::setenv("XDG_CONFIG_HOME", (work + "/config").c_str(), 1);
  QApplication app(argc, argv);

  tw::ScanLibrary::Options libraryOptions;
  libraryOptions.folder = work + "/library";
  libraryOptions.mainExecutor = tw::queuedExecutor(&app);
  tw::ScanLibrary library(libraryOptions);

  tw::DirectoryScanner::Options scanOptions;
  scanOptions.layout = tw::makeLinuxVolumeLayout();
  scanOptions.callbackExecutor = tw::queuedExecutor(&app);
  tw::DirectoryScanner scanner(scanOptions);

  Canvas canvas;
  canvas.resize(400, 300);
  canvas.show();

  Phase phases[] = {{"first scan"},
                    {"first save"},
                    {"second scan"},
                    {"second save, first tree freed"},
                    {"current result dropped"}};
  int phase = 0;
  QElapsedTimer clock, phaseClock;
  clock.start();
  phaseClock.start();
  qint64 lastTick = clock.nsecsElapsed();
  uint64_t progressCalls = 0;

  QTimer ticker;
  ticker.setTimerType(Qt::PreciseTimer);
  QObject::connect(&ticker, &QTimer::timeout, [&] {
    const qint64 now = clock.nsecsElapsed();
    const double gap = (now - lastTick) / 1e6;
    lastTick = now;
    phases[phase].longestMs = std::max(phases[phase].longestMs, gap);
    ++canvas.frame;
    canvas.update();
  });

  auto nextPhase = [&] {
    phases[phase].seconds = phaseClock.nsecsElapsed() / 1e9;
    phaseClock.restart();
    ++phase;
  };

  std::function<void(int)> scan;
  scan = [&](int round) {
    library.beginPersistentScan();
    scanner.scanURL(
        tree, 0, [&](uint64_t, uint64_t, double) { ++progressCalls; },
        [&, round](tw::ScanNodeRef root, std::optional<tw::Error> error, bool cancelled) {
          library.endPersistentScanCompleted(root && !error && !cancelled);
          if (!root) {
            std::fprintf(stderr, "scan failed\n");
            QCoreApplication::exit(1);
            return;
          }
          nextPhase();
          library.acceptCompletedScan(std::move(root), [&, round](const tw::SaveOutcome& saved) {
            if (!saved.written || !saved.cacheReplaced) std::fprintf(stderr, "save incomplete\n");
            nextPhase();
            if (round == 0) {
              scan(1);
              return;
            }
            library.setCachedRoot(nullptr);
            // Give the pool time to free the tree while the ticks go on.
            QTimer::singleShot(1500, [&] {
              nextPhase();
              QCoreApplication::quit();
            });
          });
        });
  };

  ticker.start(5);
  QTimer::singleShot(0, [&] { scan(0); });
  const int status = app.exec();

  double longest = 0;
  for (const Phase& p : phases) {
    std::printf("%-32s %7.2f s  longest gap %6.1f ms\n", p.name, p.seconds, p.longestMs);
    longest = std::max(longest, p.longestMs);
  }
  std::printf("longest gap between 5 ms ticks: %.1f ms (%llu progress callbacks)\n", longest,
              static_cast<unsigned long long>(progressCalls));
  return status;
}
