// The Trash on real trees: where items go (home trash, a second disk's trash), what the
// .trashinfo records, odd names, all-or-nothing moves when a rename fails, refusals, putting back
// byte for byte, unprivileged trash folder checks and interplay with trash-cli.
#include "platform/trash.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <regex>

#include "platform/paths.h"
#include "platform/trash_info.h"
#include "support/temp_tree.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using test::listFolder;
using test::readFile;
using test::writeFile;

// A seam that fails the n-th rename or the n-th file creation with EIO.
struct Failures {
  int renameAt = 0, createAt = 0, renames = 0, creates = 0;
} failures;
const TrashCalls kFailingCalls{
    [](int fromDir, const char* from, int toDir, const char* to, unsigned flags) {
      if (++failures.renames == failures.renameAt) return errno = EIO, -1;
      return ::renameat2(fromDir, from, toDir, to, flags);
    },
    [](int dir, const char* path, int flags, mode_t mode) {
      if ((flags & O_CREAT) && ++failures.creates == failures.createAt) return errno = EIO, -1;
      return ::openat(dir, path, flags, mode);
    },
    ::unlinkat};

// Every path below `root` with its type and contents, to compare a tree before and after.
std::string snapshot(const std::string& root) {
  std::string out;
  std::vector<std::string> lines;
  for (const auto& entry : fs::recursive_directory_iterator(root))
    lines.push_back(entry.path().string() +
                    (entry.is_directory() ? "/" : "=" + readFile(entry.path())));
  std::sort(lines.begin(), lines.end());
  for (const std::string& line : lines) out += line + "\n";
  return out;
}

std::string infoText(const std::string& trashed) {
  const std::string trash = parentPath(parentPath(trashed));
  return readFile(trash + "/info/" + std::string(displayNameForPath(trashed)) + ".trashinfo");
}

struct stat statOf(const std::string& path) {
  struct stat st {};
  lstat(path.c_str(), &st);
  return st;
}

bool exists(const std::string& path) {
  struct stat st {};
  return lstat(path.c_str(), &st) == 0;
}

bool haveCommand(const std::string& name) {
  return std::system(("command -v " + name + " >/dev/null 2>&1").c_str()) == 0;
}

class TrashTest : public ::testing::Test {
 protected:
  void TearDown() override {
    for (const std::string& mountPoint : mounts_)
      if (umount2(mountPoint.c_str(), 0) != 0) umount2(mountPoint.c_str(), MNT_DETACH);
  }

  // A loop-mounted ext4 image: a second disk. "" when this machine cannot mount one.
  std::string secondDisk() {
    if (!test::canMount() || !haveCommand("mkfs.ext4")) return "";
    const std::string image = tree.path("disk.img"), mountPoint = tree.folder("disk");
    writeFile(image, "");
    if (truncate(image.c_str(), 32 << 20) != 0 ||
        std::system(("mkfs.ext4 -q -F '" + image + "' >/dev/null 2>&1").c_str()) != 0 ||
        std::system(("mount -o loop '" + image + "' '" + mountPoint + "' 2>/dev/null").c_str()) !=
            0)
      return "";
    mounts_.push_back(mountPoint);
    return mountPoint;
  }

  // A trash-cli command whose home trash is ours.
  test::ProcessRun trashCli(std::vector<std::string> args) {
    args.insert(args.begin(), {"env", "HOME=" + tree.path("home"),
                               "XDG_DATA_HOME=" + tree.path("home/.local/share")});
    return test::runProcess(args);
  }

  std::optional<TrashMapping> move(const std::vector<std::string>& paths, Error* error = nullptr,
                                   const TrashCalls* calls = nullptr) {
    TrashOptions options{home, calls};
    Error ignored;
    return moveToTrash(paths, options, error ? error : &ignored);
  }

  test::TempTree tree;
  const std::string home = tree.path("home/.local/share/Trash");
  std::vector<std::string> mounts_;
};

