// Bad input on real trees: vanishing items, FIFOs, sockets and links, odd names, very deep paths,
// huge folders, odd roots, mounts below and at the root, reflinked files on XFS, and unreadable
// places, with the same result whatever the number of reading threads. Each must end as a scan
// issue or as the counting rules say, never as a crash or a hang.
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

#include <algorithm>
#include <climits>
#include <cstring>
#include <filesystem>
#include <set>
#include <utility>

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

// Every real (not synthetic) node below and including `root`.
std::vector<ScanNode*> realNodes(ScanNode* root) {
  std::vector<ScanNode*> out, pending{root};
  while (!pending.empty()) {
    ScanNode* node = pending.back();
    pending.pop_back();
    if (!node) continue;
    if (!node->isSynthetic()) out.push_back(node);
    for (ScanNode* c : node->children()) pending.push_back(c);
  }
  return out;
}

// Ends the test program (SIGALRM) when the guarded walk blocks for 20 s, instead of hanging.
struct HangGuard {
  HangGuard() { alarm(20); }
  ~HangGuard() { alarm(0); }
};

// A file of `bytes` written without a sync of its own (sync the file system once afterwards).
void writeFile(const std::string& path, std::size_t bytes, char fill = 'x') {
  test::writeFile(path, std::string(bytes, fill));
}

void syncFileSystemOf(const std::string& path) {
  int fd = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd >= 0) syncfs(fd), close(fd);
}

TEST(ScannerChanges, FolderRemovedOrSwappedForAFifoMidWalkFailsFastAsAnIssue) {
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
        if (std::exchange(swapped, true)) return;
        std::filesystem::remove_all(second);
        if (fifo) mkfifo(second.c_str(), 0644);
      };
      HangGuard guard;
      ScanResult result = test::scanTree(tree.root(), nullptr, {}, threads, progress);
      ASSERT_TRUE(swapped && result.root);
      // A reading thread may have listed the folder before the swap, and then its files vanish
      // under it; either way nothing blocks and every issue is about that folder.
      for (const ScanIssue& issue : result.root->scanIssues())
        EXPECT_EQ(issue.path.rfind(second, 0), 0u) << issue.path << ": " << issue.message;
      if (threads > 1) continue;
      // Nothing read the second folder ahead of the swap, so the walk meets what replaced it.
      EXPECT_EQ(result.root->scanIssues(),
                (std::vector<ScanIssue>{
                    {second, fifo ? "Not a directory" : "No such file or directory"}}));
      EXPECT_EQ(realNodes(child(result.root.get(), order[0])).size(), 601u);
    }
  }
}

