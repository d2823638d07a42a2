// Legacy scan archives: the keyed-archive decoder's rules, its refusal of damaged and hostile
// input, and the migration of an archive and its sidecar into a scan database.
#include "store/keyed_archive.h"

#include <gtest/gtest.h>
#include <plist/plist.h>

#include <cstring>
#include <functional>
#include <map>
#include <random>

#include "platform/file_url.h"
#include "store/binary_plist_check.h"
#include "store/scan_store.h"
#include "store/store_test_support.h"

namespace tw {
namespace {

using test::addFile;
using test::addFolder;

void expectArchiveError(const DecodedArchive& decoded, ArchiveErrorCode code) {
  EXPECT_EQ(decoded.root, nullptr);
  ASSERT_TRUE(decoded.error.has_value());
  EXPECT_EQ(decoded.error->domain, kArchiveErrorDomain);
  EXPECT_EQ(decoded.error->code, code) << decoded.error->description;
  EXPECT_FALSE(decoded.error->description.empty());
}

// An archive opened for editing, as a hostile or damaged file would differ from a good one.
struct EditableArchive {
  explicit EditableArchive(const std::vector<uint8_t>& bytes) {
    plist_from_bin(reinterpret_cast<const char*>(bytes.data()), static_cast<uint32_t>(bytes.size()),
                   &top);
    objects = plist_dict_get_item(top, "$objects");
  }
  ~EditableArchive() { plist_free(top); }
  uint32_t count() const { return plist_array_get_size(objects); }
  plist_t object(uint64_t uid) const {
    return plist_array_get_item(objects, static_cast<uint32_t>(uid));
  }
  // The object a key of object `at` refers to.
  plist_t at(uint64_t at, const char* key) const {
    uint64_t uid = 0;
    plist_get_uid_val(plist_dict_get_item(object(at), key), &uid);
    return object(uid);
  }
  // The object index of the node named `name`, and the UIDs of its children.
  uint32_t node(const char* name) const {
    for (uint32_t i = 0; i < count(); ++i)
      if (plist_dict_get_item(object(i), "name") && !plist_string_val_compare(at(i, "name"), name))
        return i;
    ADD_FAILURE() << "no node " << name;
    return 0;
  }
  plist_t childRefs(const char* name) const {
    return plist_dict_get_item(at(node(name), "children"), "NS.objects");
  }
  uint32_t append(plist_t item) {
    plist_array_append_item(objects, item);
    return count() - 1;
  }
  DecodedArchive decode() const {
    char* out = nullptr;
    uint32_t length = 0;
    plist_to_bin(top, &out, &length);
    std::vector<uint8_t> bytes(out, out + length);
    plist_to_bin_free(out);
    return decodeScanArchive(bytes);
  }
  plist_t top = nullptr, objects = nullptr;
};

// A binary property list written byte by byte, with four-byte offsets and references. Tests use
// it for graphs no writer produces, and for archives of a hundred thousand objects, which
// libplist's writer takes many seconds to make.
class RawPlist {
 public:
  uint32_t string(const std::string& text) {  // each text once, as writers do
    if (!strings_.contains(text)) strings_[text] = add(header(0x5, text.size()) + text);
    return strings_[text];
  }
  uint32_t uid(uint32_t value) { return add("\x83" + be(value, 4)); }
  uint32_t integer(uint64_t value) { return add("\x13" + be(value, 8)); }
  uint32_t boolean(bool value) { return add(value ? "\x09" : "\x08"); }
  uint32_t array(const std::vector<uint32_t>& refs) {
    std::string object = header(0xA, refs.size());
    for (uint32_t ref : refs) object += be(ref, 4);
    return add(object);
  }
  uint32_t dict(const std::vector<std::pair<std::string, uint32_t>>& entries) {
    std::string keys, values;
    for (const auto& [key, value] : entries) keys += be(string(key), 4), values += be(value, 4);
    return add(header(0xD, entries.size()) + keys + values);
  }
  std::vector<uint8_t> bytes(uint32_t root) const {
    std::string out = "bplist00", table;
    for (const std::string& object : objects_) table += be(out.size(), 4), out += object;
    const uint64_t tableAt = out.size();
    out += table + std::string("\0\0\0\0\0\0\4\4", 8) + be(objects_.size(), 8) + be(root, 8) +
           be(tableAt, 8);
    return {out.begin(), out.end()};
  }