TEST_F(TrashTest, EveryNameGoesToTheHomeTrashWithATrashInfoThatDecodesToItsPath) {
  const std::string longName = std::string(250, 'n') + "\xc3\xa9";  // no room for ".trashinfo"
  const std::vector<std::string> names = {"plain.txt",   "with space",     "100% sure",
                                          "line\nbreak", "bytes \xff\xfe", "caf\xc3\xa9",
                                          longName,      "taken.txt",      "folder"};
  std::vector<std::string> paths;
  for (const std::string& name : names)
    paths.push_back(name == "folder" ? tree.folder("items/folder")
                                     : tree.file("items/" + name, name.size()));
  tree.file("items/folder/inside.bin", 40000);
  tree.file("items/keep.txt", 3);
  // An earlier entry named "taken.txt", and a stray "taken.txt.2" without its .trashinfo.
  writeFile(home + "/files/taken.txt", "old");
  writeFile(home + "/info/taken.txt.trashinfo",
            trashInfoText("/old/taken.txt", "2020-01-01T00:00:00"));
  writeFile(home + "/files/taken.txt.2", "stray");

  Error error;
  const std::optional<TrashMapping> mapping = move(paths, &error);
  ASSERT_TRUE(mapping) << error.description;
  ASSERT_EQ(mapping->size(), paths.size());
  const std::regex date("DeletionDate=\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\n$");
  for (std::size_t i = 0; i < paths.size(); ++i) {
    const auto& [original, trashed] = (*mapping)[i];
    EXPECT_EQ(original, paths[i]);
    EXPECT_EQ(parentPath(trashed), home + "/files");
    EXPECT_FALSE(exists(original)) << original;
    EXPECT_TRUE(exists(trashed)) << trashed;
    if (names[i] != "folder") {
      EXPECT_EQ(readFile(trashed).size(), names[i].size());
    }
    const std::string info = infoText(trashed);
    EXPECT_TRUE(info.starts_with("[Trash Info]\nPath=")) << info;
    EXPECT_TRUE(std::regex_search(info, date)) << info;
    EXPECT_EQ(trashInfoPath(info), original);
  }
  EXPECT_EQ((*mapping)[7].second, home + "/files/taken.txt.3");
  EXPECT_EQ(readFile(home + "/files/taken.txt"), "old");
  EXPECT_LT(displayNameForPath((*mapping)[6].second).size(), 246u);
  EXPECT_TRUE(exists(tree.path("items/keep.txt")));
  // The folder's size in bytes, the time of its .trashinfo and its name.
  const std::string sizes = readFile(home + "/directorysizes");
  const std::string folderInfo = home + "/info/folder.trashinfo";
  EXPECT_EQ(sizes, std::to_string(statOf(home + "/files/folder").st_blocks * 512 +
                                  statOf(home + "/files/folder/inside.bin").st_blocks * 512) +
                       " " + std::to_string(statOf(folderInfo).st_mtim.tv_sec) + " folder\n");
}

TEST_F(TrashTest, AFailedRenameOrTrashInfoPutsBackEveryItemAlreadyMoved) {
  std::vector<std::string> paths;
  for (int i = 0; i < 10; ++i)
    paths.push_back(
        i % 4 == 3
            ? tree.folder("q/f" + std::to_string(i % 3) + "/dir" + std::to_string(i))
            : tree.file("q/f" + std::to_string(i % 3) + "/file" + std::to_string(i), 10 + i));
  tree.file("q/f0/dir3/nested.txt", 5);
  const std::string before = snapshot(tree.path("q"));
  const std::pair<int, int> cases[] = {{1, 0}, {6, 0}, {10, 0}, {0, 1}, {0, 7}};
  for (const auto& [renameAt, createAt] : cases) {
    failures = {renameAt, createAt};
    Error error;
    EXPECT_FALSE(move(paths, &error, &kFailingCalls));
    const std::string failed(displayNameForPath(paths[std::max(renameAt, createAt) - 1]));
    EXPECT_EQ(error.description,
              "Could not move “" + failed + "” to the Trash: Input/output error.");
    EXPECT_EQ(snapshot(tree.path("q")), before) << renameAt << " " << createAt;
    EXPECT_TRUE(listFolder(home + "/files").empty());
    EXPECT_TRUE(listFolder(home + "/info").empty());
  }
  // The trash was made ready (private, with its parents) before the first move.
  EXPECT_EQ(statOf(home).st_mode & 07777, 0700u);
  EXPECT_EQ(statOf(tree.path("home/.local")).st_mode & 07777, 0700u);
  failures = {};
  EXPECT_TRUE(move(paths, nullptr, &kFailingCalls));
  EXPECT_EQ(listFolder(home + "/info").size(), paths.size());
}