TEST(ScannerOddEntries, FifosSocketsLinksAndRawNamesAsEntriesAndAsRoots) {
  TempTree tree;
  const std::string folder = "caf\xe9";             // Latin-1 e-acute
  const std::string file = "\xff\xfe\x80 raw.bin";  // bytes no UTF-8 text contains
  const std::string half = "half\xc3";              // a sequence cut short
  const uint64_t bytes = allocatedSize(tree.file(folder + "/" + file, 4096)) +
                         allocatedSize(tree.file(half, 4096)) +
                         allocatedSize(tree.file("real/data.bin", 1 << 20));
  tree.setModificationTime(half, 1234567890.5);
  tree.fifo("pipe");
  sockaddr_un address{AF_UNIX, {}};
  std::strncpy(address.sun_path, tree.path("sock").c_str(), sizeof address.sun_path - 1);
  int s = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  ASSERT_EQ(bind(s, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  const char* links[][2] = {{"b", "a"},         {"a", "b"},   {".", "self"},
                            {"..", "up"},       {"/", "top"}, {"data.bin", "alias.bin"},
                            {"nowhere", "gone"}};
  for (const auto& [target, name] : links) tree.symlink(target, std::string("real/") + name);
  HangGuard guard;
  for (int threads : {1, 2}) {
    ScanResult result = test::scanTree(tree.root(), nullptr, {}, threads);
    ASSERT_TRUE(result.root);
    ScanNode* root = result.root.get();
    EXPECT_EQ(issuesText(root->scanIssues()), "");
    for (const char* name : {"pipe", "sock"}) {
      ScanNode* node = child(root, name);
      EXPECT_TRUE(node && node->size() == 0 && !node->isDirectory()) << name;
    }
    for (const auto& [target, name] : links)
      EXPECT_EQ(child(child(root, "real"), name), nullptr) << name;
    for (const std::string& name : {folder + "/" + file, half}) {
      ScanNode* node = test::find(root, name);
      ASSERT_NE(node, nullptr);
      EXPECT_EQ(node->path(), tree.path(name));  // byte for byte
    }
    EXPECT_DOUBLE_EQ(child(root, half)->modificationDate(), 1234567890.5);
    EXPECT_EQ(root->size(), bytes);
    EXPECT_EQ(result.statistics.itemsVisited, 7u);
    // The snapshot reads the same bytes, so its fingerprint matches the scan's.
    SourceSnapshot snapshot = DirectoryScanner::computeSourceSnapshot(tree.root(), {});
    EXPECT_EQ(snapshot.fingerprint, root->sourceFingerprint());
    EXPECT_EQ(snapshot.itemCount, 7);
  }
  close(s);
  // Roots that are no folder end at once as an issue of the root, whatever the thread count.
  const std::pair<std::string, const char*> roots[] = {
      {tree.path("gone"), "No such file or directory"},
      {tree.path("real/data.bin"), "Not a directory"},
      {tree.path("real/alias.bin"), "Not a directory"},
      {tree.path("pipe"), "Not a directory"},  // never waits for a writer
      {tree.path("real/a"), "Too many levels of symbolic links"}};
  for (const auto& [path, message] : roots) {
    for (int threads : {1, 2}) {
      ScanResult result = test::scanTree(path, nullptr, {}, threads);
      ASSERT_TRUE(result.root);
      EXPECT_FALSE(result.root->isDirectory()) << path;
      EXPECT_EQ(result.root->size(), 0u);
      EXPECT_EQ(result.root->scanIssues(), (std::vector<ScanIssue>{{path, message}}));
    }
    EXPECT_TRUE(DirectoryScanner::computeSourceSnapshot(path, {}).error.has_value()) << path;
  }
  // The walk saw a large regular file; by the time clone attributes are asked for, a FIFO has
  // taken its name. Opening it must not wait for a writer.
  const std::string path = tree.file("big.bin", 2 << 20);
  struct statx before {};
  ASSERT_EQ(statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, STATX_BASIC_STATS, &before), 0);
  unlink(path.c_str());
  tree.fifo("big.bin");
  int dirfd = open(tree.root().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  EXPECT_FALSE(makeLinuxVolumeLayout()->cloneAttributes(dirfd, "big.bin", before).has_value());
  close(dirfd);
}

TEST(ScannerMounts, PathsLongerThanPathMaxAndAHundredThousandEntriesAreCountedExactly) {
  TempTree tree;
  test::MountGuard mounts;
  // Making 100,000 files on a disk file system can take many seconds on a slow machine; in memory
  // it takes well under one. The scan root stays a folder below the mount, not a whole disk.
  if (test::canMount()) mounts.mount("tarnwell-test", tree.folder("ram"), "tmpfs", 0, "size=64m");
  const std::string top = tree.folder("ram/top");
  constexpr int kEntries = 100000;
  const std::string wide = tree.folder("ram/top/wide");
  int fd = open(wide.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  for (int i = 0; i < kEntries; ++i) {
    char name[16];
    std::snprintf(name, sizeof name, "e%06d", i);
    close(openat(fd, name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
  }
  close(fd);
  writeFile(wide + "/e000000", 4096);  // one entry with data, so the folder has a size
  // A chain of folders deeper than PATH_MAX, made and later removed through descriptors.
  const std::string name(200, 'd');
  struct DeepRemoval {
    std::string path;
    ~DeepRemoval() { std::system(("rm -rf '" + path + "'").c_str()); }
  } removal{top + "/" + name};
  fd = open(top.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  std::string deepest = top;
  const int depth = 2 * PATH_MAX / 200;
  for (int level = 0; level < depth; ++level, deepest += "/" + name) {
    ASSERT_EQ(mkdirat(fd, name.c_str(), 0755), 0) << std::strerror(errno);
    const int next = openat(fd, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    close(fd);
    fd = next;
  }
  const int file = openat(fd, "deepest.bin", O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
  ASSERT_EQ(write(file, std::string(8192, 'x').data(), 8192), 8192);
  close(file);
  struct stat st {};
  ASSERT_EQ(fstatat(fd, "deepest.bin", &st, 0), 0);
  close(fd);
  deepest += "/deepest.bin";
  ASSERT_GT(deepest.size(), static_cast<std::size_t>(PATH_MAX));
  ScanResult result = test::scanTree(top, nullptr, {}, 2);
  ASSERT_TRUE(result.root);
  EXPECT_EQ(issuesText(result.root->scanIssues()), "");
  EXPECT_EQ(result.statistics.itemsVisited, static_cast<uint64_t>(kEntries + 1 + depth + 1));
  EXPECT_EQ(result.root->sourceItemCount(), kEntries + 1 + depth + 1);
  ScanNode* node = result.root.get();
  for (int level = 0; level < depth && node; ++level) node = child(node, name);
  ASSERT_NE(child(node, "deepest.bin"), nullptr);
  EXPECT_EQ(child(node, "deepest.bin")->path(), deepest);
  EXPECT_EQ(child(node, "deepest.bin")->size(), static_cast<uint64_t>(st.st_blocks) * 512);
  EXPECT_EQ(result.root->size(),
            allocatedSize(wide + "/e000000") + static_cast<uint64_t>(st.st_blocks) * 512);
  std::set<std::string> names;
  for (ScanNode* entry : realNodes(child(result.root.get(), "wide"))) names.emplace(entry->name());
  EXPECT_EQ(names.size(), static_cast<std::size_t>(kEntries + 1));
  EXPECT_TRUE(names.contains("e000000") && names.contains("e099999"));
}

TEST(ScannerMounts, MountsBelowTheRootAreLeftOutAndAMountedFolderIsNoDisk) {
  if (!test::canMount())
    GTEST_SKIP() << "mounting is not allowed here (needs root with CAP_SYS_ADMIN)";
  TempTree tree;
  const uint64_t bytes = allocatedSize(tree.file("data/file.bin", 1 << 20));
  test::MountGuard mounts;
  ASSERT_TRUE(mounts.mount("tarnwell-test", tree.folder("ram"), "tmpfs", 0, "size=8m"))
      << std::strerror(errno);
  ASSERT_TRUE(
      mounts.mount(tree.path("data").c_str(), tree.folder("bind"), nullptr, MS_BIND, nullptr))
      << std::strerror(errno);
  writeFile(tree.path("ram/in-memory.bin"), 1 << 20);
  for (int threads : {1, 2}) {
    ScanResult result = test::scanTree(tree.root(), nullptr, {}, threads);
    ASSERT_TRUE(result.root);
    EXPECT_EQ(issuesText(result.root->scanIssues()), "");
    EXPECT_EQ(result.root->size(), bytes);
    EXPECT_EQ(test::childNames(result.root.get()), (test::Names{"data"}));
    EXPECT_EQ(result.statistics.itemsVisited, 2u);
    // The snapshot draws the same boundary, or saved fingerprints would never match.
    SourceSnapshot snapshot = DirectoryScanner::computeSourceSnapshot(tree.root(), {});
    EXPECT_EQ(snapshot.fingerprint, result.root->sourceFingerprint());
    EXPECT_EQ(snapshot.itemCount, 2);
  }
  // Scanned itself, a bind-mounted folder or a memory file system is a folder, not a disk: its
  // own bytes, no hidden space, and a fingerprint the freshness check can compare.
  for (const auto& [root, size] :
       {std::pair{tree.path("bind"), bytes},
        {tree.path("ram"), allocatedSize(tree.path("ram/in-memory.bin"))}}) {
    ScanResult result = test::scanTree(root, nullptr, {}, 2);
    ASSERT_TRUE(result.root);
    EXPECT_FALSE(result.root->isVolumeRoot()) << root;
    EXPECT_EQ(result.root->size(), size) << root;
    EXPECT_EQ(result.root->children().size(), 1u) << root;
    EXPECT_NE(result.root->sourceFingerprint(), 0u) << root;
    EXPECT_EQ(DirectoryScanner::computeSourceSnapshot(root, {}).fingerprint,
              result.root->sourceFingerprint());
  }
}

TEST(ScannerClones, ReflinkedCopiesOnXfsAreOneFamilyChargedOnceOnTheDisk) {
  if (!test::canMount()) GTEST_SKIP() << "mounting is not allowed here; reflink test skipped";
  if (std::system("command -v mkfs.xfs >/dev/null 2>&1") != 0)
    GTEST_SKIP() << "mkfs.xfs is missing (package xfsprogs); reflink test skipped";
  TempTree tree;
  const std::string image = tree.path("xfs.img"), mountPoint = tree.folder("mnt");
  const std::string dir = mountPoint + "/dir";
  test::writeFile(image, "");
  ASSERT_EQ(truncate(image.c_str(), 512ll << 20), 0);
  if (std::system(("mkfs.xfs -q -m reflink=1 '" + image + "' >/dev/null 2>&1").c_str()) != 0)
    GTEST_SKIP() << "mkfs.xfs could not make a reflink file system here";
  if (std::system(("mount -o loop '" + image + "' '" + mountPoint + "' 2>/dev/null").c_str()) != 0)
    GTEST_SKIP() << "a loop-mounted XFS image was refused here; reflink test skipped";
  struct Unmount {
    std::string path;
    ~Unmount() {
      if (umount2(path.c_str(), 0) != 0) umount2(path.c_str(), MNT_DETACH);
    }
  } unmount{mountPoint};
  writeFile(dir + "/original.bin", 2 << 20, 'o');
  writeFile(dir + "/small.bin", 512 << 10, 's');
  writeFile(dir + "/alone.bin", 3 << 20, 'a');
  syncFileSystemOf(dir);
  for (const char* name : {"original", "small"}) {
    const std::string from = dir + "/" + name + ".bin", to = dir + "/" + name + "-copy.bin";
    ASSERT_EQ(std::system(("cp --reflink=always '" + from + "' '" + to + "'").c_str()), 0);
  }
  syncFileSystemOf(dir);
  auto layout = makeLinuxVolumeLayout();
  auto probe = [&](const char* name) {
    int dirfd = open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    struct statx st {};
    statx(dirfd, name, AT_SYMLINK_NOFOLLOW, STATX_BASIC_STATS, &st);
    std::optional<CloneAttributes> attributes;
    if (layout->mayHaveClones(dirfd)) attributes = layout->cloneAttributes(dirfd, name, st);
    close(dirfd);
    return attributes;
  };
  // The charging rules themselves run on an injected layout; here the walk finds the family on a
  // real disk and charges it once, and never asks about files below 1 MiB.
  ScanResult result = test::scanTree(mountPoint, layout, {}, 2);
  ASSERT_TRUE(result.root && result.root->isVolumeRoot());
  const uint64_t full = allocatedSize(dir + "/original.bin");
  ScanNode* original = test::find(result.root.get(), "dir/original.bin");
  ScanNode* copy = test::find(result.root.get(), "dir/original-copy.bin");
  ASSERT_TRUE(original && copy);
  EXPECT_TRUE(original->isAPFSClone() && copy->isAPFSClone());
  EXPECT_EQ(original->size() + copy->size(), full);
  EXPECT_EQ(original->cloneSharedSize() + copy->cloneSharedSize(), 2 * full);
  for (const char* name : {"small.bin", "small-copy.bin", "alone.bin"})
    EXPECT_FALSE(probe(name).has_value()) << name;  // unshared, or below 1 MiB
  // The family key is the device and the physical offset of the first shared extent.
  auto probed = probe("original.bin"), twin = probe("original-copy.bin");
  ASSERT_TRUE(probed && twin);
  EXPECT_TRUE(probed->isClone() && twin->isClone());
  struct stat st {};
  stat(dir.c_str(), &st);
  EXPECT_TRUE(probed->key().starts_with(std::to_string(st.st_dev) + ":")) << probed->key();
  EXPECT_EQ(probed->key(), twin->key());
  EXPECT_EQ(probed->privateSize, 0u);
  EXPECT_EQ(probed->referenceCount, 2u);
  // Once the copy's first 64 KiB are rewritten, the family key moves to the first extent both
  // still share, and each file has 64 KiB of its own.
  const std::string before = probed->key();
  int fd = open((dir + "/original-copy.bin").c_str(), O_WRONLY | O_CLOEXEC);
  const std::string fresh(64 << 10, 'n');
  ASSERT_EQ(pwrite(fd, fresh.data(), fresh.size(), 0), static_cast<ssize_t>(fresh.size()));
  fsync(fd);
  close(fd);
  probed = probe("original.bin");
  twin = probe("original-copy.bin");
  ASSERT_TRUE(probed && twin);
  EXPECT_EQ(probed->key(), twin->key());
  EXPECT_NE(twin->key(), before);
  EXPECT_EQ(probed->privateSize, 64u << 10);
  EXPECT_GE(twin->privateSize, 64u << 10);  // XFS may hold copy-on-write blocks in reserve
}

TEST(ScannerThreads, UnreadablePlacesAreIssuesAndResultsAreIdenticalWhateverTheThreadCount) {
  // Many folders so reading threads run ahead; hard links whose names lie in different folders,
  // so the first name met depends on the walk order; unreadable places; clone families.
  TempTree tree;
  auto layout = std::make_shared<test::TestVolumeLayout>(tree.root());
  for (int f = 0; f < 120; ++f) {
    const std::string parent = tree.path("f" + std::to_string(f));
    for (int i = 0; i < 8; ++i) writeFile(parent + "/n" + std::to_string(i), 100 + 4096 * (i % 3));
    for (int i = 0; i < 3; ++i) writeFile(parent + "/sub/m" + std::to_string(i), 5000);
    writeFile(parent + "/big", 4096 * (1 + f % 4));
  }
  for (int f = 0; f < 120; f += 7)
    tree.hardLink("f" + std::to_string(f) + "/n1",
                  "f" + std::to_string((f * 13 + 5) % 120) + "/link");
  tree.hardLink("f3/big", "f90/sub/big-link");
  writeFile(tree.path("Applications/tool"), 8192);
  for (int f = 0; f < 120; f += 11)
    layout->makeClone(tree.path("f" + std::to_string(f) + "/big"), 1 + f % 3);
  layout->makeClone(tree.path("Applications/tool"), 2);
  layout->makeClone(tree.path("f5/big"), 1);
  // Locked, and readable but not searchable (names listed, metadata unreadable), and searchable
  // but not readable.
  tree.file("f5/locked/secret", 4096);
  chmod(tree.path("f5/locked").c_str(), 0700);
  tree.file("f60/listonly/x", 4096);
  tree.file("f60/listonly/y", 4096);
  chmod(tree.path("f60/listonly").c_str(), 0744);
  tree.file("f99/sub/locked/z", 4096);
  chmod(tree.path("f99/sub/locked").c_str(), 0711);
  syncFileSystemOf(tree.root());
  // Run as nobody where possible, so the locked folders really are unreadable.
  const bool asNobody = geteuid() == 0;
  std::multiset<std::string> expectedIssues;
  for (const char* path : {"f5/locked", "f60/listonly/x", "f60/listonly/y", "f99/sub/locked"})
    expectedIssues.insert(tree.path(path) + ": Permission denied\n");
  for (const char* path : {"Library", "private"})
    expectedIssues.insert(tree.path(path) + ": " + kProtectedLocationMessage + "\n");
  auto compare = [&]() -> std::string {
    std::string problems;
    // The whole tree as a disk (clones charged once, small files grouped) and one folder of it.
    for (const std::string& root : {tree.root(), tree.path("f5")}) {
      auto serialize = [](const ScanResult& result) {
        return "visited " + std::to_string(result.statistics.itemsVisited) + "\n" +
               test::describeTree(result.root.get());
      };
      ScanResult first = test::scanTree(root, layout, {}, 1);
      const std::string reference = serialize(first);
      if (asNobody && root == tree.root()) {
        std::multiset<std::string> issues;
        for (const ScanIssue& issue : first.root->scanIssues())
          issues.insert(issue.path + ": " + issue.message + "\n");
        if (issues != expectedIssues)
          problems += "issues were\n" + issuesText(first.root->scanIssues());
        ScanNode* locked = test::find(first.root.get(), "f5/locked");
        if (!locked || locked->size() != 0 || !locked->children().empty())
          problems += "the locked folder is not an empty node\n";
      }
      if (reference.find(" clone") == std::string::npos)
        problems += root + ": no clone was found\n";
      if (root == tree.root() && reference.find(" elsewhere") == std::string::npos)
        problems += root + ": no clone was charged elsewhere\n";
      for (int threads : {2, 4, 2, 4}) {
        const std::string other = serialize(test::scanTree(root, layout, {}, threads));
        if (other == reference) continue;
        const auto at =
            std::mismatch(other.begin(), other.end(), reference.begin(), reference.end()).second;
        const std::size_t from =
            reference.rfind('\n', at - reference.begin()) + 1;  // npos + 1 is 0
        problems += root + " with " + std::to_string(threads) + " threads differs at\n" +
                    reference.substr(from, 300) + "\nvs\n" + other.substr(from, 300) + "\n";
      }
    }
    return problems;
  };
  EXPECT_EQ(asNobody ? test::runUnprivilegedReporting(compare) : compare(), "");
}

}  // namespace
}  // namespace tw
