// A window showing the scan browser on a saved scan, for looking at it by hand (not a test).
//
// usage: browser_demo SCAN.sqlite [--size WxH] [--open NAME/NAME] [--hover ANGLE RADIUS]
//                     [--queue PATH]... [--expand [ROW]] [--confirm | --cleanup]
//                     [--trash FOLDER] [--screenshot FILE.png]
// --open goes into the folder at that path below the root (by names, through the list's rules).
// --hover moves the pointer to a chart angle in degrees (clockwise from three o'clock) and an
// unscaled radius, a real pointer move; when the chart has not previewed the segment after a
// second, the demo asks for the preview the way the chart does. --screenshot saves the window
// after three seconds and quits. --queue puts a path into the Delete Queue, --expand
// opens its table (and with a row number puts the pointer on that row), --confirm opens the delete
// confirmation and --cleanup confirms it (the items really go to the Trash: give --trash a scratch
// folder to keep them out of the user's).
#include <QAbstractButton>
#include <QApplication>
#include <QCursor>
#include <QMessageBox>
#include <QPixmap>
#include <QScreen>
#include <QTimer>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <numbers>
#include <string>

#include "app/appearance.h"
#include "browser/scan_browser.h"
#include "browser/sunburst_angles.h"
#include "browser/sunburst_view.h"
#include "cleanup/cleanup_flow.h"
#include "cleanup/collector_panel.h"
#include "cleanup/collector_table_view.h"
#include "cleanup/delete_queue.h"
#include "store/scan_store.h"

namespace {

tw::ScanNode* childNamed(tw::ScanNode* node, std::string_view name) {
  for (tw::ScanNode* c : node->children()) {
    if (c->name() == name) return c;
    if (c->isAggregate())
      if (tw::ScanNode* inside = childNamed(c, name)) return inside;
  }
  return nullptr;
}

}  // namespace

int main(int argc, char** argv) {
  QApplication app(argc, argv);
  tw::applyDarkAppearance(app);
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s SCAN.sqlite [--size WxH] [--open A/B] [--hover A R]\n",
                 argv[0]);
    return 2;
  }
  int width = 1180, height = 720;
  double hoverAngle = -1, hoverRadius = 0;
  std::string open, trash;
  std::vector<std::string> queued;
  bool expand = false, confirm = false, cleanup = false;
  int pointedRow = -1;
  QString screenshot;
  for (int i = 2; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--size" && i + 1 < argc) {
      std::sscanf(argv[++i], "%dx%d", &width, &height);
    } else if (arg == "--open" && i + 1 < argc) {
      open = argv[++i];
    } else if (arg == "--screenshot" && i + 1 < argc) {
      screenshot = QString::fromLocal8Bit(argv[++i]);
    } else if (arg == "--queue" && i + 1 < argc) {
      queued.push_back(argv[++i]);
    } else if (arg == "--trash" && i + 1 < argc) {
      trash = argv[++i];
    } else if (arg == "--expand") {
      expand = true;
      if (i + 1 < argc && std::isdigit(static_cast<unsigned char>(argv[i + 1][0])))
        pointedRow = std::atoi(argv[++i]);
    } else if (arg == "--confirm") {
      confirm = true;
    } else if (arg == "--cleanup") {
      confirm = cleanup = true;
    } else if (arg == "--hover" && i + 2 < argc) {
      hoverAngle = std::atof(argv[++i]);
      hoverRadius = std::atof(argv[++i]);
    }
  }
  tw::Error error;
  auto store = tw::ScanStore::open(argv[1], &error);
  if (!store) {
    std::fprintf(stderr, "%s\n", error.description.c_str());
    return 1;
  }
  tw::ScanBrowser::Options options;
  options.cleanup.trash.homeTrash = trash;
  tw::ScanBrowser browser(store->rootNode(), options);
  store.reset();
  browser.setWindowTitle("Tarnwell");
  browser.resize(width, height);
  browser.move(0, 0);
  for (size_t start = 0; !open.empty() && start < open.size();) {
    const size_t slash = std::min(open.find('/', start), open.size());
    tw::ScanNode* next = childNamed(browser.currentNode(), open.substr(start, slash - start));
    if (!next) break;
    browser.navigateToNode(next, true);
    start = slash + 1;
  }
  QObject::connect(&browser, &tw::ScanBrowser::readErrorReported,
                   [](const QString& text) { std::printf("read error: %s\n", qPrintable(text)); });
  browser.show();
  for (const std::string& path : queued)
    if (!browser.deleteQueue()->collectPath(path))
      std::fprintf(stderr, "not queued: %s\n", path.c_str());
  if (expand) browser.collectorPanel()->setCollectorExpanded(true, false);
  if (pointedRow >= 0) {
    QTimer::singleShot(600, [&browser, pointedRow] {
      tw::CollectorTableView* table = browser.collectorPanel()->tableView();
      const QRect row = table->visualRect(table->model()->index(pointedRow, 0));
      QCursor::setPos(table->viewport()->mapToGlobal(row.center()));
    });
  }
  if (confirm) {
    QTimer::singleShot(800, [&browser, cleanup] {
      browser.deleteCollectedItems();
      QMessageBox* sheet = browser.cleanupFlow()->openSheet();
      if (!cleanup || !sheet) return;
      for (QAbstractButton* button : sheet->buttons())
        if (button->text() == "Delete") button->click();
    });
  }
  if (hoverAngle >= 0) {
    QTimer::singleShot(600, [&] {
      tw::SunburstView* chart = browser.sunburstView();
      const double angle = hoverAngle * std::numbers::pi / 180;
      const double r = hoverRadius * chart->chartScale();
      const QPointF p = chart->chartCenter() + QPointF(tw::sunburst::offsetXAt(angle, r),
                                                       tw::sunburst::offsetYAt(angle, r));
      QCursor::setPos(chart->mapToGlobal(p.toPoint()));
      QTimer::singleShot(1200, [&browser, chart, p] {
        if (browser.summaryNode()) return;
        if (const tw::SunburstSegment* s = chart->segmentAtPoint(p))
          emit chart->didPreviewNode(s->node);
      });
    });
  }
  if (!screenshot.isEmpty()) {
    QTimer::singleShot(3000, [&] {
      QGuiApplication::primaryScreen()
          ->grabWindow(0, browser.x(), browser.y(), browser.width(), browser.height())
          .save(screenshot);
      QApplication::quit();
    });
  }
  return app.exec();
}
