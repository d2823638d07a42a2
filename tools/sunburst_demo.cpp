// A window showing the sunburst chart of a saved scan, for looking at it by hand.
//
// usage: sunburst_demo SCAN.sqlite [--size WxH] [--hover ANGLE RADIUS] [--select ANGLE RADIUS]
//                      [--zoom-in SECONDS | --zoom-out SECONDS | --reveal SECONDS] [--save PNG]
// ANGLE is a chart angle in degrees (clockwise from three o'clock), RADIUS in chart units; the
// pointer is moved there (a real pointer move) after the window appears. Hover and click signals
// are printed. --zoom-in and --zoom-out start a zoom into (or out of) the largest folder and hold
// its frame at SECONDS; --reveal holds the rings growing from the centre at SECONDS. Without them,
// the chart reveals itself from the centre as the browser shows it. --save writes the window's
// picture to PNG two seconds after it appears and quits.
#include <QApplication>
#include <QCursor>
#include <QMouseEvent>
#include <QTimer>
#include <cmath>
#include <cstdio>
#include <numbers>
#include <string>

#include "browser/sunburst_angles.h"
#include "browser/sunburst_view.h"
#include "store/scan_store.h"

namespace {

QPoint chartPoint(const tw::SunburstView& view, double degrees, double radius) {
  const double angle = degrees * std::numbers::pi / 180;
  const double r = radius * view.chartScale();
  const QPointF p = view.chartCenter() +
                    QPointF(tw::sunburst::offsetXAt(angle, r), tw::sunburst::offsetYAt(angle, r));
  return p.toPoint();
}

}  // namespace

int main(int argc, char** argv) {
  QApplication app(argc, argv);
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s SCAN.sqlite [--size WxH] [--hover A R] [--select A R]\n",
                 argv[0]);
    return 2;
  }
  int width = 760;
  int height = 560;
  double hoverAngle = -1, hoverRadius = 0, selectAngle = -1, selectRadius = 0;
  std::string frozen;
  std::string savePath;
  double frozenAt = 0;
  for (int i = 2; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--size" && i + 1 < argc) {
      std::sscanf(argv[++i], "%dx%d", &width, &height);
    } else if (arg == "--hover" && i + 2 < argc) {
      hoverAngle = std::atof(argv[++i]);
      hoverRadius = std::atof(argv[++i]);
    } else if ((arg == "--zoom-in" || arg == "--zoom-out" || arg == "--reveal") && i + 1 < argc) {
      frozen = arg;
      frozenAt = std::atof(argv[++i]);
    } else if (arg == "--save" && i + 1 < argc) {
      savePath = argv[++i];
    } else if (arg == "--select" && i + 2 < argc) {
      selectAngle = std::atof(argv[++i]);
      selectRadius = std::atof(argv[++i]);
    }
  }
  tw::Error error;
  auto store = tw::ScanStore::open(argv[1], &error);
  if (!store) {
    std::fprintf(stderr, "%s\n", error.description.c_str());
    return 1;
  }
  tw::SunburstView view;
  view.setWindowTitle("Sunburst");
  view.resize(width, height);
  view.setRootNode(store->rootNode());
  double clock = 0;
  if (!frozen.empty()) view.setAnimationClock([&clock] { return clock; });
  QObject::connect(&view, &tw::SunburstView::didHoverNode, [](tw::ScanNode* node) {
    std::printf("hover %s\n", node ? node->path().c_str() : "(none)");
    std::fflush(stdout);
  });
  QObject::connect(&view, &tw::SunburstView::didChooseNode, [&](tw::ScanNode* node) {
    std::printf("choose %s\n", node->path().c_str());
    std::fflush(stdout);
  });
  QObject::connect(&view, &tw::SunburstView::didRequestParent, [] { std::puts("parent"); });
  view.move(0, 0);
  view.show();
  std::printf("%zu segments\n", view.segments().size());
  if (frozen.empty()) {
    view.prepareInitialRevealFromCenter();
    view.animateInitialRevealFromCenter();
  } else {
    tw::ScanNodeRef largest = view.segments().front().node->ref();
    if (frozen == "--zoom-in") view.setRootNode(largest, true);
    if (frozen == "--zoom-out") {
      view.setRootNode(largest, false);
      view.setRootNode(store->rootNode(), true);
    }
    if (frozen == "--reveal") {
      view.prepareInitialRevealFromCenter();
      view.animateInitialRevealFromCenter();
    }
    clock = frozenAt;
    view.advanceAnimations();
  }
  QTimer::singleShot(500, [&] {
    if (selectAngle >= 0) {
      const tw::SunburstSegment* s =
          view.segmentAtPoint(chartPoint(view, selectAngle, selectRadius));
      if (s) view.setSelectedNode(s->node);
    }
    if (hoverAngle >= 0) {
      const QPoint point = chartPoint(view, hoverAngle, hoverRadius);
      QCursor::setPos(view.mapToGlobal(point));
      // Without a real pointer (an offscreen run) deliver the move to the view directly.
      QMouseEvent move(QEvent::MouseMove, point, view.mapToGlobal(point), Qt::NoButton,
                       Qt::NoButton, Qt::NoModifier);
      QCoreApplication::sendEvent(&view, &move);
    }
  });
  if (!savePath.empty()) {
    QTimer::singleShot(2000, [&] {
      view.grab().save(QString::fromStdString(savePath));
      app.quit();
    });
  }
  return app.exec();
}
