// Trash benchmark: moves COUNT small files (folders of 1,000) to a home trash inside WORKDIR in
// one call, then puts each back, and reports the median time of both over ROUNDS. The move
// includes the one sync that makes the .trashinfo files durable.
//
// usage: trash_bench WORKDIR [COUNT] [ROUNDS]
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "bench_timing.h"
#include "platform/trash.h"

namespace {

using tw::bench::Clock;
using tw::bench::median;
using tw::bench::secondsSince;

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: trash_bench WORKDIR [COUNT] [ROUNDS]\n");
    return 2;
  }
  const std::string work = argv[1];
  const int count = argc > 2 ? std::atoi(argv[2]) : 10000;
  const int rounds = argc > 3 ? std::atoi(argv[3]) : 3;
  std::filesystem::remove_all(work);
  std::vector<std::string> paths;
  const std::string bytes(1024, 'x');
  for (int i = 0; i < count; ++i) {
    const std::string folder = work + "/items/" + std::to_string(i / 1000);
    if (i % 1000 == 0) std::filesystem::create_directories(folder);
    paths.push_back(folder + "/file " + std::to_string(i) + ".dat");
    const int fd = open(paths.back().c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0 || write(fd, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()))
      return 1;
    close(fd);
  }
  sync();
  tw::TrashOptions options;
  options.homeTrash = work + "/Trash";
  std::vector<double> moves, restores;
  for (int round = 0; round < rounds; ++round) {
    tw::Error error;
    auto start = Clock::now();
    const auto mapping = tw::moveToTrash(paths, options, &error);
    moves.push_back(secondsSince(start));
    if (!mapping) {
      std::fprintf(stderr, "move failed: %s\n", error.description.c_str());
      return 1;
    }
    start = Clock::now();
    for (const auto& [original, trashed] : *mapping) {
      if (!tw::restoreFromTrash(trashed, original, options, &error)) {
        std::fprintf(stderr, "restore failed: %s\n", error.description.c_str());
        return 1;
      }
    }
    restores.push_back(secondsSince(start));
  }
  std::printf("%d files: move to Trash %.3f s, put back one by one %.3f s (median of %d)\n", count,
              median(moves), median(restores), rounds);
  std::filesystem::remove_all(work);
  return 0;
}
