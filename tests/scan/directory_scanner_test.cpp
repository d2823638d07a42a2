#include "scan/directory_scanner.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cmath>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <thread>

#include "scan/fingerprint.h"
#include "support/scan_trees.h"
#include "support/temp_tree.h"

namespace tw {
namespace {

using test::allocatedSize;
using test::find;
using test::scanTree;
using test::TempTree;

TEST(DirectoryScanner, FolderSizesAreTheAllocatedBytesOfEverythingBelowWithSmallOnesGrouped) {
  TempTree t;
  const auto a = t.file("a.bin", 10000);
  const auto b = t.file("sub/b.bin", 70000);
  const auto c = t.file("sub/deeper/c.bin", 1);
  t.file("sub/empty.txt", 0);
  t.folder("nothing");
  for (int i = 0; i < 8; ++i) t.file("many/big" + std::to_string(i), 400000);
  const auto tiny = t.file("many/tiny1", 10);
  t.file("many/tiny2", 10);
  ScanResult r = scanTree(t.root());
  ASSERT_TRUE(r.root);
  ScanNode* root = r.root.get();
  EXPECT_FALSE(root->isVolumeRoot());
  EXPECT_EQ(root->path(), t.root());
  EXPECT_EQ(find(root, "sub")->size(), allocatedSize(b) + allocatedSize(c));
  EXPECT_EQ(find(root, "sub/deeper/c.bin")->size(), allocatedSize(c));
  EXPECT_EQ(find(root, "nothing")->size(), 0u);
  EXPECT_EQ(find(root, "a.bin")->size(), allocatedSize(a));
  ScanNode* many = find(root, "many");
  EXPECT_EQ(root->size(), allocatedSize(a) + allocatedSize(b) + allocatedSize(c) + many->size());
  // Largest first, then by name.
  EXPECT_EQ(test::childNames(root), (test::Names{"many", "sub", "a.bin", "nothing"}));
  EXPECT_EQ(r.statistics.itemsVisited, 18u);
  EXPECT_TRUE(root->scanIssues().empty());
  EXPECT_GT(root->scanDate(), 1.6e9);
  // Below half a percent of a folder, children are grouped; the group keeps them.
  ASSERT_EQ(many->children().size(), 9u);
  ScanNode* group = many->children().back();
  EXPECT_EQ(group->name(), kSmallerObjectsName);
  EXPECT_TRUE(group->isAggregate());
  EXPECT_EQ(group->path(), t.path("many"));
  EXPECT_EQ(group->size(), allocatedSize(tiny) * 2);
  EXPECT_EQ(find(group, "tiny2")->path(), t.path("many/tiny2"));
}

TEST(DirectoryScanner, ScannerCountsHardLinkedFileOnce) {
  TempTree t;
  t.file("one/big.bin", 1 << 20);
  t.hardLink("one/big.bin", "two/again.bin");
  t.hardLink("one/big.bin", "one/twin.bin");
  ScanResult r = scanTree(t.root());
  ASSERT_TRUE(r.root);
  EXPECT_EQ(r.root->size(), allocatedSize(t.path("one/big.bin")));
  // The first path met carries the size; the others have no node at all.
  int nodes = (find(r.root.get(), "one/big.bin") != nullptr) +
              (find(r.root.get(), "one/twin.bin") != nullptr) +
              (find(r.root.get(), "two/again.bin") != nullptr);
  EXPECT_EQ(nodes, 1);
}

TEST(DirectoryScanner, ExcludedPathsAndNamePatternsAreLeftOut) {
  TempTree t;
  t.file("keep/a.txt", 5000);
  t.file("keep/x/c.LOG", 5000);  // two folders deep, upper-case extension
  t.file("keep/Café.tmp", 5000);
  t.file("skipme/inner/big.bin", 300000);
  t.file("home/cache/junk.bin", 300000);
  ScanSettings settings;
  settings.excludedPaths = {t.path("skipme") + "/", "~/cache"};
  settings.excludedFilePatterns = {"*.log", "  cafe*  ", "", "keep/nothing*"};
  setenv("HOME", t.path("home").c_str(), 1);
  ScanResult r = scanTree(t.root(), nullptr, settings);
  ASSERT_TRUE(r.root);
  EXPECT_EQ(find(r.root.get(), "skipme"), nullptr);
  EXPECT_EQ(find(r.root.get(), "home/cache"), nullptr);
  EXPECT_NE(find(r.root.get(), "home"), nullptr);
  EXPECT_EQ(find(r.root.get(), "keep/x/c.LOG"), nullptr);
  EXPECT_EQ(find(r.root.get(), "keep/Café.tmp"), nullptr);
  EXPECT_NE(find(r.root.get(), "keep/a.txt"), nullptr);
  EXPECT_EQ(r.root->size(), allocatedSize(t.path("keep/a.txt")));

  // The snapshot that checks a saved scan's freshness leaves out the same items.
  DirectoryScanner::Options options;
  options.settings = [settings] { return settings; };
  SourceSnapshot snapshot = DirectoryScanner::computeSourceSnapshot(t.root(), options);
  EXPECT_EQ(snapshot.fingerprint, r.root->sourceFingerprint());
  EXPECT_EQ(snapshot.itemCount, 4);  // keep, keep/a.txt, keep/x, home
  EXPECT_EQ(r.root->sourceItemCount(), 4);

  // A pattern may also match the path relative to the root.
  settings = {};
  settings.excludedFilePatterns = {"keep/x"};
  r = scanTree(t.root(), nullptr, settings);
  EXPECT_EQ(find(r.root.get(), "keep/x"), nullptr);
  EXPECT_NE(find(r.root.get(), "keep/a.txt"), nullptr);
}

TEST(DirectoryScanner, PackagesAreLeftOutButArchivesAreScanned) {
  TempTree t;
  t.file("Tool.app/Contents/MacOS/tool", 200000);
  t.file("Build.xcarchive/Products/thing", 100000);
  ScanResult r = scanTree(t.root());
  ASSERT_TRUE(r.root);
  EXPECT_EQ(find(r.root.get(), "Tool.app"), nullptr);
  ASSERT_NE(find(r.root.get(), "Build.xcarchive/Products/thing"), nullptr);
  EXPECT_EQ(r.root->size(), allocatedSize(t.path("Build.xcarchive/Products/thing")));

  ScanSettings keepPackages;
  keepPackages.skipPackages = false;
  r = scanTree(t.root(), nullptr, keepPackages);
  ScanNode* app = find(r.root.get(), "Tool.app");
  ASSERT_NE(app, nullptr);
  EXPECT_TRUE(app->isPackage());
  EXPECT_TRUE(app->isDirectory());
  EXPECT_NE(find(app, "Contents/MacOS/tool"), nullptr);
}

// The fingerprint of one item computed the long way, from its description.
uint64_t itemFingerprint(const std::string& relative, bool folder, uint64_t size, double mtime) {
  uint64_t h = 0x14650FB0739D0383ULL;
  auto feed = [&h](unsigned char c) { h = (h ^ c) * 0x100000001B3ULL; };
  for (unsigned char c : relative) feed(c);
  feed(folder ? 1 : 0);
  for (int i = 0; i < 8; ++i) feed(static_cast<unsigned char>(size >> (8 * i)));
  uint64_t bits;
  std::memcpy(&bits, &mtime, 8);
  for (int i = 0; i < 8; ++i) feed(static_cast<unsigned char>(bits >> (8 * i)));
  return h;
}

TEST(DirectoryScanner, FingerprintSumsItemsWithTheFixedStartValue) {
  TempTree t;
  t.file("d/f.txt", 123);
  t.file("Thing.app/inside", 10);
  t.hardLink("d/f.txt", "d/g.txt");
  t.symlink("d", "link");
  t.setModificationTime("d/f.txt", 1700000000.25);
  t.setModificationTime("d", 1600000000.0);
  t.setModificationTime("Thing.app", 1500000000.0);
  ScanResult r = scanTree(t.root());
  ASSERT_TRUE(r.root);
  const double fileTime = 1700000000.25;
  // A folder's logical size is whatever the file system reports for it.
  struct stat d {};
  stat(t.path("d").c_str(), &d);
  struct stat app {};
  stat(t.path("Thing.app").c_str(), &app);
  const uint64_t expected =
      itemFingerprint("/d", true, static_cast<uint64_t>(d.st_size), 1600000000.0) +
      itemFingerprint("/d/f.txt", false, 123, fileTime) +
      itemFingerprint("/d/g.txt", false, 123, fileTime) +
      itemFingerprint("/Thing.app", true, static_cast<uint64_t>(app.st_size), 1500000000.0);
  EXPECT_EQ(r.root->sourceFingerprint(), expected);
  EXPECT_EQ(r.root->sourceItemCount(), 4);

  SourceSnapshot snapshot = DirectoryScanner::computeSourceSnapshot(t.root(), {});
  EXPECT_EQ(snapshot.fingerprint, expected);
  EXPECT_EQ(snapshot.itemCount, 4);
  EXPECT_FALSE(snapshot.error.has_value());

  t.setModificationTime("d/f.txt", 1700000001.0);
  EXPECT_NE(DirectoryScanner::computeSourceSnapshot(t.root(), {}).fingerprint, expected);
}

TEST(DirectoryScanner, ProgressEvery512ItemsFollowsTheCurveAndEndsWithFixedSteps) {
  TempTree t;
  for (int i = 0; i < 1100; ++i) t.file("f/" + std::to_string(i), i % 3 ? 100 : 0);
  std::vector<std::tuple<uint64_t, uint64_t, double>> seen;
  DirectoryScanner scanner({});
  const uint64_t estimate = 1'000'000;
  ScanResult r = scanner.scanNow(t.root(), estimate, [&](uint64_t bytes, uint64_t items, double f) {
    seen.emplace_back(bytes, items, f);
  });
  ASSERT_TRUE(r.root);
  ASSERT_EQ(seen.size(), 5u);
  EXPECT_EQ(std::get<1>(seen[0]), 512u);
  EXPECT_EQ(std::get<1>(seen[1]), 1024u);
  for (int i = 0; i < 2; ++i) {
    double x = static_cast<double>(std::get<0>(seen[i])) / estimate;
    EXPECT_DOUBLE_EQ(std::get<2>(seen[i]), std::min(0.915, 0.92 * (1 - std::exp(-2 * x))));
  }
  EXPECT_EQ(std::get<2>(seen[2]), 0.92);
  EXPECT_EQ(std::get<2>(seen[3]), 0.97);
  EXPECT_EQ(std::get<2>(seen[4]), 0.995);
  EXPECT_EQ(std::get<1>(seen[4]), 1101u);
  EXPECT_EQ(walkProgressFraction(10 * estimate, estimate), 0.915);

  seen.clear();
  scanner.scanNow(t.root(), 0,
                  [&](uint64_t b, uint64_t i, double f) { seen.emplace_back(b, i, f); });
  ASSERT_EQ(seen.size(), 3u);
  for (auto& s : seen) EXPECT_EQ(std::get<2>(s), -1.0);
}

TEST(DirectoryScanner, ScanRunsInTheBackgroundIgnoresASecondStartAndWhenCancelledDeliversNoTree) {
  TempTree t;
  t.file("a", 5000);
  std::mutex m;
  std::condition_variable cv;
  std::vector<std::function<void()>> posted;  // plays the GUI thread's queue
  std::atomic<DirectoryScanner*> cancelOnProgress{nullptr};
  DirectoryScanner::Options options;
  options.callbackExecutor = [&](std::function<void()> f) {
    if (DirectoryScanner* scanner = cancelOnProgress.load()) scanner->cancel();  // on the walk
    std::lock_guard lock(m);
    posted.push_back(std::move(f));
    cv.notify_all();
  };
  DirectoryScanner scanner(options);
  int completions = 0;
  ScanNodeRef delivered;
  bool cancelledFlag = false;
  auto completion = [&](ScanNodeRef root, std::optional<Error> error, bool cancelled) {
    ++completions;
    delivered = root;
    cancelledFlag = cancelled && !error;
  };
  // Runs what the walk posts until its completion has run on "the GUI thread".
  auto finish = [&] {
    for (int seen = completions; completions == seen;) {
      std::unique_lock lock(m);
      ASSERT_TRUE(cv.wait_for(lock, std::chrono::seconds(30), [&] { return !posted.empty(); }));
      auto next = std::move(posted.front());
      posted.erase(posted.begin());
      lock.unlock();
      EXPECT_TRUE(scanner.isScanning());  // until the completion runs
      next();
    }
  };
  scanner.scanURL(t.root(), 0, nullptr, completion);
  scanner.scanURL(t.root(), 0, nullptr, completion);  // ignored: one is running
  finish();
  EXPECT_FALSE(scanner.isScanning());
  EXPECT_EQ(completions, 1);
  ASSERT_TRUE(delivered);
  EXPECT_EQ(delivered->size(), allocatedSize(t.path("a")));
  EXPECT_FALSE(cancelledFlag);

  for (int i = 0; i < 2000; ++i) t.file("f/" + std::to_string(i), 0);
  cancelOnProgress = &scanner;
  scanner.scanURL(
      t.root(), 0, [](uint64_t, uint64_t, double) {}, completion);
  finish();
  EXPECT_EQ(delivered, nullptr);
  EXPECT_TRUE(cancelledFlag);
  EXPECT_TRUE(scanner.isCancellationRequested());
}

TEST(DirectoryScanner, MissingRootOrFileRootBecomesAnIssueOfTheRoot) {
  TempTree t;
  t.file("plain.txt", 100);
  for (auto [root, message] : {std::pair{t.path("gone"), "No such file or directory"},
                               std::pair{t.path("plain.txt"), "Not a directory"}}) {
    ScanResult r = scanTree(root);
    ASSERT_TRUE(r.root);
    EXPECT_FALSE(r.root->isDirectory());
    EXPECT_EQ(r.root->size(), 0u);
    EXPECT_EQ(r.root->scanIssues(), (std::vector<ScanIssue>{{root, message}}));
  }
}

}  // namespace
}  // namespace tw
