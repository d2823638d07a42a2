// Duplicate search over saved scans of real folders: which files form groups and in which order,
// checksums kept and reused, files changed after the scan never listed and their checksums
// cleared, batches rolled back or cancelled, and the listing kept in memory equal to the one the
// stored checksums give after every batch.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "store/scan_store.h"
#include "store/store_test_support.h"

namespace tw {
namespace {

// Each group as its key and its members' paths relative to `root`.
std::vector<std::string> describe(const std::vector<DuplicateGroup>& groups,
                                  const std::string& root) {
  std::vector<std::string> out;
  for (const DuplicateGroup& group : groups) {
    std::string line = group.key.substr(0, group.key.find(':') + 7) + ":";
    for (const ScanNodeRef& file : group.files) line += " " + file->path().substr(root.size() + 1);
    out.push_back(line);
  }
  return out;
}

class DuplicateSearchTest : public ::testing::Test {
 protected:
  // Content `seed` repeated to `bytes`: files of one seed and length are equal.
  void file(const std::string& relative, char seed, std::size_t bytes = 4000) {
    test::writeFile(tree.path("data/" + relative), std::string(bytes, seed));
  }
  void save() {
    ScanResult scan = test::scanTree(tree.path("data"));
    ASSERT_TRUE(ScanStore::writeRootNode(scan.root.get(), database));
    chmod(tree.folder("").c_str(), 0777);  // user nobody stores checksums too
    store = ScanStore::open(database);
    ASSERT_TRUE(store);
    root = store->rootNode();
  }
  std::vector<std::string> search(const DuplicateSearchOptions& options = {}) {
    figures = {};
    error = {};
    return describe(store->duplicateFilesUnderNode(root.get(), &byPath, options, &error, &figures),
                    root->path());
  }
  std::vector<std::string> snapshot() {
    return describe(store->duplicateSnapshotUnderNode(root.get()), root->path());
  }
  // The search run as user nobody, who cannot read what a test made unreadable; its groups are
  // then read back as the snapshot.
  std::string searchAsNobody() {
    if (geteuid() != 0) {
      search();
      return error.description;
    }
    chmod(database.c_str(), 0666);
    return test::runUnprivilegedReporting([&] {
      std::shared_ptr<ScanStore> own = ScanStore::open(database);
      Error failure;
      own->duplicateFilesUnderNode(own->rootNode().get(), nullptr, {}, &failure);
      return failure.description;
    });
  }
  std::optional<std::string> checksumOf(const std::string& relative) {
    return test::Sql(database).text(
        "SELECT hex(checksum) FROM items WHERE checksum IS NOT NULL AND "
        "path='" +
        tree.path("data/" + relative) + "'");
  }

