// Bad input on real trees: unreadable and vanishing items, FIFOs and sockets, odd names, very deep
// paths, huge folders, symbolic link loops, mounts below the root, reflinked files on XFS, and the
// same result whatever the number of reading threads. Each must end as a scan issue or as the
// counting rules say, never as a crash or a hang.
#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <cstring>
#include <filesystem>
#include <set>

#include "scan/directory_scanner.h"
#include "support/scan_trees.h"
#include "support/temp_tree.h"
#include "support/test_volume_layout.h"

namespace tw {
namespace {

using test::allocatedSize;
using test::child;
using test::issuesText;
using test::TempTree;
using test::Watchdog;

ScanResult scanWith(const std::string& path, int threads,
                    std::shared_ptr<const VolumeLayout> layout = nullptr,
                    const ProgressHandler& progress = nullptr) {
  return test::scanTree(path, std::move(layout), {}, threads, progress);
}

// Every real (not synthetic) node below and including `root`.
std::vector<ScanNode*> realNodes(ScanNode* root) {
  std::vector<ScanNode*> out, pending{root};
  while (!pending.empty()) {
    ScanNode* node = pending.back();
    pending.pop_back();
    if (!node->isSynthetic()) out.push_back(node);
    for (ScanNode* c : node->children()) pending.push_back(c);
  }
  return out;
}

// A file of `bytes` written without a sync of its own (sync the file system once afterwards).
void writeFile(const std::string& path, std::size_t bytes, char fill = 'x') {
  test::writeFile(path, std::string(bytes, fill));
}

void syncFileSystemOf(const std::string& path) {
  int fd = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd >= 0) syncfs(fd), close(fd);
}

// Removes the folder `name` in `dirfd` and all it holds, through descriptors only, so paths of
// any length go.
void removeBelow(int dirfd, const char* name) {
  int fd = openat(dirfd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) {
    unlinkat(dirfd, name, 0);
    return;
  }
  DIR* dir = fdopendir(fd);
  std::vector<std::string> entries;
  while (dirent* d = readdir(dir))
    if (std::strcmp(d->d_name, ".") && std::strcmp(d->d_name, "..")) entries.push_back(d->d_name);
  for (const std::string& entry : entries) removeBelow(fd, entry.c_str());
  closedir(dir);
  unlinkat(dirfd, name, AT_REMOVEDIR);
}

// --- Unreadable and vanishing items -----------------------------------------------------------

TEST(ScannerUnreadable, UnreadableFolderAndUnsearchableEntriesBecomeIssuesAndSiblingsStillCount) {
  TW_SKIP_UNLESS_ROOT();
  TempTree tree;
  tree.file("locked/secret.bin", 65536);
  tree.file("locked/inner/more.bin", 4096);
  chmod(tree.path("locked").c_str(), 0700);
  // Readable but not searchable: the names can be listed, their metadata cannot be read.
  tree.file("listonly/x.bin", 4096);
  tree.file("listonly/y.bin", 4096);
  chmod(tree.path("listonly").c_str(), 0744);
  const uint64_t expected =
      allocatedSize(tree.file("open/a.bin", 8192)) + allocatedSize(tree.file("b.bin", 12288));

  const std::string report = test::runUnprivilegedReporting([&]() -> std::string {
    std::string problems;
    for (int threads : {1, 2}) {
      ScanResult result = scanWith(tree.root(), threads);
      const std::string tag = "threads " + std::to_string(threads) + ": ";
      if (!result.root) return tag + "no tree";
      ScanNode* root = result.root.get();
      std::multiset<std::pair<std::string, std::string>> issues;
      for (const ScanIssue& issue : root->scanIssues()) issues.insert({issue.path, issue.message});
      const std::multiset<std::pair<std::string, std::string>> want = {
          {tree.path("locked"), "Permission denied"},
          {tree.path("listonly/x.bin"), "Permission denied"},
          {tree.path("listonly/y.bin"), "Permission denied"}};
      if (issues != want) problems += tag + "issues were\n" + issuesText(root->scanIssues());
      if (root->size() != expected)
        problems += tag + "root size " + std::to_string(root->size()) + " instead of " +
                    std::to_string(expected) + "\n";
      for (const char* name : {"locked", "listonly"}) {
        ScanNode* folder = child(root, name);
        if (!folder || folder->size() != 0 || !folder->children().empty())
          problems += tag + name + " is not an empty node\n";
      }
      if (!test::find(root, "open/a.bin") || !child(root, "b.bin"))
        problems += tag + "a sibling is missing\n";
    }
    return problems;
  });
  EXPECT_EQ(report, "");
}

TEST(ScannerUnreadable, FilesComingAndGoingDuringTheWalkNeverBreakIt) {
  TempTree tree;
  const std::string churn = tree.folder("churn");
  tree.folder("stable");
  for (int i = 0; i < 50; ++i) writeFile(tree.path("stable/s" + std::to_string(i)), 4096);
  const uint64_t stableBytes = 50 * allocatedSize(tree.path("stable/s0"));

  std::atomic<bool> stop{false};
  std::thread churner([&] {
    for (unsigned n = 0; !stop.load(); ++n) {
      const std::string file = churn + "/f" + std::to_string(n % 400);
      const std::string folder = churn + "/d" + std::to_string(n % 40);
      if (access(file.c_str(), F_OK) == 0) {
        unlink(file.c_str());
      } else {
        close(open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
      }
      if (rmdir(folder.c_str()) != 0) mkdir(folder.c_str(), 0755);
    }
  });
  Watchdog watchdog("walks over a changing folder", 20);
  std::string problems;
  for (int round = 0; round < 40 && problems.empty(); ++round) {
    ScanResult result = scanWith(tree.root(), 1 + round % 3);
    if (!result.root) {
      problems = "no tree";
      break;
    }
    for (const ScanIssue& issue : result.root->scanIssues())
      if (issue.path.rfind(churn + "/", 0) != 0 || issue.message != "No such file or directory")
        problems += issue.path + ": " + issue.message + "\n";
    ScanNode* stable = child(result.root.get(), "stable");
    if (!stable || stable->size() != stableBytes) problems += "stable folder miscounted\n";
  }
  stop = true;
  churner.join();
  EXPECT_EQ(problems, "");
}

// --- FIFOs and sockets ------------------------------------------------------------------------

TEST(ScannerSpecialFiles, FifoAndSocketCountAsItemsOfSizeZero) {
  TempTree tree;
  tree.fifo("pipe");
  const uint64_t fileBytes = allocatedSize(tree.file("data.bin", 8192));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string socketPath = tree.path("sock");
  ASSERT_LT(socketPath.size(), sizeof address.sun_path);
  std::strcpy(address.sun_path, socketPath.c_str());
  int s = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  ASSERT_EQ(bind(s, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);

  Watchdog watchdog("walk over a FIFO and a socket", 20);
  for (int threads : {1, 2}) {
    ScanResult result = scanWith(tree.root(), threads);
    ASSERT_TRUE(result.root);
    ScanNode* root = result.root.get();
    EXPECT_EQ(issuesText(root->scanIssues()), "");
    for (const char* name : {"pipe", "sock"}) {
      ScanNode* node = child(root, name);
      ASSERT_NE(node, nullptr) << name;
      EXPECT_EQ(node->size(), 0u) << name;
      EXPECT_FALSE(node->isDirectory()) << name;
    }
    EXPECT_EQ(root->size(), fileBytes);
    EXPECT_EQ(result.statistics.itemsVisited, 3u);
    EXPECT_EQ(root->sourceItemCount(), 3);
  }
  close(s);
}

TEST(ScannerUnreadable, FolderRemovedOrSwappedForAFifoMidWalkFailsFastAsAnIssue) {
  for (const bool fifo : {false, true}) {
    for (int threads : {1, 2}) {
      SCOPED_TRACE(std::string(fifo ? "FIFO" : "removed") + ", threads " + std::to_string(threads));
      TempTree tree;
      for (int i = 0; i < 600; ++i) {
        writeFile(tree.path("one/f" + std::to_string(i)), 0);
        writeFile(tree.path("two/g" + std::to_string(i)), 0);
      }
      const std::vector<std::string> order = test::listFolder(tree.root(), false);
      ASSERT_EQ(order.size(), 2u);
      const std::string second = tree.path(order[1]);
      bool swapped = false;
      ProgressHandler progress = [&](uint64_t, uint64_t, double) {
        if (swapped) return;
        swapped = true;
        std::filesystem::remove_all(second);
        if (fifo) mkfifo(second.c_str(), 0644);
      };
      Watchdog watchdog("walk over a vanishing folder", 20);
      ScanResult result = scanWith(tree.root(), threads, nullptr, progress);
      ASSERT_TRUE(swapped);
      ASSERT_TRUE(result.root);
      if (threads == 1) {
        // Nothing read the second folder ahead of the swap, so the walk meets what replaced it.
        const std::vector<ScanIssue> want = {
            {second, fifo ? "Not a directory" : "No such file or directory"}};
        EXPECT_EQ(result.root->scanIssues(), want);
        ScanNode* walked = child(result.root.get(), order[0]);
        ASSERT_NE(walked, nullptr);
        EXPECT_EQ(realNodes(walked).size(), 601u);
      } else {
        // A reading thread may have listed the folder before the swap, and then its files vanish
        // under it; either way nothing blocks and the issues are about that folder.
        for (const ScanIssue& issue : result.root->scanIssues()) {
          EXPECT_EQ(issue.path.rfind(second, 0), 0u) << issue.path;
          EXPECT_TRUE(issue.message == "Not a directory" ||
                      issue.message == "No such file or directory")
              << issue.message;
        }
      }
    }
  }
}

TEST(ScannerSpecialFiles, FifoAsTheRootFailsAtOnceWhateverTheThreadCount) {
  TempTree tree;
  const std::string fifo = tree.fifo("pipe");
  Watchdog watchdog("reading a FIFO as a folder", 10);
  for (int threads : {1, 2}) {
    ScanResult result = scanWith(fifo, threads);
    ASSERT_TRUE(result.root);
    EXPECT_EQ(result.root->scanIssues(), (std::vector<ScanIssue>{{fifo, "Not a directory"}}));
  }
}

TEST(ScannerSpecialFiles, CloneProbeOfAFileSwappedForAFifoGivesNothing) {
  // The walk saw a large regular file; by the time clone attributes are asked for, a FIFO has
  // taken its name. Opening it must not wait for a writer.
  TempTree tree;
  const std::string path = tree.file("big.bin", 2 << 20);
  struct statx before {};
  ASSERT_EQ(statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, STATX_BASIC_STATS, &before), 0);
  unlink(path.c_str());
  tree.fifo("big.bin");

  Watchdog watchdog("clone probe of a FIFO", 10);
  int dirfd = open(tree.root().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  EXPECT_FALSE(makeLinuxVolumeLayout()->cloneAttributes(dirfd, "big.bin", before).has_value());
  close(dirfd);
}

// --- Names, depth and width -------------------------------------------------------------------

TEST(ScannerNames, NamesThatAreNotUtf8AreKeptByteForByte) {
  TempTree tree;
  const std::string folder = "caf\xe9";             // Latin-1 e-acute
  const std::string file = "\xff\xfe\x80 raw.bin";  // bytes no UTF-8 text contains
  const std::string half = "half\xc3";              // a sequence cut short
  tree.file(folder + "/" + file, 4096);
  tree.file(half, 4096);
  tree.setModificationTime(half, 1234567890.5);

  ScanResult result = scanWith(tree.root(), 2);
  ASSERT_TRUE(result.root);
  EXPECT_EQ(issuesText(result.root->scanIssues()), "");
  ScanNode* folderNode = child(result.root.get(), folder);
  ASSERT_NE(folderNode, nullptr);
  EXPECT_EQ(std::string(folderNode->name()), folder);
  ScanNode* fileNode = child(folderNode, file);
  ASSERT_NE(fileNode, nullptr);
  EXPECT_EQ(fileNode->path(), tree.root() + "/" + folder + "/" + file);
  ScanNode* halfNode = child(result.root.get(), half);
  ASSERT_NE(halfNode, nullptr);
  EXPECT_EQ(halfNode->path(), tree.path(half));
  EXPECT_DOUBLE_EQ(halfNode->modificationDate(), 1234567890.5);
  EXPECT_EQ(result.root->size(),
            allocatedSize(tree.path(folder + "/" + file)) + allocatedSize(tree.path(half)));

  // The snapshot reads the same bytes, so its fingerprint matches the scan's.
  SourceSnapshot snapshot = DirectoryScanner::computeSourceSnapshot(tree.root(), {});
  EXPECT_EQ(snapshot.fingerprint, result.root->sourceFingerprint());
  EXPECT_EQ(snapshot.itemCount, 3);
}

TEST(ScannerNames, PathLongerThanPathMaxIsWalkedToTheDeepestFile) {
  TempTree tree;
  const std::string name(200, 'd');
  // Removed through descriptors: the usual removal goes by full paths, which are too long here.
  struct DeepRemoval {
    const TempTree& tree;
    const std::string& name;
    ~DeepRemoval() {
      int rootfd = open(tree.root().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
      removeBelow(rootfd, name.c_str());
      close(rootfd);
    }
  } removal{tree, name};
  int fd = open(tree.root().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  ASSERT_GE(fd, 0);
  std::string expectedPath = tree.root();
  const int depth = 2 * PATH_MAX / 200;
  for (int level = 0; level < depth; ++level) {
    ASSERT_EQ(mkdirat(fd, name.c_str(), 0755), 0) << std::strerror(errno);
    int next = openat(fd, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    close(fd);
    ASSERT_GE(next, 0);
    fd = next;
    expectedPath += "/" + name;
  }
  const int file = openat(fd, "deepest.bin", O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
  ASSERT_EQ(write(file, std::string(8192, 'x').data(), 8192), 8192);
  close(file);
  struct stat st {};
  ASSERT_EQ(fstatat(fd, "deepest.bin", &st, 0), 0);
  close(fd);
  expectedPath += "/deepest.bin";
  ASSERT_GT(expectedPath.size(), static_cast<std::size_t>(PATH_MAX));

  ScanResult result = scanWith(tree.root(), 2);
  ASSERT_TRUE(result.root);
  EXPECT_EQ(issuesText(result.root->scanIssues()), "");
  ScanNode* node = result.root.get();
  for (int level = 0; level < depth && node; ++level) node = child(node, name);
  ASSERT_NE(node, nullptr);
  ScanNode* deepest = child(node, "deepest.bin");
  ASSERT_NE(deepest, nullptr);
  EXPECT_EQ(deepest->path(), expectedPath);
  EXPECT_EQ(deepest->size(), static_cast<uint64_t>(st.st_blocks) * 512);
  EXPECT_EQ(result.root->size(), deepest->size());
  EXPECT_EQ(result.statistics.itemsVisited, static_cast<uint64_t>(depth + 1));
}

TEST(ScannerNames, FolderOfAHundredThousandEntriesIsCountedExactly) {
  TempTree tree;
  test::MountGuard mounts;
  // Making 100,000 files on a disk file system can take many seconds on a slow machine; in memory
  // it takes well under one. The scan root stays a folder below the mount, not a whole disk.
  if (test::canMount()) mounts.mount("tarnwell-test", tree.folder("ram"), "tmpfs", 0, "size=64m");
  const std::string top = tree.path("ram/top");
  constexpr int kEntries = 100000;
  const std::string folder = tree.folder("ram/top/wide");
  int dirfd = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  ASSERT_GE(dirfd, 0);
  for (int i = 0; i < kEntries; ++i) {
    char name[16];
    std::snprintf(name, sizeof name, "e%06d", i);
    int fd = openat(dirfd, name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    ASSERT_GE(fd, 0) << name;
    close(fd);
  }
  close(dirfd);
  writeFile(folder + "/e000000", 4096);  // one entry with data, so the folder has a size
  const uint64_t bytes = allocatedSize(folder + "/e000000");

  ScanResult result = scanWith(top, 2);
  ASSERT_TRUE(result.root);
  EXPECT_EQ(issuesText(result.root->scanIssues()), "");
  EXPECT_EQ(result.statistics.itemsVisited, static_cast<uint64_t>(kEntries + 1));
  EXPECT_EQ(result.root->sourceItemCount(), kEntries + 1);
  EXPECT_EQ(result.root->size(), bytes);
  ScanNode* wide = child(result.root.get(), "wide");
  ASSERT_NE(wide, nullptr);
  std::set<std::string> names;
  for (ScanNode* node : realNodes(wide))
    if (node != wide) names.insert(std::string(node->name()));
  EXPECT_EQ(names.size(), static_cast<std::size_t>(kEntries));
  EXPECT_TRUE(names.contains("e000000") && names.contains("e099999"));
}

TEST(ScannerNames, SymbolicLinkLoopsAreNeitherFollowedNorCounted) {
  TempTree tree;
  const uint64_t bytes = allocatedSize(tree.file("real/data.bin", 1 << 20));
  tree.symlink("b", "real/a");
  tree.symlink("a", "real/b");
  tree.symlink(".", "real/self");
  tree.symlink("..", "real/up");
  tree.symlink(tree.root(), "real/top");
  tree.symlink("data.bin", "real/alias.bin");
  tree.symlink("nowhere", "real/dangling");

  Watchdog watchdog("walk over symbolic link loops", 20);
  ScanResult result = scanWith(tree.root(), 2);
  ASSERT_TRUE(result.root);
  EXPECT_EQ(issuesText(result.root->scanIssues()), "");
  EXPECT_EQ(result.root->size(), bytes);
  EXPECT_EQ(result.statistics.itemsVisited, 2u);  // real and data.bin
  EXPECT_EQ(result.root->sourceItemCount(), 2);
  ScanNode* real = child(result.root.get(), "real");
  ASSERT_NE(real, nullptr);
  for (const char* link : {"a", "b", "self", "up", "top", "alias.bin", "dangling"})
    EXPECT_EQ(child(real, link), nullptr) << link;

  // A root that is itself a loop ends as an issue about the root.
  const std::string loop = tree.symlink(tree.path("loop"), "loop");
  ScanResult looped = scanWith(loop, 2);
  ASSERT_TRUE(looped.root);
  const std::vector<ScanIssue> want = {{loop, "Too many levels of symbolic links"}};
  EXPECT_EQ(looped.root->scanIssues(), want);
  EXPECT_EQ(looped.root->size(), 0u);
}

// --- Mounts below the root --------------------------------------------------------------------

TEST(ScannerMounts, BindMountAndSeparateFileSystemBelowTheRootAreLeftOutSilently) {
  if (!test::canMount())
    GTEST_SKIP() << "mounting is not allowed here (needs root with CAP_SYS_ADMIN)";
  TempTree tree;
  const uint64_t bytes = allocatedSize(tree.file("data/file.bin", 1 << 20));
  tree.folder("ram");
  tree.folder("bind");
  test::MountGuard mounts;
  ASSERT_TRUE(mounts.mount("tarnwell-test", tree.path("ram"), "tmpfs", 0, "size=8m"))
      << std::strerror(errno);
  ASSERT_TRUE(mounts.mount(tree.path("data").c_str(), tree.path("bind"), nullptr, MS_BIND, nullptr))
      << std::strerror(errno);
  writeFile(tree.path("ram/in-memory.bin"), 1 << 20);
  ASSERT_EQ(access(tree.path("bind/file.bin").c_str(), F_OK), 0);

  for (int threads : {1, 2}) {
    ScanResult result = scanWith(tree.root(), threads);
    ASSERT_TRUE(result.root);
    EXPECT_EQ(issuesText(result.root->scanIssues()), "");
    EXPECT_EQ(result.root->size(), bytes);
    EXPECT_EQ(child(result.root.get(), "ram"), nullptr);
    EXPECT_EQ(child(result.root.get(), "bind"), nullptr);
    EXPECT_NE(test::find(result.root.get(), "data/file.bin"), nullptr);
    EXPECT_EQ(result.statistics.itemsVisited, 2u);

    // The snapshot draws the same boundary, or saved fingerprints would never match.
    SourceSnapshot snapshot = DirectoryScanner::computeSourceSnapshot(tree.root(), {});
    EXPECT_EQ(snapshot.fingerprint, result.root->sourceFingerprint());
    EXPECT_EQ(snapshot.itemCount, 2);
  }
}

// --- Reflinked files on XFS -------------------------------------------------------------------

// The physical offset of a file's first shared extent, read independently of the layout.
std::optional<uint64_t> firstSharedExtent(const std::string& path) {
  int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return std::nullopt;
  alignas(fiemap) char buffer[sizeof(fiemap) + 256 * sizeof(fiemap_extent)] = {};
  auto* map = reinterpret_cast<fiemap*>(buffer);
  map->fm_length = FIEMAP_MAX_OFFSET;
  map->fm_extent_count = 256;
  std::optional<uint64_t> found;
  if (ioctl(fd, FS_IOC_FIEMAP, map) == 0) {
    for (unsigned i = 0; i < map->fm_mapped_extents && !found; ++i)
      if (map->fm_extents[i].fe_flags & FIEMAP_EXTENT_SHARED)
        found = map->fm_extents[i].fe_physical;
  }
  close(fd);
  return found;
}

class XfsReflinkTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!test::canMount()) GTEST_SKIP() << "mounting is not allowed here; reflink test skipped";
    if (std::system("command -v mkfs.xfs >/dev/null 2>&1") != 0)
      GTEST_SKIP() << "mkfs.xfs is missing (package xfsprogs); reflink test skipped";
    image_ = tree_.path("xfs.img");
    mountPoint_ = tree_.folder("mnt");
    test::writeFile(image_, "");
    ASSERT_EQ(truncate(image_.c_str(), 512ll << 20), 0);
    if (std::system(("mkfs.xfs -q -m reflink=1 '" + image_ + "' >/dev/null 2>&1").c_str()) != 0)
      GTEST_SKIP() << "mkfs.xfs could not make a reflink file system here";
    if (std::system(("mount -o loop '" + image_ + "' '" + mountPoint_ + "' 2>/dev/null").c_str()) !=
        0)
      GTEST_SKIP() << "a loop-mounted XFS image was refused here; reflink test skipped";
    mounted_ = true;

    dir_ = mountPoint_ + "/dir";
    mkdir(dir_.c_str(), 0755);
    writeFile(dir_ + "/original.bin", 2 << 20, 'o');
    writeFile(dir_ + "/small.bin", 512 << 10, 's');
    writeFile(dir_ + "/alone.bin", 3 << 20, 'a');
    syncFileSystemOf(dir_);
    ASSERT_EQ(reflink("original.bin", "copy.bin"), 0);
    ASSERT_EQ(reflink("small.bin", "small-copy.bin"), 0);
    syncFileSystemOf(dir_);
  }

  void TearDown() override {
    if (mounted_ && umount2(mountPoint_.c_str(), 0) != 0) umount2(mountPoint_.c_str(), MNT_DETACH);
  }

  int reflink(const std::string& from, const std::string& to) {
    return std::system(
        ("cp --reflink=always '" + dir_ + "/" + from + "' '" + dir_ + "/" + to + "'").c_str());
  }
  std::optional<CloneAttributes> probe(const std::string& name) {
    int dirfd = open(dir_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    struct statx st {};
    statx(dirfd, name.c_str(), AT_SYMLINK_NOFOLLOW, STATX_BASIC_STATS, &st);
    auto layout = makeLinuxVolumeLayout();
    std::optional<CloneAttributes> attributes;
    if (layout->mayHaveClones(dirfd)) attributes = layout->cloneAttributes(dirfd, name.c_str(), st);
    close(dirfd);
    return attributes;
  }
  std::string expectedKey(const std::string& name) {
    struct stat st {};
    stat((dir_ + "/" + name).c_str(), &st);
    std::optional<uint64_t> offset = firstSharedExtent(dir_ + "/" + name);
    return std::to_string(static_cast<unsigned>(st.st_dev)) + ":" +
           (offset ? std::to_string(*offset) : "none");
  }

  TempTree tree_;
  std::string image_, mountPoint_, dir_;
  bool mounted_ = false;
};

TEST_F(XfsReflinkTest, LinuxLayoutReportsReflinkedCopiesAsOneCloneFamily) {
  auto original = probe("original.bin"), copy = probe("copy.bin");
  ASSERT_TRUE(original.has_value());
  ASSERT_TRUE(copy.has_value());
  EXPECT_TRUE(original->isClone());
  EXPECT_TRUE(copy->isClone());
  EXPECT_EQ(original->key(), copy->key());
  EXPECT_EQ(original->key(), expectedKey("original.bin"));
  EXPECT_EQ(original->privateSize, 0u);
  EXPECT_EQ(original->referenceCount, 2u);

  // Below 1 MiB a file is never asked, shared or not; an unshared file is no clone.
  EXPECT_FALSE(probe("small.bin").has_value());
  EXPECT_FALSE(probe("small-copy.bin").has_value());
  EXPECT_FALSE(probe("alone.bin").has_value());

  // Once the copy's first 64 KiB are rewritten, the family key moves to the first extent both
  // still share, and each file has 64 KiB of its own.
  int fd = open((dir_ + "/copy.bin").c_str(), O_WRONLY | O_CLOEXEC);
  ASSERT_GE(fd, 0);
  std::string fresh(64 << 10, 'n');
  ASSERT_EQ(pwrite(fd, fresh.data(), fresh.size(), 0), static_cast<ssize_t>(fresh.size()));
  fsync(fd);
  close(fd);
  original = probe("original.bin");
  copy = probe("copy.bin");
  ASSERT_TRUE(original.has_value());
  ASSERT_TRUE(copy.has_value());
  EXPECT_EQ(original->key(), copy->key());
  EXPECT_EQ(copy->key(), expectedKey("copy.bin"));
  EXPECT_EQ(original->privateSize, 64u << 10);
  EXPECT_GE(copy->privateSize, 64u << 10);  // XFS may hold copy-on-write blocks in reserve
}

TEST_F(XfsReflinkTest, FolderScanKeepsBothCopiesAtFullSizeAndDiskScanChargesTheFamilyOnce) {
  ScanResult result = scanWith(dir_, 2, makeLinuxVolumeLayout());
  ASSERT_TRUE(result.root);
  EXPECT_FALSE(result.root->isVolumeRoot());
  const uint64_t full = allocatedSize(dir_ + "/original.bin");
  for (const char* name : {"original.bin", "copy.bin"}) {
    ScanNode* node = child(result.root.get(), name);
    ASSERT_NE(node, nullptr) << name;
    EXPECT_TRUE(node->isAPFSClone()) << name;
    EXPECT_FALSE(node->isCloneAllocationElsewhere()) << name;
    EXPECT_EQ(node->size(), full) << name;
    EXPECT_EQ(node->cloneSharedSize(), full) << name;
  }
  for (const char* name : {"small.bin", "small-copy.bin", "alone.bin"}) {
    ScanNode* node = child(result.root.get(), name);
    ASSERT_NE(node, nullptr) << name;
    EXPECT_FALSE(node->isAPFSClone()) << name;
    EXPECT_EQ(node->cloneSharedSize(), 0u) << name;
  }

  result = scanWith(mountPoint_, 2, makeLinuxVolumeLayout());
  ASSERT_TRUE(result.root);
  EXPECT_TRUE(result.root->isVolumeRoot());
  ScanNode* dir = child(result.root.get(), "dir");
  ASSERT_NE(dir, nullptr);
  std::vector<ScanNode*> charged, elsewhere;
  for (const char* name : {"original.bin", "copy.bin"}) {
    ScanNode* node = child(dir, name);
    ASSERT_NE(node, nullptr) << name;
    EXPECT_TRUE(node->isAPFSClone()) << name;
    EXPECT_EQ(node->cloneSharedSize(), full) << name;
    (node->isCloneAllocationElsewhere() ? elsewhere : charged).push_back(node);
  }
  ASSERT_EQ(charged.size(), 1u);
  ASSERT_EQ(elsewhere.size(), 1u);
  EXPECT_EQ(charged[0]->size(), full);
  EXPECT_EQ(elsewhere[0]->size(), 0u);
  // The folder holds the family once, the unshared large file, and the small files' group.
  EXPECT_EQ(dir->size(), full + allocatedSize(dir_ + "/alone.bin") +
                             allocatedSize(dir_ + "/small.bin") +
                             allocatedSize(dir_ + "/small-copy.bin"));
}

// --- The same result whatever the thread count ------------------------------------------------

// Many folders so reading threads run ahead; hard links whose names lie in different folders,
// so the first name met depends on the walk order; unreadable places; clone families.
void makeMixedTree(TempTree& tree, test::TestVolumeLayout& layout) {
  for (int f = 0; f < 120; ++f) {
    const std::string folder = tree.folder("f" + std::to_string(f) + "/sub");
    const std::string parent = tree.path("f" + std::to_string(f));
    for (int i = 0; i < 8; ++i) writeFile(parent + "/n" + std::to_string(i), 100 + 4096 * (i % 3));
    for (int i = 0; i < 3; ++i) writeFile(folder + "/m" + std::to_string(i), 5000);
    writeFile(parent + "/big", 4096 * (1 + f % 4));
  }
  for (int f = 0; f < 120; f += 7)
    tree.hardLink("f" + std::to_string(f) + "/n1",
                  "f" + std::to_string((f * 13 + 5) % 120) + "/link");
  tree.hardLink("f3/big", "f90/sub/big-link");
  tree.folder("Applications");
  writeFile(tree.path("Applications/tool"), 8192);
  for (int f = 0; f < 120; f += 11)
    layout.makeClone(tree.path("f" + std::to_string(f) + "/big"), 1 + f % 3);
  layout.makeClone(tree.path("Applications/tool"), 2);
  layout.makeClone(tree.path("f5/big"), 1);
  tree.file("f5/locked/secret", 4096);
  chmod(tree.path("f5/locked").c_str(), 0700);
  tree.file("f60/listonly/x", 4096);
  tree.file("f60/listonly/y", 4096);
  chmod(tree.path("f60/listonly").c_str(), 0744);
  tree.file("f99/sub/locked/z", 4096);
  chmod(tree.path("f99/sub/locked").c_str(), 0711);
  syncFileSystemOf(tree.root());
}

TEST(ScannerThreads, ResultsAreIdenticalWhateverTheThreadCount) {
  TempTree tree;
  auto layout = std::make_shared<test::TestVolumeLayout>(tree.root());
  makeMixedTree(tree, *layout);
  // Run as nobody where possible, so the locked folders really are unreadable.
  const bool asNobody = geteuid() == 0;

  auto compare = [&]() -> std::string {
    std::string problems;
    // The whole tree as a disk (clones charged once, small files grouped) and one folder of it.
    for (const std::string& root : {tree.root(), tree.path("f5")}) {
      auto serialize = [](const ScanResult& result) {
        return "visited " + std::to_string(result.statistics.itemsVisited) + "\n" +
               test::describeTree(result.root.get());
      };
      const std::string reference = serialize(scanWith(root, 1, layout));
      if (asNobody && reference.find("Permission denied") == std::string::npos)
        problems += root + ": the unreadable places made no issue\n";
      if (reference.find(" clone") == std::string::npos)
        problems += root + ": no clone was found\n";
      if (root == tree.root() && reference.find(" elsewhere") == std::string::npos)
        problems += root + ": no clone was charged elsewhere\n";
      for (int threads : {2, 4, 2, 4}) {
        const std::string other = serialize(scanWith(root, threads, layout));
        if (other != reference) {
          std::size_t at = 0;
          while (at < other.size() && at < reference.size() && other[at] == reference[at]) ++at;
          const std::size_t from =
              reference.rfind('\n', at) == std::string::npos ? 0 : reference.rfind('\n', at) + 1;
          problems += root + " with " + std::to_string(threads) + " threads differs at\n  " +
                      reference.substr(from, 300) + "\nvs\n  " + other.substr(from, 300) + "\n";
        }
      }
    }
    return problems;
  };
  EXPECT_EQ(asNobody ? test::runUnprivilegedReporting(compare) : compare(), "");
}

}  // namespace
}  // namespace tw
