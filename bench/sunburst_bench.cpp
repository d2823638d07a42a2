// Sunburst chart benchmarks on a saved scan: laying out the root's segments from a freshly opened
// scan database, repainting the resting chart at 1000 × 1000 device pixels, painting a whole frame
// from scratch (what a transition pays per frame), and hit-testing a pointer position.
//
// The animation benchmarks paint frames of a zoom into the largest folder, a zoom back out, the
// sweep of a fresh chart and the rings growing from the centre, at 34 points spread over each
// animation's time, and report the slowest frame beside the mean.
//
// usage: TW_SUNBURST_SCAN=/tmp/t1m.sqlite sunburst_bench [benchmark flags]
// Under QT_SCALE_FACTOR=2 the widget is 500 × 500 logical pixels, still 1000 × 1000 device pixels.
#include <benchmark/benchmark.h>

#include <QApplication>
#include <QPainter>
#include <QPixmap>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>

#include "browser/sunburst_layout.h"
#include "browser/sunburst_painter.h"
#include "browser/sunburst_view.h"
#include "store/scan_store.h"

namespace {

std::string scanPath() {
  const char* path = std::getenv("TW_SUNBURST_SCAN");
  return path ? path : "/tmp/t1m.sqlite";
}

std::shared_ptr<tw::ScanStore> openStore(benchmark::State& state) {
  tw::Error error;
  auto store = tw::ScanStore::open(scanPath(), &error);
  if (!store) state.SkipWithError(("cannot open " + scanPath() + ": " + error.description).c_str());
  return store;
}

QApplication& application() {
  static int argc = 1;
  static char name[] = "sunburst_bench";
  static char* argv[] = {name, nullptr};
  if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
  qputenv("TARNWELL_REDUCE_MOTION", "0");
  static QApplication app(argc, argv);
  return app;
}

// A view of the saved scan's root at 1000 × 1000 device pixels, painted once.
struct ChartFixture {
  QApplication& app = application();
  std::shared_ptr<tw::ScanStore> store;
  std::unique_ptr<tw::SunburstView> view;
  QPixmap target;