 private:
  uint32_t add(std::string object) {
    objects_.push_back(std::move(object));
    return static_cast<uint32_t>(objects_.size() - 1);
  }
  static std::string be(uint64_t v, int size) {  // big-endian in `size` bytes
    std::string out;
    for (int i = size - 1; i >= 0; --i) out += static_cast<char>(v >> (8 * i));
    return out;
  }
  static std::string header(int type, std::size_t count) {
    if (count < 15) return std::string(1, static_cast<char>(type << 4 | count));
    return std::string{static_cast<char>(type << 4 | 0xF), '\x12'} + be(count, 4);
  }
  std::vector<std::string> objects_;
  std::map<std::string, uint32_t> strings_;
};

// A keyed archive of a chain of `depth` folders, each the only child of the one before, all
// sharing one URL.
std::vector<uint8_t> chainArchive(uint32_t depth) {
  RawPlist p;
  auto classDict = [&p](const char* name) {
    return p.dict({{"$classname", p.string(name)},
                   {"$classes", p.array({p.string(name), p.string("NSObject")})}});
  };
  constexpr uint32_t kNodeClass = 1, kArrayClass = 2, kURLClass = 3, kURLText = 4, kURL = 5;
  std::vector<uint32_t> objects{p.string("$null"), classDict("TWScanNode"), classDict("NSArray"),
                                classDict("NSURL"), p.string("file:///d/")};
  objects.push_back(p.dict(
      {{"$class", p.uid(kURLClass)}, {"NS.base", p.uid(0)}, {"NS.relative", p.uid(kURLText)}}));
  const uint32_t first = 6;  // node i at first + 2i, its child list right after it
  const uint32_t yes = p.boolean(true);
  for (uint32_t i = 0; i < depth; ++i) {
    objects.push_back(p.dict({{"$class", p.uid(kNodeClass)},
                              {"URL", p.uid(kURL)},
                              {"directory", yes},
                              {"children", p.uid(first + 2 * i + 1)}}));
    std::vector<uint32_t> items;
    if (i + 1 < depth) items.push_back(p.uid(first + 2 * (i + 1)));
    objects.push_back(p.dict({{"$class", p.uid(kArrayClass)}, {"NS.objects", p.array(items)}}));
  }
  uint32_t top = p.dict({{"$version", p.integer(100000)},
                         {"$archiver", p.string("NSKeyedArchiver")},
                         {"$top", p.dict({{"root", p.uid(first)}})},
                         {"$objects", p.array(objects)}});
  return p.bytes(top);
}

// Property-list graphs that would exhaust the parser's stack or memory: forty arrays each holding
// the next twice (2^40 objects once expanded), an array holding itself, and arrays nested two
// thousand and two hundred thousand (1.8 MB) deep.
std::vector<std::vector<uint8_t>> hostileGraphs() {
  std::vector<std::vector<uint8_t>> out;
  for (int shape = 0; shape < 4; ++shape) {
    RawPlist p;
    uint32_t next = p.boolean(false);
    for (int i = 0; shape == 0 && i < 40; ++i) next = p.array({next, next});
    if (shape == 1) next = p.array({1});
    for (int i = 0; i < (shape == 2 ? 2000 : shape == 3 ? 200'000 : 0); ++i) next = p.array({next});
    out.push_back(p.bytes(next));
  }
  return out;
}

// A scan as the scanner leaves it: sizes, flags, dates (one at the first second of 1970, one
// unknown), root figures and issues.
ScanNodeRef realisticTree() {
  ScanNodeRef root = test::makeFolderRoot(9'000'000, "/home/ana/Projects and Notes");
  ScanNode* src = addFolder(root.get(), "src", 5'000'000);
  src->setModificationDate(1'600'000'000.25);
  addFile(src, "main.cpp", 3'000'000)->setModificationDate(1'650'000'000.5);
  addFile(src, "Gr\u00fc\u00dfe 100%.txt", 1'000'000)->setModificationDate(0);  // 1970
  addFile(src, "bad\xFF\xFEname", 600'000);
  ScanNode* clone = addFile(src, "clone.bin", 0);
  clone->setAPFSClone(true);
  clone->setCloneAllocationElsewhere(true);
  clone->setCloneSharedSize(400'000);
  ScanNode* bundle = addFolder(root.get(), "App.bundle", 2'000'000);
  bundle->setPackage(true);
  addFolder(bundle, "Contents", 2'000'000);
  ScanNode* smaller = addFolder(root.get(), kSmallerObjectsName, 1'500'000);
  smaller->setAggregate(true);
  test::addFiles(smaller, "a.txt:1000000 b.txt:500000");
  addFile(root.get(), kHiddenSpaceName, 500'000)->setVirtualNode(true);
  root->setVolumeRoot(true);
  root->setVolumeCapacity(500'000'000'000ULL);
  root->setVolumeFreeSpace(120'000'000'000ULL);
  root->setVolumeAvailableSpace(130'000'000'000ULL);
  root->setSourceFingerprint(0x8000'0000'1234'5678ULL);
  root->setSourceItemCount(11);
  root->setScanDate(1'700'000'000.75);
  root->setScanIssues({{"/home/ana/Projects and Notes/locked", "Permission denied"},
                       {"/home/ana/Projects and Notes/Gr\u00fc\u00dfe", "Ungültig"}});
  return root;
}

TEST(KeyedArchive, TreeComesBackWholeWithRawNamesThroughPercentEncodedURLs) {
  for (ScanNodeRef tree : {realisticTree(), test::makeFolderRoot(10, "/")}) {
    if (tree->path() == "/") addFolder(tree.get(), "etc", 10);  // "/" keeps its name
    DecodedArchive decoded = decodeScanArchive(encodeScanArchive(*tree));
    ASSERT_NE(decoded.root, nullptr) << decoded.error->description;
    // Everything an archive stores comes back, each child list in the child order.
    EXPECT_EQ(test::describeTree(decoded.root.get()), test::describeTree(tree.get()));
    EXPECT_DOUBLE_EQ(decoded.root->scanDate(), tree->scanDate());
  }
  // The URL carries a name's raw bytes as escapes.
  const std::vector<uint8_t> bytes = encodeScanArchive(*realisticTree());
  EXPECT_NE(std::string(bytes.begin(), bytes.end())
                .find("file:///home/ana/Projects%20and%20Notes/src/bad%FF%FEname"),
            std::string::npos);
}

TEST(KeyedArchive, ChildOrderWithoutRegroupingNamesFromTheURLAndTheDepthLimit) {
  // Written smallest first, with names whose natural order differs from byte order.
  ScanNodeRef tree = test::makeFolderRoot(6'000'120, "/d");
  for (int i = 1; i <= 12; ++i) addFile(tree.get(), "f" + std::to_string(i), 10);
  addFile(tree.get(), "big", 1'000'000);
  addFile(tree.get(), kHiddenSpaceName, 5'000'000)->setVirtualNode(true);
  ScanNode* group = addFolder(tree.get(), kSmallerObjectsName, 0);
  group->setAggregate(true);
  addFile(group, "empty", 0);
  addFile(tree.get(), "zero file", 0);
  DecodedArchive decoded = decodeScanArchive(encodeScanArchive(*tree));
  ASSERT_NE(decoded.root, nullptr);
  // Twelve small files, yet no "smaller objects…" group; the empty group is dropped.
  EXPECT_EQ(test::childNames(decoded.root.get()),
            (test::Names{"big", "f1", "f2", "f3", "f4", "f5", "f6", "f7", "f8", "f9", "f10", "f11",
                         "f12", "zero file", std::string(kHiddenSpaceName)}));
  tree = realisticTree();
  EditableArchive archive(encodeScanArchive(*tree));
  const uint64_t top = archive.node("Projects and Notes");
  plist_t records = plist_dict_get_item(archive.at(top, "scanIssues"), "NS.objects");
  plist_dict_remove_item(archive.object(archive.node("main.cpp")), "name");
  plist_dict_remove_item(archive.object(top), "name");
  // One issue record becomes a plain string: issues of another shape are left out.
  plist_set_uid_val(plist_array_get_item(records, 0),
                    archive.append(plist_new_string("not a record")));
  decoded = archive.decode();
  ASSERT_NE(decoded.root, nullptr) << decoded.error->description;
  EXPECT_EQ(decoded.root->name(), "Projects and Notes");
  EXPECT_EQ(decoded.root->children()[0]->children()[0]->name(), "main.cpp");
  EXPECT_TRUE(decoded.root->scanIssues().empty());
  EXPECT_EQ(decoded.root->size(), tree->size());
  // A chain deeper than the limit is refused; one within it decodes.
  decoded = decodeScanArchive(chainArchive(kMaxArchiveDepth + 1));
  ASSERT_NE(decoded.root, nullptr) << decoded.error->description;
  uint32_t depth = 0;
  for (ScanNode* node = decoded.root.get(); !node->children().empty(); ++depth) {
    node = node->children()[0];
    ASSERT_EQ(node->path(), "/d");
  }
  EXPECT_EQ(depth, kMaxArchiveDepth);
  expectArchiveError(decodeScanArchive(chainArchive(100'000)), kArchiveTooComplex);
}

// The archive of /m: a/ (a1), b.
std::vector<uint8_t> smallArchive() {
  ScanNodeRef tree = test::makeFolderRoot(30, "/m");
  addFile(addFolder(tree.get(), "a", 20), "a1", 20);
  addFile(tree.get(), "b", 10);
  return encodeScanArchive(*tree);
}

TEST(KeyedArchiveMalformed, TruncatedRandomForeignAndExplodingPropertyListsAreRefused) {
  const std::vector<uint8_t> good = smallArchive();
  for (std::size_t cut : {std::size_t{0}, std::size_t{7}, good.size() / 2, good.size() - 1}) {
    std::vector<uint8_t> truncated(good.begin(), good.begin() + static_cast<long>(cut));
    expectArchiveError(decodeScanArchive(truncated), kArchiveNotPropertyList);
  }
  std::mt19937 random(7);
  std::vector<uint8_t> noise(4096);
  for (uint8_t& b : noise) b = static_cast<uint8_t>(random());
  expectArchiveError(decodeScanArchive(noise), kArchiveNotPropertyList);
  std::memcpy(noise.data(), "bplist00", 8);
  expectArchiveError(decodeScanArchive(noise), kArchiveNotPropertyList);
  for (const std::vector<uint8_t>& graph : hostileGraphs())
    expectArchiveError(decodeScanArchive(graph), kArchiveNotPropertyList);
  // Sharing within reason is fine.
  RawPlist p;
  const uint32_t leaf = p.boolean(true);
  EXPECT_FALSE(checkBinaryPlist(p.bytes(p.array({leaf, leaf}))).has_value());
  expectArchiveError(decodeScanArchive(p.bytes(p.array({p.string("hello")}))),
                     kArchiveNotScanArchive);
  EditableArchive archive(good);
  for (uint64_t i = 0; i < archive.count(); ++i) {
    plist_t name = plist_dict_get_item(archive.object(i), "$classname");
    if (name && plist_string_val_compare(name, "TWScanNode") == 0)
      plist_set_string_val(name, "NSString");
  }
  expectArchiveError(archive.decode(), kArchiveNotScanArchive);
}

TEST(KeyedArchiveMalformed, CyclesSharedItemsBadReferencesAndWrongTypesAreRefused) {
  const std::vector<uint8_t> good = smallArchive();
  ASSERT_NE(decodeScanArchive(good).root, nullptr);
  using Edit = std::function<void(EditableArchive&)>;
  auto addChild = [](const char* parent, const char* child) {
    return [=](EditableArchive& e) {
      plist_array_append_item(e.childRefs(parent), plist_new_uid(e.node(child)));
    };
  };
  // Points the UID under `key` of node `name` (or of the object it refers to under `via`) at a
  // new string, or at `uid` when one is given.
  auto rewire = [](const char* name, const char* key, const char* text, const char* via = nullptr,
                   uint64_t uid = 0) {
    return [=](EditableArchive& e) {
      plist_t holder = via ? e.at(e.node(name), via) : e.object(e.node(name));
      plist_set_uid_val(plist_dict_get_item(holder, key),
                        text ? e.append(plist_new_string(text)) : uid);
    };
  };
  const std::vector<std::pair<const char*, Edit>> edits = {
      {"a1 lists the root as its child", addChild("a1", "m")},
      {"a lists itself", addChild("a", "a")},
      {"b appears under the root and under a", addChild("a", "b")},
      {"a child reference out of range",
       [](EditableArchive& e) {
         plist_set_uid_val(plist_array_get_item(e.childRefs("a"), 0), 999'999);
       }},
      {"a URL reference out of range", rewire("b", "URL", nullptr, nullptr, 999'999)},
      {"a child list holding a string",
       [](EditableArchive& e) {
         const uint64_t text = e.append(plist_new_string("intruder"));
         plist_array_append_item(e.childRefs("a"), plist_new_uid(text));
       }},
      {"children that are not a list", rewire("b", "children", "not a list")},
      {"a size that is text",
       [](EditableArchive& e) {
         plist_dict_set_item(e.object(e.node("a1")), "size", plist_new_string("12"));
       }},
      {"a location that is not a file URL",
       rewire("a", "NS.relative", "https://example.org/a", "URL")},
  };
  for (const auto& [what, edit] : edits) {
    SCOPED_TRACE(what);
    EditableArchive archive(good);
    edit(archive);
    expectArchiveError(archive.decode(), kArchiveDamaged);
  }
}

TEST(KeyedArchiveMalformed, MutatedBytesAndRewiredReferencesNeverCrash) {
  const std::vector<uint8_t> seed = encodeScanArchive(*realisticTree());
  std::mt19937 random(2024);
  auto check = [](const DecodedArchive& decoded) {
    EXPECT_NE(decoded.root != nullptr, decoded.error.has_value());
    EXPECT_EQ(decoded.error.value_or(Error{kArchiveErrorDomain, 0, ""}).domain,
              kArchiveErrorDomain);
    return decoded.root != nullptr;
  };
  int decodedCount = 0;
  for (int round = 0; round < 3000; ++round) {
    std::vector<uint8_t> bytes = seed;
    for (int flips = 1 + static_cast<int>(random() % 4); flips > 0; --flips) {
      uint8_t& at = bytes[random() % bytes.size()];
      const unsigned how = random() % 3;
      at = how == 0   ? static_cast<uint8_t>(at ^ (1u << (random() % 8)))
           : how == 1 ? static_cast<uint8_t>(random())
                      : static_cast<uint8_t>(at + 1);
    }
    if (random() % 8 == 0) bytes.resize(random() % bytes.size());
    decodedCount += check(decodeScanArchive(bytes));
  }
  EXPECT_GT(decodedCount, 0);  // some mutations touch only values, and those still decode
  // References rewired: the bytes after a UID marker (0x80 to 0x83) point elsewhere.
  for (int round = 0; round < 400; ++round) {
    std::vector<uint8_t> bytes = seed;
    for (int edits = 1 + static_cast<int>(random() % 3); edits > 0;) {
      const std::size_t at = random() % (bytes.size() - 1);
      if (bytes[at] >= 0x80 && bytes[at] <= 0x83)
        bytes[at + 1] = static_cast<uint8_t>(random()), --edits;
    }
    check(decodeScanArchive(bytes));
  }
}

TEST(ArchiveFileURL, PathsBecomePercentEncodedURLsAndBack) {
  EXPECT_EQ(fileURLForPath("/Users/x/My File", false), "file:///Users/x/My%20File");
  EXPECT_EQ(fileURLForPath("/a/b", true), "file:///a/b/");
  EXPECT_EQ(fileURLForPath("/", true), "file:///");
  EXPECT_EQ(fileURLForPath("/100%/#?", false), "file:///100%25/%23%3F");
  for (std::string path : {"/", "/a b/c%d", "/x\xFF\x01y/\xC3\xA9t\xC3\xA9", "/q?#"}) {
    EXPECT_EQ(pathForFileURL(fileURLForPath(path, false)), path);
    EXPECT_EQ(pathForFileURL(fileURLForPath(path, true)), path);
  }
  EXPECT_EQ(pathForFileURL("file://localhost/a%2Fb/"), "/a/b");
  EXPECT_EQ(pathForFileURL("FILE:///A%zz"), "/A%zz");
  EXPECT_EQ(pathForFileURL("File:/short/form"), "/short/form");
  for (const char* url :
       {"file://server/share", "file://localhostx/a", "http:///a", "file:///a%00b"})
    EXPECT_FALSE(pathForFileURL(url)) << url;
}

TEST(ArchiveMigration, ArchiveAndSidecarBecomeADatabaseAndNothingDamagedCrashesOrIsWritten) {
  test::TempTree tree;
  const std::string archive = tree.path("LastScan.archive"),
                    database = tree.path("LastScan.sqlite");
  // A missing or foreign archive fails with its error and writes nothing.
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
  const std::vector<uint8_t> encoded = encodeScanArchive(*test::makeSampleTree());
  test::writeFile(archive, std::string(encoded.begin(), encoded.end()));
  // Binary, as sidecars were written: an XML plist would round dates to whole seconds.
  plist_t dict = plist_new_dict();
  plist_dict_set_item(dict, "scanDate", plist_new_date(700000000, 500000));  // since 2001
  plist_dict_set_item(dict, "sourceFingerprint", plist_new_uint(0x8000000000000001ull));
  plist_dict_set_item(dict, "sourceItemCount", plist_new_string("twelve"));
  char* data = nullptr;
  uint32_t length = 0;
  plist_to_bin(dict, &data, &length);
  const std::string good(data, length);
  plist_to_bin_free(data);
  plist_free(dict);
  // A good sidecar, one cut short, the hostile graphs, and XML nested two hundred thousand deep.
  std::vector<std::pair<std::string, bool>> sidecars = {{good, true},
                                                        {good.substr(0, good.size() - 3), false}};
  for (const std::vector<uint8_t>& graph : hostileGraphs())
    sidecars.emplace_back(std::string(graph.begin(), graph.end()), false);
  std::string xml = "<?xml version=\"1.0\"?><plist version=\"1.0\">";
  for (int i = 0; i < 200'000; ++i) xml += "<array>";
  for (int i = 0; i < 200'000; ++i) xml += "</array>";
  sidecars.emplace_back(xml + "</plist>", false);
  for (const auto& [bytes, applied] : sidecars) {
    SCOPED_TRACE(std::to_string(bytes.size()) + " bytes");
    test::writeFile(archive + ".metadata.plist", bytes);
    std::remove(database.c_str());
    ASSERT_TRUE(ScanStore::migrateArchive(archive, database, &error)) << error.description;
    auto metadata = ScanStore::metadataAt(database);
    ASSERT_TRUE(metadata && metadata->scanDate);
    EXPECT_DOUBLE_EQ(*metadata->scanDate, applied ? 978307200.0 + 700000000.5 : 1700000000.0);
    EXPECT_EQ(metadata->sourceFingerprint, applied ? 0x8000000000000001ull : 0xfedcba9876543210ull);
    EXPECT_EQ(metadata->sourceItemCount, 11);  // the string is ignored
    EXPECT_EQ(metadata->locationPath, "/data");
    EXPECT_EQ(test::readFile(archive + ".metadata.plist"), bytes);
  }
  auto store = ScanStore::open(database);
  ASSERT_TRUE(store);
  EXPECT_EQ(store->allFilesUnderNode(store->rootNode().get()).size(), 6u);
}

}  // namespace
}  // namespace tw
