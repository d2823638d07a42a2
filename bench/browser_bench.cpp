// Scan browser timings on a saved scan:
//  - opening the browser on the saved root (volume presentation, chart layout, list), and how many
//    nodes that reads out of the file;
//  - a resting hover that previews a folder whose rows have not been read yet, until the list
//    shows them (the rows' query, the title, the model reset and a synchronous repaint of the
//    list);
//  - going into a folder with 100,000 children (built in memory) until the list is painted.
//
// usage: TW_BROWSER_SCAN=/tmp/t1m.sqlite browser_bench [HOVER_COUNT]
#include <QApplication>
#include <QHeaderView>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "browser/scan_browser.h"
#include "browser/scan_children_model.h"
#include "browser/scan_list_view.h"
#include "browser/sunburst_view.h"
#include "store/scan_store.h"

namespace {

using Clock = std::chrono::steady_clock;

double millisecondsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// Nodes in memory below `node` (without reading anything), and folders among them still unread.
void walkLoaded(tw::ScanNode* node, size_t& count, std::vector<tw::ScanNode*>& unread) {
  ++count;
  if (!node->isChildrenLoaded()) {
    if (node->isDirectory() && !node->isSynthetic() && node->size() > 0) unread.push_back(node);
    return;
  }
  for (tw::ScanNode* child : node->children()) walkLoaded(child, count, unread);
}

// Counts paint events of the object it watches, to be sure the timed repaints really paint.
class PaintCounter : public QObject {
 public:
  int paints = 0;
  bool eventFilter(QObject*, QEvent* event) override {
    if (event->type() == QEvent::Paint) ++paints;
    return false;
  }
};

void printSummary(const char* what, std::vector<double> times) {
  if (times.empty()) return;
  std::sort(times.begin(), times.end());
  const auto at = [&](double q) { return times[static_cast<size_t>(q * (times.size() - 1))]; };
  std::printf("%-44s n=%zu  median %.2f ms  p95 %.2f ms  max %.2f ms\n", what, times.size(),
              at(0.5), at(0.95), times.back());
}

}  // namespace

int main(int argc, char** argv) {
  if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication app(argc, argv);
  const char* scan = std::getenv("TW_BROWSER_SCAN");
  const std::string path = scan ? scan : "/tmp/t1m.sqlite";
  const size_t hoverCount = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 300;

  tw::Error error;
  auto store = tw::ScanStore::open(path, &error);
  if (!store) {
    std::fprintf(stderr, "cannot open %s: %s\n", path.c_str(), error.description.c_str());
    return 1;
  }
  // Open: the root row, then the browser (chart layout and list) on it.
  Clock::time_point start = Clock::now();
  tw::ScanNodeRef root = store->rootNode();
  tw::ScanBrowser browser(root);
  browser.resize(1280, 800);
  browser.show();
  QApplication::processEvents();
  browser.listView()->viewport()->repaint();
  const double openTime = millisecondsSince(start);
  size_t inMemory = 0;
  std::vector<tw::ScanNode*> unread;
  walkLoaded(root.get(), inMemory, unread);
  std::printf("scan: %s, %lld items\n", path.c_str(),
              static_cast<long long>(root->sourceItemCount()));
  std::printf("open browser on the root: %.1f ms, %zu nodes read, %zu chart segments\n", openTime,
              inMemory, browser.sunburstView()->segments().size());

  // Hover previews of unread folders, spread over the list of candidates.
  std::vector<double> hovers;
  const size_t step = std::max<size_t>(1, unread.size() / std::max<size_t>(1, hoverCount));
  size_t rowsShown = 0;
  PaintCounter counter;
  browser.listView()->viewport()->installEventFilter(&counter);
  for (size_t i = 0; i < unread.size() && hovers.size() < hoverCount; i += step) {
    tw::ScanNode* folder = unread[i];
    start = Clock::now();
    emit browser.sunburstView()->didPreviewNode(folder);
    browser.listView()->viewport()->repaint();
    hovers.push_back(millisecondsSince(start));
    rowsShown += browser.listModel()->rowCount();
    emit browser.sunburstView()->didPreviewNode(nullptr);
  }
  printSummary("hover preview of an unread folder", hovers);
  std::printf("  (%d list paints)\n", counter.paints);
  std::printf("  (%zu unread folders to choose from, %.1f rows each on average)\n", unread.size(),
              hovers.empty() ? 0.0 : static_cast<double>(rowsShown) / hovers.size());

  // A folder with 100,000 children, built in memory.
  tw::ScanNodeRef wide = tw::ScanNode::makeRoot("/wide", true);
  tw::ScanNode* big = wide->createNode("big", true);
  wide->addChild(big);
  uint64_t total = 0;
  for (int i = 0; i < 100000; ++i) {
    tw::ScanNode* file = big->createNode("file-" + std::to_string(i), false);
    file->setSize(static_cast<uint64_t>(100000 - i) * 4096);
    total += file->size();
    big->addChild(file);
  }
  big->setSize(total);
  wide->setSize(total);
  tw::ScanBrowser wideBrowser(wide);
  wideBrowser.resize(1280, 800);
  wideBrowser.show();
  QApplication::processEvents();
  std::vector<double> enters;
  for (int i = 0; i < 10; ++i) {
    start = Clock::now();
    wideBrowser.navigateToNode(big, true);
    wideBrowser.listView()->viewport()->repaint();
    enters.push_back(millisecondsSince(start));
    wideBrowser.navigateBack();
  }
  printSummary("open a folder of 100,000 children", enters);
  return 0;
}