  test::TempTree tree;
  std::string database = tree.path("scan.sqlite");
  std::shared_ptr<ScanStore> store;
  ScanNodeRef root;
  DuplicateGroupsByPath byPath;
  DuplicateSearchFigures figures;
  Error error;
};

TEST_F(DuplicateSearchTest, EqualFilesGroupLargestFirstAndASecondSearchReadsNothing) {
  file("a/same.txt", 'a');
  file("b/same copy.txt", 'a');
  file("b/other.txt", 'b');  // same size, other contents
  file("c/clone.txt", 'a');  // charged elsewhere
  file("big/one.bin", 'z', 9000);
  file("Big/two.bin", 'z', 9000);
  file("big/three.bin", 'z', 9000);
  save();
  test::Sql(database).exec("UPDATE items SET clone_allocation_elsewhere=1 WHERE name='clone.txt'");
  int progressCalls = 0;
  DuplicateSearchOptions options;
  options.progress = [&](const auto& groups, const auto&, bool finished) {
    progressCalls += finished ? 1 : 100;
    EXPECT_EQ(groups.size(), 2u);
  };
  std::vector<std::string> groups = search(options);
  const std::string bigKey = "12288:" + checksumOf("big/one.bin").value_or("?").substr(0, 6);
  const std::string smallKey = "4096:" + checksumOf("a/same.txt").value_or("?").substr(0, 6);
  EXPECT_EQ(groups, (std::vector<std::string>{bigKey + ": big/one.bin big/three.bin Big/two.bin",
                                              smallKey + ": a/same.txt b/same copy.txt"}));
  EXPECT_EQ(progressCalls, 1);
  EXPECT_EQ(byPath.size(), 5u);
  EXPECT_EQ(byPath[tree.path("data/b/same copy.txt")], 1u);
  EXPECT_EQ(figures.hashedFiles, 6u);  // the clone is never read
  EXPECT_EQ(figures.hashedBytes, 4000u * 3 + 9000u * 3);
  EXPECT_FALSE(checksumOf("c/clone.txt"));
  // Kept with the size and date it was computed at.
  struct stat st {};
  lstat(tree.path("data/a/same.txt").c_str(), &st);
  test::Sql sql(database);
  EXPECT_EQ(sql.integer("SELECT checksum_size FROM items WHERE name='same.txt'"), 4096);
  EXPECT_NEAR(std::stod(sql.text("SELECT checksum_modification_date FROM items WHERE "
                                 "name='same.txt'")
                            .value_or("0")),
              static_cast<double>(st.st_mtim.tv_sec) + st.st_mtim.tv_nsec / 1e9, 1e-4);
  EXPECT_EQ(search(), groups);
  EXPECT_EQ(figures.hashedBytes, 0u);
  EXPECT_EQ(snapshot(), groups);
}

TEST_F(DuplicateSearchTest, FilesChangedAfterTheScanAreNeverListedAndTheirChecksumsCleared) {
  // Each change is made once before the first search and once after it.
  const std::vector<std::pair<std::string, std::function<void(const std::string&)>>> changes = {
      {"rewritten", [](const std::string& p) { test::writeFile(p, std::string(4000, 'q')); }},
      {"truncated", [](const std::string& p) { truncate(p.c_str(), 0); }},
      {"grown", [](const std::string& p) { test::writeFile(p, std::string(9000, 'a')); }},
      {"removed", [](const std::string& p) { unlink(p.c_str()); }},
      {"folder",
       [](const std::string& p) {
         unlink(p.c_str());
         mkdir(p.c_str(), 0755);
       }},
      {"unreadable", [](const std::string& p) { chmod(p.c_str(), 0); }},
  };
  char seed = 'A';
  for (const char* when : {"before", "after"}) {
    for (const auto& [name, change] : changes) {
      file(std::string(when) + "/" + name, seed);
      file(std::string(when) + "/" + name + " twin", seed++);
    }
  }
  file("kept", 'k');
  file("kept twin", 'k');
  save();
  sleep(1);  // a rewrite gets another date even on coarse clocks
  for (const auto& [name, change] : changes) change(tree.path("data/before/" + name));
  ASSERT_EQ(searchAsNobody(), "");
  for (const auto& [name, change] : changes) change(tree.path("data/after/" + name));
  ASSERT_EQ(searchAsNobody(), "");
  store = ScanStore::open(database);
  root = store->rootNode();
  EXPECT_EQ(snapshot(), (std::vector<std::string>{"4096:" + checksumOf("kept")->substr(0, 6) +
                                                  ": kept kept twin"}));
  for (const char* when : {"before", "after"}) {
    for (const auto& [name, change] : changes) {
      const std::string changed = std::string(when) + "/" + name;
      EXPECT_FALSE(checksumOf(changed)) << changed;
      EXPECT_TRUE(checksumOf(changed + " twin")) << changed;
    }
  }
}

// Fails the read of one file by making it longer while it is read.
ino_t growingFile = 0;
ssize_t readWhileGrowing(int fd, void* buffer, size_t count) {
  struct stat st {};
  if (fstat(fd, &st) == 0 && st.st_ino == growingFile) {
    growingFile = 0;
    const int writer = open(("/proc/self/fd/" + std::to_string(fd)).c_str(), O_WRONLY | O_APPEND);
    EXPECT_EQ(write(writer, "more", 4), 4);
    close(writer);
  }
  return read(fd, buffer, count);
}

TEST_F(DuplicateSearchTest, AFileGrowingWhileItIsReadIsLeftOut) {
  file("growing", 'g');
  file("growing twin", 'g');
  file("steady", 'g', 3000);
  file("steady twin", 'g', 3000);
  save();
  struct stat st {};
  lstat(tree.path("data/growing").c_str(), &st);
  growingFile = st.st_ino;
  DuplicateSearchOptions options;
  options.read = &readWhileGrowing;
  EXPECT_EQ(search(options).size(), 1u);
  EXPECT_FALSE(byPath.count(tree.path("data/growing")));
  EXPECT_FALSE(checksumOf("growing"));
  EXPECT_EQ(figures.hashedFiles, 3u);
}

// 700 files in groups of sizes 4, 8 and 12 KB under folders whose names differ in case, some with
// checksums from an earlier search of one folder, some of those stale or wrong.
class DuplicateBatchTest : public DuplicateSearchTest {
 protected:
  void SetUp() override {
    for (int i = 0; i < 700; ++i) {
      const std::string folder = i % 4 == 0 ? "lower/deep" : i % 2 ? "Upper" : "upper";
      file(folder + "/f" + std::to_string(i), static_cast<char>('a' + i % 5),
           4000 + 4096 * static_cast<std::size_t>(i % 3));
    }
    save();
  }
};

TEST_F(DuplicateBatchTest, TheListingAfterEachBatchEqualsTheStoredChecksumsSnapshot) {
  DuplicateGroupsByPath lowerPaths;
  store->duplicateFilesUnderNode(store->nodeAtPath(tree.path("data/lower")).get(), &lowerPaths);
  ASSERT_EQ(lowerPaths.size(), 175u);
  test::Sql sql(database);
  // Wrong checksums that agree: f4 and f16 (8 KB) are stale and read again, f12 and f24 (4 KB)
  // carry the date they were computed at and are trusted.
  sql.exec("UPDATE items SET checksum_modification_date=1 WHERE name IN ('f4','f16')");
  sql.exec("UPDATE items SET checksum=zeroblob(32) WHERE name IN ('f4','f16','f12','f24')");
  int batches = 0;
  DuplicateSearchOptions options;
  options.progress = [&](const auto& groups, const auto& paths, bool) {
    ++batches;
    std::vector<std::string> expected = snapshot();
    EXPECT_EQ(describe(groups, root->path()), expected) << "batch " << batches;
    std::size_t members = 0;
    for (const DuplicateGroup& group : groups) members += group.files.size();
    EXPECT_EQ(paths.size(), members);
  };
  const std::vector<std::string> groups = search(options);
  EXPECT_EQ(batches, 6);  // 525 unread files and the two stale ones
  EXPECT_EQ(figures.hashedFiles, 527u);
  ASSERT_EQ(byPath.size(), 500u);  // of 700 members, the largest first
  EXPECT_EQ(groups.front().substr(0, 6), "12288:");
  EXPECT_EQ(groups.back().substr(0, 5), "4096:");
  EXPECT_EQ(sql.text("SELECT group_concat(name) FROM items WHERE checksum=zeroblob(32)"),
            "f12,f24");
}

TEST_F(DuplicateBatchTest, ALockedDatabaseEndsTheSearchWithTheGroupsOfTheStoredBatches) {
  test::Sql other(database);
  std::vector<std::string> first;
  DuplicateSearchOptions options;
  options.progress = [&](const auto& groups, const auto&, bool) {
    if (!first.empty()) return;
    first = describe(groups, root->path());
    other.exec("BEGIN IMMEDIATE");  // another writer holds the file from here on
  };
  EXPECT_EQ(search(options), first);
  EXPECT_EQ(error.code, SQLITE_BUSY) << error.description;
  other.exec("ROLLBACK");
  EXPECT_EQ(test::Sql(database).integer("SELECT COUNT(*) FROM items WHERE checksum IS NOT NULL"),
            100);
  EXPECT_EQ(snapshot(), first);
}

TEST_F(DuplicateBatchTest, CancellingStopsAfterTheBatchInHand) {
  DuplicateSearchOptions options;
  bool stop = false;
  options.progress = [&](const auto&, const auto&, bool) { stop = true; };
  options.shouldCancel = [&] { return stop; };
  search(options);
  EXPECT_TRUE(figures.cancelled);
  EXPECT_EQ(figures.storedBatches, 1u);
  EXPECT_EQ(test::Sql(database).integer("SELECT COUNT(*) FROM items WHERE checksum IS NOT NULL"),
            100);
}

}  // namespace
}  // namespace tw