  explicit ChartFixture(benchmark::State& state) {
    store = openStore(state);
    if (!store) return;
    view = std::make_unique<tw::SunburstView>();
    const double dpr = view->devicePixelRatioF();
    view->resize(static_cast<int>(1000 / dpr), static_cast<int>(1000 / dpr));
    view->setRootNode(store->rootNode());
    target = QPixmap(1000, 1000);
    target.setDevicePixelRatio(dpr);
    view->render(&target);
  }
};

void BM_SegmentsForRootOfSavedScan(benchmark::State& state) {
  std::size_t segments = 0;
  for (auto _ : state) {
    state.PauseTiming();
    auto store = openStore(state);
    if (!store) return;
    tw::ScanNodeRef root = store->rootNode();
    tw::SunburstLayout layout;
    state.ResumeTiming();
    layout.setRootNode(root);
    segments = layout.segments().size();
    benchmark::DoNotOptimize(segments);
    state.PauseTiming();
    layout = tw::SunburstLayout();
    root.reset();
    store.reset();
    state.ResumeTiming();
  }
  state.counters["segments"] = static_cast<double>(segments);
}
BENCHMARK(BM_SegmentsForRootOfSavedScan)->Unit(benchmark::kMillisecond)->MinTime(3);

// The layout alone: the same root again, every child it visits already loaded.
void BM_SegmentsForLoadedRoot(benchmark::State& state) {
  auto store = openStore(state);
  if (!store) return;
  tw::ScanNodeRef root = store->rootNode();
  tw::SunburstLayout layout;
  layout.setRootNode(root);
  for (auto _ : state) {
    layout.rebuildSegments();
    benchmark::DoNotOptimize(layout.segments().data());
  }
  state.counters["segments"] = static_cast<double>(layout.segments().size());
}
BENCHMARK(BM_SegmentsForLoadedRoot)->Unit(benchmark::kMillisecond);

void BM_RestingRepaint(benchmark::State& state) {
  ChartFixture chart(state);
  if (!chart.view) return;
  for (auto _ : state) chart.view->render(&chart.target);
  state.counters["segments"] = static_cast<double>(chart.view->segments().size());
  state.counters["dpr"] = chart.view->devicePixelRatioF();
}
BENCHMARK(BM_RestingRepaint)->Unit(benchmark::kMillisecond);

void BM_RestingRepaintWithHoveredSegment(benchmark::State& state) {
  ChartFixture chart(state);
  if (!chart.view) return;
  chart.view->setHoveredSegmentAndStartFlicker(
      &chart.view->segments().front());  // the largest folder
  for (auto _ : state) chart.view->render(&chart.target);
}
BENCHMARK(BM_RestingRepaintWithHoveredSegment)->Unit(benchmark::kMillisecond);

// Everything drawn afresh, as in a frame of a transition (the resting picture is not used).
void BM_FullFrame(benchmark::State& state) {
  ChartFixture chart(state);
  if (!chart.view) return;
  const QRectF bounds(chart.view->rect());
  for (auto _ : state) {
    QPainter painter(&chart.target);
    tw::sunburst::drawRestingChart(painter, bounds, chart.view->layout(), {});
  }
}
BENCHMARK(BM_FullFrame)->Unit(benchmark::kMillisecond);

void BM_HitTest(benchmark::State& state) {
  ChartFixture chart(state);
  if (!chart.view) return;
  std::mt19937 random(42);
  const QRectF area(chart.view->rect());
  std::uniform_real_distribution<double> x(area.left(), area.right());
  std::uniform_real_distribution<double> y(area.top(), area.bottom());
  std::vector<QPointF> points(4096);
  for (QPointF& p : points) p = QPointF(x(random), y(random));
  std::size_t i = 0;
  std::size_t hits = 0;
  for (auto _ : state) {
    const tw::SunburstSegment* s = chart.view->segmentAtPoint(points[i++ & 4095]);
    hits += s != nullptr;
    benchmark::DoNotOptimize(s);
  }
  state.counters["hit share"] = static_cast<double>(hits) / static_cast<double>(i);
}
BENCHMARK(BM_HitTest)->Unit(benchmark::kMicrosecond);

// A point on the first segment, which the backward search meets last.
void BM_HitTestInnermostRing(benchmark::State& state) {
  ChartFixture chart(state);
  if (!chart.view) return;
  const tw::SunburstSegment& first = chart.view->segments().front();
  const double angle = (first.startAngle + first.endAngle) / 2;
  const double r = 60 * chart.view->chartScale();
  const QPointF point =
      chart.view->chartCenter() + QPointF(r * std::sin(angle), -r * std::cos(angle));
  for (auto _ : state) benchmark::DoNotOptimize(chart.view->segmentAtPoint(point));
}
BENCHMARK(BM_HitTestInnermostRing)->Unit(benchmark::kMicrosecond);

// Frames of an animation started by `start` on a view whose clock the benchmark sets: each
// iteration moves the clock to the next of 34 points over `seconds` and paints the whole view.
template <typename Start>
void animationFrames(benchmark::State& state, double seconds, Start start) {
  ChartFixture chart(state);
  if (!chart.view) return;
  double clock = 0;
  chart.view->setAnimationClock([&clock] { return clock; });
  start(*chart.view, chart.store->rootNode());
  if (!chart.view->isAnimating()) {
    state.SkipWithError("no animation started");
    return;
  }
  constexpr int kPoints = 34;
  int i = 0;
  double slowest = 0;
  for (auto _ : state) {
    clock = seconds * (i++ % kPoints) / kPoints;
    const auto begin = std::chrono::steady_clock::now();
    chart.view->advanceAnimations();
    chart.view->render(&chart.target);
    const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - begin;
    slowest = std::max(slowest, took.count());
  }
  state.counters["slowest ms"] = slowest;
  state.counters["drawn"] = static_cast<double>(chart.view->frameSegments().size());
}

void BM_ZoomInFrame(benchmark::State& state) {
  animationFrames(state, tw::SunburstView::kSweepSeconds,
                  [](tw::SunburstView& view, const tw::ScanNodeRef&) {
                    view.setRootNode(view.segments().front().node->ref(), true);
                  });
}
BENCHMARK(BM_ZoomInFrame)->Unit(benchmark::kMillisecond);

void BM_ZoomOutFrame(benchmark::State& state) {
  animationFrames(state, tw::SunburstView::kSweepSeconds,
                  [](tw::SunburstView& view, const tw::ScanNodeRef& root) {
                    view.setRootNode(view.segments().front().node->ref(), false);
                    view.setRootNode(root, true);
                  });
}
BENCHMARK(BM_ZoomOutFrame)->Unit(benchmark::kMillisecond);

void BM_SweepFrame(benchmark::State& state) {
  animationFrames(state, tw::SunburstView::kSweepSeconds,
                  [](tw::SunburstView& view, const tw::ScanNodeRef& root) {
                    view.setRootNode(nullptr, false);
                    view.setRootNode(root, true);
                  });
}
BENCHMARK(BM_SweepFrame)->Unit(benchmark::kMillisecond);

void BM_RadialRevealFrame(benchmark::State& state) {
  animationFrames(state, tw::SunburstView::kRadialRevealSeconds,
                  [](tw::SunburstView& view, const tw::ScanNodeRef&) {
                    view.prepareInitialRevealFromCenter();
                    view.animateInitialRevealFromCenter();
                  });
}
BENCHMARK(BM_RadialRevealFrame)->Unit(benchmark::kMillisecond);

}  // namespace
