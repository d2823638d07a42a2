// The cleanup rule as one table: each reason at the edges of its size, age and place, the items it
// never recommends (protected places, the home folder, synthetic entries, empty items), and the
// date read from the file system for items the scan has no date for.
#include "tools/cleanup_rule.h"

#include <gtest/gtest.h>

#include <cmath>

namespace tw {
namespace {

enum class Kind { File, Folder, Virtual, Aggregate };
constexpr uint64_t kMiB = 1048576;
constexpr double kDay = 86400;
constexpr double kNow = 1.7e9;
constexpr double kNoDate = NAN;

struct Case {
  const char* path;
  Kind kind;
  uint64_t size;
  double daysOld;           // kNoDate: the scan has none
  std::string_view reason;  // "" for none
};

TEST(CleanupRule, ReasonsTheirBoundariesAndProtectedPlaces) {
  namespace r = cleanup_reason;
  const Case cases[] = {
      {"/Users/a/Library/Caches/com.example.app", Kind::Folder, 150 * kMiB, 31, r::kCache},
      {"/Users/a/Library/Caches", Kind::Folder, 150 * kMiB, 31, ""},
      {"/Users/a/Library/Caches/com.example.app/sub", Kind::Folder, 150 * kMiB, 31, ""},
      {"/Users/a/Library/Caches/file.bin", Kind::File, 150 * kMiB, 31, ""},
      {"/home/ann/.cache/thumbnails", Kind::Folder, 100 * kMiB, 30.0001, r::kCache},
      {"/home/ann/.cache/thumbnails", Kind::Folder, 100 * kMiB - 1, 31, ""},
      {"/home/ann/.cache/thumbnails", Kind::Folder, 100 * kMiB, 30, ""},
      {"/home/ann/code/.cache/thumbnails", Kind::Folder, 100 * kMiB, 31, ""},
      {"/home/ann/.cache/thumbnails/x", Kind::Folder, 100 * kMiB, 31, ""},
      {"/home/ann/Downloads/setup.DMG", Kind::File, 100 * kMiB, 181, r::kDownloadedInstaller},
      {"/home/ann/Movies/setup.dmg", Kind::File, 100 * kMiB, 181, r::kOldInstaller},
      {"/home/ann/Movies/film.mkv", Kind::File, 100 * kMiB, 181, ""},
      {"/home/ann/Downloads/film.mkv", Kind::File, 100 * kMiB, 181, r::kOldDownload},
      {"/home/ann/Downloads/film.mkv", Kind::File, 100 * kMiB, 180, ""},
      {"/home/ann/Downloads/archive.zip", Kind::Folder, 100 * kMiB, 181, ""},
      {"/home/ann/Downloads/nodate.iso", Kind::File, 100 * kMiB, kNoDate, r::kDownloadedInstaller},
      {"/home/ann/Downloads/unknown.iso", Kind::File, 100 * kMiB, kNoDate, ""},
      {"/home/ann/x/.DS_Store", Kind::File, 1, 0, r::kDSStore},
      {"/home/ann/x/.ds_STORE", Kind::File, 1, 0, r::kDSStore},
      {"/home/ann/x/.DS_Store", Kind::Folder, 4096, 400, ""},
      {"/home/ann/x/.DS_Store", Kind::File, 0, 400, ""},
      {"/Users/a/Library/Application Support/MobileSync/Backup/0000-1111", Kind::Folder, 100 * kMiB,
       91, r::kDeviceBackup},
      {"/Users/a/Library/Application Support/MobileSync/Backup/0000-1111", Kind::Folder, 100 * kMiB,
       90, ""},
      {"/Users/a/Library/Developer/Xcode/Archives/2024-01-01/App.xcarchive", Kind::Folder,
       100 * kMiB, 181, r::kXcodeArchive},
      {"/Users/a/Library/Developer/Xcode/Archives/2024-01-01/App.zip", Kind::Folder, 100 * kMiB,
       181, ""},
      {"/Users/a/Library/Developer/Xcode/DerivedData/App-abc", Kind::Folder, 100 * kMiB, 31,
       r::kDerivedData},
      {"/Users/a/Library/Developer/Xcode/iOS DeviceSupport/17.0", Kind::Folder, 100 * kMiB, 181,
       r::kDeviceSupport},
      {"/Users/a/Library/Logs/App", Kind::Folder, 100 * kMiB, 91, r::kLogFolder},
      {"/Users/a/Library/Logs/App", Kind::Folder, 100 * kMiB, 90, ""},
      {"/Users/a/Library/Caches/com.example.app", Kind::Virtual, 150 * kMiB, 31, ""},
      {"/Users/a/Library/Caches/com.example.app", Kind::Aggregate, 150 * kMiB, 31, ""},
      // Protected: the home folder, "/", system folders, the pkexec caller's home; not disks
      // mounted below /run/media.
      {"/home/ann", Kind::Folder, 1000 * kMiB, 400, ""},
      {"/home/ann/", Kind::Folder, 1000 * kMiB, 400, ""},
      {"/", Kind::Folder, 1000 * kMiB, 400, ""},
      {"/usr/share/big.zip", Kind::File, 200 * kMiB, 400, ""},
      {"/private/tmp/big", Kind::File, 20 * kMiB, 8, ""},
      {"/Library/Caches/com.example.app", Kind::Folder, 150 * kMiB, 31, ""},
      {"/var/tmp/Downloads/big.iso", Kind::File, 200 * kMiB, 400, ""},
      {"/home/caller/Downloads/big.iso", Kind::File, 200 * kMiB, 400, ""},
      {"/run/user/0/Downloads/big.iso", Kind::File, 200 * kMiB, 400, ""},
      {"/run/media/ann/disk/Downloads/big.iso", Kind::File, 200 * kMiB, 400,
       r::kDownloadedInstaller},
  };
  CleanupRuleContext context;
  context.now = kNow;
  context.homeFolder = "/home/ann";
  context.protectedHomes = {"/home/caller"};
  context.fileModificationDate = [](const std::string& path) -> std::optional<double> {
    if (path == "/home/ann/Downloads/nodate.iso") return kNow - 181 * kDay;
    return std::nullopt;
  };
  for (const Case& c : cases) {
    ScanNodeRef node = ScanNode::makeRoot(c.path, c.kind != Kind::File);
    node->setSize(c.size);
    node->setVirtualNode(c.kind == Kind::Virtual);
    node->setAggregate(c.kind == Kind::Aggregate);
    if (!std::isnan(c.daysOld)) node->setModificationDate(kNow - c.daysOld * kDay);
    EXPECT_EQ(cleanupReason(node.get(), context).value_or(""), c.reason)
        << c.path << " size " << c.size << " days " << c.daysOld;
  }
  EXPECT_FALSE(cleanupReason(nullptr, context));
}

}  // namespace
}  // namespace tw
