// Hot spots of a scan's sort: most benchmark files take exactly 4096 bytes, so names decide.
#include <benchmark/benchmark.h>

#include <random>
#include <string>
#include <vector>

#include "platform/natural_order.h"
#include "scan/scan_node.h"

namespace {

std::vector<std::string> typicalNames(int count) {
  std::mt19937 rng(7);
  const char* ext[] = {"c",   "h", "py",   "jpg", "png", "mp4",
                       "txt", "o", "json", "log", "zip", "pdf"};
  std::vector<std::string> names;
  for (int i = 0; i < count; ++i) {
    int r = static_cast<int>(rng() % 100);
    if (r < 2) {
      names.push_back(std::string("Ünïcode ƒile ").append(std::to_string(i)).append(".txt"));
    } else if (r < 10) {
      names.push_back(std::string("with space ").append(std::to_string(i)).append(".jpg"));
    } else {
      names.push_back(
          std::string("f").append(std::to_string(i)).append(".").append(ext[rng() % 12]));
    }
  }
  return names;
}

void NaturalCompareAscii(benchmark::State& state) {
  auto names = typicalNames(1024);
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(tw::naturalCompare(names[i % 1024], names[(i + 1) % 1024]));
    ++i;
  }
}
BENCHMARK(NaturalCompareAscii);

void NaturalCompareUnicode(benchmark::State& state) {
  std::string a = "Ünïcode ƒile 12.txt", b = "unicode ƒile 9.txt";
  for (auto _ : state) benchmark::DoNotOptimize(tw::naturalCompare(a, b));
}
BENCHMARK(NaturalCompareUnicode);

// Sorting a folder of same-sized files, as a scan does for every folder.
void SortFolderOfEqualSizes(benchmark::State& state) {
  auto names = typicalNames(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    state.PauseTiming();
    tw::ScanNodeRef root = tw::ScanNode::makeRoot("/bench", true);
    for (const auto& name : names) {
      tw::ScanNode* n = root->createNode(name, false);
      n->setSize(4096);
      root->addChild(n);
    }
    state.ResumeTiming();
    root->sortRecursively();
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(SortFolderOfEqualSizes)->Arg(20)->Arg(1000)->Arg(100000);

}  // namespace
