// The overview's longest event-loop stall while a large folder is scanned twice: the second result
// replaces the first, whose tree must be freed off the GUI thread. A 5 ms timer ticks all along;
// the stall is the longest gap between two ticks beyond the interval.
//
//   overview_bench /work/trees/t1m
#include <QApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QTimer>
#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "overview/overview_controller.h"

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: overview_bench FOLDER\n");
    return 2;
  }
  QTemporaryDir config;
  ::setenv("XDG_CONFIG_HOME", config.path().toLocal8Bit().constData(), 1);
  ::setenv("QT_QPA_PLATFORM", "offscreen", 0);
  QApplication app(argc, argv);
  const std::string folder = argv[1];

  tw::OverviewController::Options options;
  options.disks = [] { return std::vector<tw::OverviewDisk>{}; };
  tw::OverviewController controller(options);

  QElapsedTimer clock;
  clock.start();
  qint64 lastTick = clock.elapsed(), longest = 0, longestDuringCompletion = 0;
  bool inCompletionWindow = false;
  QTimer ticker;
  ticker.setInterval(5);
  QObject::connect(&ticker, &QTimer::timeout, [&] {
    const qint64 now = clock.elapsed();
    const qint64 gap = now - lastTick - 5;
    longest = std::max(longest, gap);
    if (inCompletionWindow) longestDuringCompletion = std::max(longestDuringCompletion, gap);
    lastTick = now;
  });
  ticker.start();

  int finished = 0;
  double firstScan = 0, secondScan = 0;
  qint64 started = 0;
  tw::OverviewController::Handlers handlers;
  handlers.scanCompleted = [&](const tw::ScanNodeRef&) {
    inCompletionWindow = true;  // the next ticks measure the hand-over and the release
  };
  handlers.scanDidEnd = [&](bool) {
    const double seconds = (clock.elapsed() - started) / 1000.0;
    if (++finished == 1) {
      firstScan = seconds;
      QTimer::singleShot(500, [&] {
        inCompletionWindow = false;
        started = clock.elapsed();
        controller.scanURL(folder);
      });
    } else {
      secondScan = seconds;
      QTimer::singleShot(2000, &app, &QApplication::quit);  // let the freed tree go
    }
  };
  controller.setHandlers(handlers);
  started = clock.elapsed();
  controller.scanURL(folder);
  app.exec();
  const tw::ScanNodeRef result = controller.resultForPath(folder);
  std::printf("folder %s: %llu items, size %llu bytes\n", folder.c_str(),
              static_cast<unsigned long long>(result ? result->sourceItemCount() : 0),
              static_cast<unsigned long long>(result ? result->size() : 0));
  std::printf("scan 1 %.2f s, scan 2 %.2f s (replacing scan 1's result)\n", firstScan, secondScan);
  std::printf("longest event-loop stall: %lld ms overall, %lld ms after a completion\n",
              static_cast<long long>(longest), static_cast<long long>(longestDuringCompletion));
  return 0;
}
