// The reference of a repeated duplicate search: the candidate query over a whole saved scan and an
// lstat of every candidate, on one thread. Writes the candidates' paths, each followed by a NUL,
// for `xargs -0 -P2 sha256sum`, the reference of a first search.
// usage: dups_bench DATABASE LIST
#include <sqlite3.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "cli/json_line.h"
#include "store/duplicate_schema.h"

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fputs("usage: dups_bench DATABASE LIST\n", stderr);
    return 2;
  }
  using Clock = std::chrono::steady_clock;
  auto seconds = [](Clock::time_point from) {
    return std::chrono::duration<double>(Clock::now() - from).count();
  };
  const auto start = Clock::now();
  sqlite3* db = nullptr;
  if (sqlite3_open_v2(argv[1], &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) return 1;
  sqlite3_stmt* root = nullptr;
  sqlite3_prepare_v2(db, "SELECT root_node_id FROM scan_metadata WHERE id=1", -1, &root, nullptr);
  const sqlite3_int64 rootID = sqlite3_step(root) == SQLITE_ROW ? sqlite3_column_int64(root, 0) : 1;
  sqlite3_finalize(root);
  sqlite3_stmt* select = nullptr;
  if (sqlite3_prepare_v2(db, tw::schema::kDuplicateCandidates, -1, &select, nullptr) != SQLITE_OK)
    return 1;
  sqlite3_bind_int64(select, 1, rootID);
  std::vector<std::string> paths;
  while (sqlite3_step(select) == SQLITE_ROW)
    paths.emplace_back(reinterpret_cast<const char*>(sqlite3_column_text(select, 1)),
                       static_cast<std::size_t>(sqlite3_column_bytes(select, 1)));
  sqlite3_finalize(select);
  sqlite3_close(db);
  const double querySeconds = seconds(start);
  const auto lstatStart = Clock::now();
  uint64_t present = 0;
  for (const std::string& path : paths) {
    struct stat st {};
    present += ::lstat(path.c_str(), &st) == 0;
  }
  const double lstatSeconds = seconds(lstatStart);
  if (FILE* list = std::fopen(argv[2], "wb")) {
    for (const std::string& path : paths) std::fwrite(path.c_str(), 1, path.size() + 1, list);
    std::fclose(list);
  }
  tw::JsonLine line;
  line.add("candidates", static_cast<uint64_t>(paths.size()));
  line.add("present", present);
  line.add("query_s", querySeconds);
  line.add("lstat_s", lstatSeconds);
  line.add("reference_s", querySeconds + lstatSeconds);
  std::printf("%s\n", line.text().c_str());
  return 0;
}
