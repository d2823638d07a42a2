// Converting a legacy scan archive: the file handling around the decoder, the sidecar's
// overrides, and the decoder's error.
#include <gtest/gtest.h>
#include <plist/plist.h>

#include "store/keyed_archive.h"
#include "store/scan_store.h"
#include "store/store_test_support.h"
#include "support/temp_tree.h"

namespace tw {
namespace {

std::string plistBytes(plist_t plist) {
  // Binary, as the sidecar was written: an XML plist would round dates to whole seconds.
  char* data = nullptr;
  uint32_t length = 0;
  plist_to_bin(plist, &data, &length);
  std::string bytes(data, length);
  free(data);
  return bytes;
}

class ArchiveMigrationTest : public ::testing::Test {
 protected:
  test::TempTree tree;
  std::string archive = tree.path("LastScan.archive");
  std::string database = tree.path("LastScan.sqlite");
};

TEST_F(ArchiveMigrationTest, MissingOrForeignArchiveFailsWithItsErrorAndWritesNothing) {
  Error error;
  EXPECT_FALSE(ScanStore::migrateArchive(archive, database, &error));
  EXPECT_EQ(error, posixError(ENOENT));
  EXPECT_TRUE(test::listFolder(tree.root()).empty());

  test::writeFile(archive, "not a keyed archive of a scan node");
  ASSERT_TRUE(ScanStore::writeRootNode(test::makeSampleTree().get(), database));
  const std::string before = test::readFile(database);
  EXPECT_FALSE(ScanStore::migrateArchive(archive, database, &error));
  EXPECT_EQ(error.domain, kArchiveErrorDomain);
  EXPECT_FALSE(error.description.empty());
  EXPECT_EQ(test::readFile(database), before);
  EXPECT_EQ(test::readFile(archive), "not a keyed archive of a scan node");
  EXPECT_EQ(test::listFolder(tree.root()),
            (std::vector<std::string>{"LastScan.archive", "LastScan.sqlite"}));
}

TEST_F(ArchiveMigrationTest, ArchiveAndSidecarBecomeAScanDatabase) {
  ScanNodeRef root = test::makeSampleTree();
  const std::vector<uint8_t> encoded = encodeScanArchive(*root);
  if (encoded.empty()) GTEST_SKIP() << "this build has no archive encoder";
  test::writeFile(archive, std::string(encoded.begin(), encoded.end()));

  plist_t sidecar = plist_new_dict();
  plist_dict_set_item(sidecar, "scanDate", plist_new_date(700000000, 500000));  // since 2001
  plist_dict_set_item(sidecar, "sourceFingerprint", plist_new_uint(0x8000000000000001ull));
  plist_dict_set_item(sidecar, "sourceItemCount", plist_new_string("twelve"));
  const std::string sidecarBytes = plistBytes(sidecar);
  plist_free(sidecar);
  test::writeFile(archive + ".metadata.plist", sidecarBytes);

  Error error;
  ASSERT_TRUE(ScanStore::migrateArchive(archive, database, &error)) << error.description;
  auto metadata = ScanStore::metadataAt(database);
  ASSERT_TRUE(metadata);
  EXPECT_DOUBLE_EQ(*metadata->scanDate, 978307200.0 + 700000000.5);
  EXPECT_EQ(metadata->sourceFingerprint, 0x8000000000000001ull);
  EXPECT_EQ(metadata->sourceItemCount, 11);  // the string is ignored
  EXPECT_EQ(metadata->locationPath, "/data");
  auto store = ScanStore::open(database);
  ASSERT_TRUE(store);
  EXPECT_EQ(store->allFilesUnderNode(store->rootNode().get()).size(), 6u);
  EXPECT_EQ(test::readFile(archive + ".metadata.plist"), sidecarBytes);
}

}  // namespace
}  // namespace tw
