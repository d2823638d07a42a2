#include "app/startup_trace.h"

#include <time.h>
#include <unistd.h>

#include <QApplication>
#include <QEvent>
#include <QTimer>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

#include "app/application.h"
#include "app/main_window.h"
#include "app/scan_session.h"

namespace tw {

namespace {

// Watches every widget of the main window for the first paint.
class FirstPaintWatcher : public QObject {
 public:
  FirstPaintWatcher(MainWindow* window, std::function<void()> painted)
      : QObject(window), window_(window), painted_(std::move(painted)) {}

 protected:
  bool eventFilter(QObject* object, QEvent* event) override {
    if (event->type() == QEvent::Paint && !seen_) {
      auto* widget = qobject_cast<QWidget*>(object);
      if (widget && widget->window() == window_) {
        seen_ = true;
        // After this round of painting has reached the screen.
        QTimer::singleShot(0, window_, painted_);
        QCoreApplication::instance()->removeEventFilter(this);
      }
    }
    return false;
  }

 private:
  MainWindow* window_;
  std::function<void()> painted_;
  bool seen_ = false;
};

}  // namespace

double millisecondsSinceProcessStart() {
  std::ifstream stat("/proc/self/stat");
  std::string line;
  std::getline(stat, line);
  // Fields after the command name, which is in parentheses and may hold spaces.
  const std::size_t close = line.rfind(')');
  if (close == std::string::npos) return 0;
  std::istringstream fields(line.substr(close + 2));
  std::string field;
  unsigned long long startTicks = 0;
  for (int index = 3; fields >> field; ++index) {
    if (index == 22) {
      startTicks = std::stoull(field);
      break;
    }
  }
  struct timespec now {};
  clock_gettime(CLOCK_BOOTTIME, &now);
  const double nowMs = now.tv_sec * 1000.0 + now.tv_nsec / 1e6;
  return nowMs - startTicks * 1000.0 / static_cast<double>(sysconf(_SC_CLK_TCK));
}

void traceStartupIfAsked(Application& app) {
  const QByteArray mode = qgetenv("TARNWELL_TRACE_STARTUP");
  if (mode.isEmpty() || !app.mainWindow() || !app.scanSession()) return;
  const bool quit = mode == "quit";
  struct Progress {
    bool painted = false;
    bool restored = false;
  };
  auto progress = std::make_shared<Progress>();
  auto report = [progress, quit](const char* what, bool Progress::*flag) {
    std::printf("%s %.1f\n", what, millisecondsSinceProcessStart());
    std::fflush(stdout);
    progress.get()->*flag = true;
    if (quit && progress->painted && progress->restored) QCoreApplication::quit();
  };
  auto* watcher =
      new FirstPaintWatcher(app.mainWindow(), [report] { report("painted", &Progress::painted); });
  QCoreApplication::instance()->installEventFilter(watcher);
  QObject::connect(app.scanSession(), &ScanSession::restoreHandedOver, watcher,
                   [report] { report("restored", &Progress::restored); });
}

}  // namespace tw
