// Sunburst chart benchmarks on a saved scan: laying out the root's segments from a freshly opened
// scan database, repainting the resting chart at 1000 × 1000 device pixels, painting a whole frame
// from scratch (what a transition pays per frame), and hit-testing a pointer position.
//
// usage: TW_SUNBURST_SCAN=/tmp/t1m.sqlite sunburst_bench [benchmark flags]
// Under QT_SCALE_FACTOR=2 the widget is 500 × 500 logical pixels, still 1000 × 1000 device pixels.
#include <benchmark/benchmark.h>

#include <QApplication>
#include <QPainter>
#include <QPixmap>
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

}  // namespace