TEST_F(TrashTest, RefusedListsMoveNothing) {
  const std::string kept = tree.file("r/kept.txt", 4), inner = tree.file("r/a/b/inner.txt", 4);
  const std::string folder = tree.path("r/a");
  // A folder on the way swapped for a link to where it went after the caller checked the path.
  tree.file("r/swap/moved/f.txt", 1);
  fs::rename(tree.path("r/swap/moved"), tree.path("r/swap/real"));
  tree.symlink("real", "r/swap/moved");
  const std::string before = snapshot(tree.path("r"));
  const std::pair<std::vector<std::string>, std::string> cases[] = {
      {{kept, tree.path("r/swap/moved/f.txt")}, "“f.txt”"},
      {{kept, tree.path("r/missing.txt")}, "“missing.txt” to the Trash: It no longer exists."},
      {{kept, folder, inner}, "“inner.txt”"},
      {{kept, kept}, "“kept.txt”"},
      {{kept, "r/relative.txt"}, "“relative.txt”"},
      {{kept, tree.path("r/a/../kept.txt")}, "not a full path"},
      {{kept, "/"}, "not a full path"},
      {{kept, tree.path("home")}, "“home” to the Trash: It holds the Trash itself."}};
  for (const auto& [paths, expected] : cases) {
    Error error;
    EXPECT_FALSE(move(paths, &error));
    EXPECT_NE(error.description.find(expected), std::string::npos) << error.description;
    EXPECT_EQ(snapshot(tree.path("r")), before) << expected;
    EXPECT_TRUE(listFolder(home + "/files").empty());
  }
}

TEST_F(TrashTest, PuttingBackRestoresBytesModeAndTimesAndRefusesOccupiedOrMissingPlaces) {
  const std::string file = tree.file("u/doc.txt", 5000), folder = tree.folder("u/dir");
  tree.file("u/dir/a.txt", 7);
  ASSERT_EQ(chmod(file.c_str(), 0640) | chmod(folder.c_str(), 0750), 0);
  const timespec times[2] = {{1000000, 123456789}, {2000000, 987654321}};
  ASSERT_EQ(utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
  const std::string before = snapshot(tree.path("u"));
  const struct stat fileBefore = statOf(file), folderBefore = statOf(folder);
  const TrashOptions options{home, nullptr};
  Error error;
  std::optional<TrashMapping> mapping = moveToTrash({file, folder}, options, &error);
  ASSERT_TRUE(mapping) << error.description;
  EXPECT_NE(readFile(home + "/directorysizes").find(" dir\n"), std::string::npos);
  for (const auto& [original, trashed] : *mapping)
    EXPECT_TRUE(restoreFromTrash(trashed, original, options, &error)) << error.description;
  for (const auto& [path, was] : {std::pair{file, fileBefore}, std::pair{folder, folderBefore}}) {
    const struct stat now = statOf(path);
    EXPECT_EQ(now.st_ino, was.st_ino);  // renamed, never copied
    EXPECT_EQ(now.st_mode, was.st_mode);
    EXPECT_EQ(now.st_mtim.tv_sec * 1000000000 + now.st_mtim.tv_nsec,
              was.st_mtim.tv_sec * 1000000000 + was.st_mtim.tv_nsec);
    EXPECT_EQ(now.st_atim.tv_nsec, was.st_atim.tv_nsec);
  }
  EXPECT_EQ(snapshot(tree.path("u")), before);
  EXPECT_TRUE(listFolder(home + "/info").empty());
  EXPECT_EQ(readFile(home + "/directorysizes"), "");

  // An item now at the original place, or a missing folder: refused, and nothing changes.
  const std::string sub = tree.file("u/sub/inner.txt", 3);
  mapping = moveToTrash({file, sub}, options, &error);
  ASSERT_TRUE(mapping) << error.description;
  writeFile(file, "new");
  fs::remove(tree.path("u/sub"));
  const std::pair<std::size_t, int> refusals[] = {{0, EEXIST}, {1, ENOENT}};
  for (const auto& [index, code] : refusals) {
    const auto& [original, trashed] = (*mapping)[index];
    EXPECT_FALSE(restoreFromTrash(trashed, original, options, &error));
    EXPECT_EQ(error.code, code) << error.description;
    EXPECT_TRUE(error.description.starts_with("Could not put back “")) << error.description;
    EXPECT_TRUE(exists(trashed));
    EXPECT_EQ(trashInfoPath(infoText(trashed)), original);
  }
  EXPECT_EQ(readFile(file), "new");
  EXPECT_FALSE(exists(tree.path("u/sub")));
}

TEST_F(TrashTest, ItemsOnASecondDiskGoToThatDisksOwnTrash) {
  const std::string disk = secondDisk();
  if (disk.empty()) GTEST_SKIP() << "no loop-mounted ext4 here (needs root, mount and mkfs.ext4)";
  const std::string uid = std::to_string(geteuid());
  struct Case {
    std::string setup;  // what the disk's top folder holds before the move
    std::string trash;
  };
  const Case cases[] = {{"nothing", disk + "/.Trash-" + uid},
                        {"sticky .Trash", disk + "/.Trash/" + uid},
                        {"non-sticky .Trash", disk + "/.Trash-" + uid},
                        {".Trash linking to a sticky folder", disk + "/.Trash-" + uid},
                        {".Trash-uid writable by all", disk + "/.Trash-" + uid}};
  for (const Case& c : cases) {
    for (const std::string& name :
         {std::string("/.Trash"), std::string("/shared"), "/.Trash-" + uid})
      fs::remove_all(disk + name);
    const std::string made = c.setup.starts_with(".Trash linking") ? disk + "/shared"
                             : c.setup.starts_with(".Trash-uid")   ? disk + "/.Trash-" + uid
                                                                   : disk + "/.Trash";
    if (c.setup != "nothing") {
      fs::create_directory(made);
      chmod(made.c_str(),
            c.setup.starts_with("sticky") || c.setup.starts_with(".Trash linking") ? 01777 : 0777);
    }
    if (c.setup.starts_with(".Trash linking"))
      fs::create_directory_symlink("shared", disk + "/.Trash");
    const std::string item = disk + "/d e/f%.txt";
    writeFile(item, "on disk");
    const std::string local = tree.file("local.txt", 1);
    Error error;
    const std::optional<TrashMapping> mapping = move({item, local}, &error);
    ASSERT_TRUE(mapping) << c.setup << ": " << error.description;
    EXPECT_EQ((*mapping)[0].second, c.trash + "/files/f%.txt") << c.setup;
    EXPECT_EQ(trashInfoPath(infoText((*mapping)[0].second)), "d e/f%.txt");
    EXPECT_EQ(parentPath((*mapping)[1].second), home + "/files");
    EXPECT_EQ(statOf(c.trash).st_mode & 07777, 0700u) << c.setup;
    if (c.setup == "nothing" && haveCommand("trash-list")) {
      const test::ProcessRun run = trashCli({"trash-list"});
      EXPECT_NE(run.out.find(" " + item + "\n"), std::string::npos) << run.out << run.err;
    }
  }
}

TEST_F(TrashTest, TrashFoldersOfOtherUsersOrLinksAreRefusedForAnUnprivilegedUser) {
  const std::string disk = secondDisk();
  if (disk.empty() || geteuid() != 0)
    GTEST_SKIP() << "needs root and a loop-mounted ext4 to check another user's trash folders";
  const std::string nobodyHome = tree.folder("nobody");
  ASSERT_EQ(chown(nobodyHome.c_str(), 65534, 65534) | chmod(disk.c_str(), 01777), 0);
  const std::pair<const char*, const char*> cases[] = {
      {"root's", "/.Trash-65534” belongs to another user."},
      {"link", "/.Trash-65534” is a symbolic link."},
      {"root's in sticky", "/.Trash/65534” belongs to another user."},
      {"missing", ""}};
  for (const auto& [setup, reason] : cases) {
    const std::string expected = reason;
    for (const char* name : {"/.Trash", "/.Trash-65534", "/mine"}) fs::remove_all(disk + name);
    const std::string kind = setup;
    if (kind == "root's") fs::create_directory(disk + "/.Trash-65534");
    if (kind == "link") {
      fs::create_directory(disk + "/mine");
      ASSERT_EQ(chown((disk + "/mine").c_str(), 65534, 65534), 0);
      fs::create_directory_symlink("mine", disk + "/.Trash-65534");
    }
    if (kind == "root's in sticky") {
      fs::create_directories(disk + "/.Trash/65534");
      chmod((disk + "/.Trash").c_str(), 01777);
    }
    const std::string item = disk + "/item.txt", local = nobodyHome + "/local.txt";
    for (const std::string& path : {item, local}) {
      writeFile(path, "x");
      ASSERT_EQ(chown(path.c_str(), 65534, 65534), 0);
    }
    const std::string problem = test::runUnprivilegedReporting([&]() -> std::string {
      Error error;
      const std::optional<TrashMapping> mapping =
          moveToTrash({local, item}, TrashOptions{nobodyHome + "/Trash", nullptr}, &error);
      if (expected.empty())
        return mapping && exists(disk + "/.Trash-65534/files/item.txt") ? "" : error.description;
      if (mapping) return "moved despite a bad trash folder";
      if (!exists(item) || !exists(local)) return "something moved";
      return error.description.find("“item.txt”") != std::string::npos &&
                     error.description.find(expected) != std::string::npos
                 ? ""
                 : error.description;
    });
    EXPECT_EQ(problem, "") << setup;
  }
  const struct stat made = statOf(disk + "/.Trash-65534");
  EXPECT_EQ(made.st_uid, 65534u);
  EXPECT_EQ(made.st_mode & 07777, 0700u);
}

TEST_F(TrashTest, TrashCliListsAndRestoresOurItemsAndWeRestoreItsItems) {
  if (!haveCommand("trash-list") || !haveCommand("trash-restore"))
    GTEST_SKIP() << "trash-cli is not installed";
  const std::string ours = tree.file("ours/odd %\nname.txt", 3),
                    theirs = tree.file("theirs/cli file.txt", 4);
  ASSERT_TRUE(move({ours}));
  test::ProcessRun listed = trashCli({"trash-list"});
  EXPECT_NE(listed.out.find(" " + ours + "\n"), std::string::npos) << listed.out << listed.err;
  listed = trashCli({"sh", "-c", "echo 0 | trash-restore \"$0\"", tree.path("ours")});
  EXPECT_EQ(readFile(ours), "xxx") << listed.out << listed.err;
  EXPECT_TRUE(listFolder(home + "/info").empty());

  ASSERT_EQ(trashCli({"trash-put", theirs}).status, 0);
  ASSERT_EQ(listFolder(home + "/files").size(), 1u);
  Error error;
  EXPECT_TRUE(restoreFromTrash(home + "/files/" + listFolder(home + "/files")[0], theirs,
                               TrashOptions{home, nullptr}, &error))
      << error.description;
  EXPECT_EQ(readFile(theirs), "xxxx");
  EXPECT_TRUE(listFolder(home + "/info").empty());
}

}  // namespace
}  // namespace tw
