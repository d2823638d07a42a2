#include "store/keyed_archive.h"

#include <gtest/gtest.h>
#include <plist/plist.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "store/binary_plist_check.h"
#include "store/file_url.h"

namespace tw {
namespace {

// --- Helpers ---------------------------------------------------------------------------------

struct TreeShape {
  TreeShape(std::string n, bool dir, uint64_t sz, std::function<void(ScanNode&)> t = nullptr,
            std::vector<TreeShape> kids = {})
      : name(std::move(n)),
        directory(dir),
        size(sz),
        tweak(std::move(t)),
        children(std::move(kids)) {}
  std::string name;
  bool directory;
  uint64_t size;
  std::function<void(ScanNode&)> tweak;
  std::vector<TreeShape> children;
};

void addChildren(ScanNode& parent, const std::vector<TreeShape>& shapes) {
  for (const TreeShape& shape : shapes) {
    ScanNode* child = parent.createNode(shape.name, shape.directory);
    child->setSize(shape.size);
    if (shape.tweak) shape.tweak(*child);
    parent.addChild(child);
    addChildren(*child, shape.children);
  }
}

ScanNodeRef makeTree(std::string_view path, uint64_t size, const std::vector<TreeShape>& shapes) {
  ScanNodeRef root = ScanNode::makeRoot(path, true);
  root->setSize(size);
  addChildren(*root, shapes);
  return root;
}

DecodedArchive roundTrip(ScanNode& root) {
  std::vector<uint8_t> bytes = encodeScanArchive(root);
  EXPECT_FALSE(bytes.empty());
  return decodeScanArchive(bytes);
}

std::vector<std::string> childNames(ScanNode& node) {
  std::vector<std::string> names;
  for (ScanNode* child : node.children()) names.emplace_back(child->name());
  return names;
}

// Compares everything an archive stores, and that each child list is in the child order.
void expectSameTree(ScanNode& expected, ScanNode& actual) {
  SCOPED_TRACE(expected.path());
  EXPECT_EQ(actual.name(), expected.name());
  EXPECT_EQ(actual.path(), expected.path());
  EXPECT_EQ(actual.size(), expected.size());
  EXPECT_EQ(actual.isDirectory(), expected.isDirectory());
  EXPECT_EQ(actual.isPackage(), expected.isPackage());
  EXPECT_EQ(actual.isAggregate(), expected.isAggregate());
  EXPECT_EQ(actual.isVolumeRoot(), expected.isVolumeRoot());
  EXPECT_EQ(actual.isVirtualNode(), expected.isVirtualNode());
  EXPECT_EQ(actual.isAPFSClone(), expected.isAPFSClone());
  EXPECT_EQ(actual.isCloneAllocationElsewhere(), expected.isCloneAllocationElsewhere());
  EXPECT_EQ(actual.cloneSharedSize(), expected.cloneSharedSize());
  EXPECT_EQ(actual.volumeCapacity(), expected.volumeCapacity());
  EXPECT_EQ(actual.volumeFreeSpace(), expected.volumeFreeSpace());
  EXPECT_EQ(actual.volumeAvailableSpace(), expected.volumeAvailableSpace());
  EXPECT_EQ(actual.sourceFingerprint(), expected.sourceFingerprint());
  EXPECT_EQ(actual.sourceItemCount(), expected.sourceItemCount());
  EXPECT_DOUBLE_EQ(actual.scanDate(), expected.scanDate());
  EXPECT_DOUBLE_EQ(actual.modificationDate(), expected.modificationDate());
  EXPECT_EQ(actual.scanIssues(), expected.scanIssues());
  EXPECT_TRUE(actual.isChildrenLoaded());
  auto want = expected.children();
  auto got = actual.children();
  ASSERT_EQ(got.size(), want.size());
  for (std::size_t i = 0; i < got.size(); ++i) {
    EXPECT_EQ(got[i]->parent(), &actual);
    if (i > 0) {
      EXPECT_FALSE(ScanNode::precedes(got[i], got[i - 1]));
    }
    expectSameTree(*want[i], *got[i]);
  }
}

void expectArchiveError(const DecodedArchive& decoded, ArchiveErrorCode code) {
  EXPECT_EQ(decoded.root, nullptr);
  ASSERT_TRUE(decoded.error.has_value());
  EXPECT_EQ(decoded.error->domain, kArchiveErrorDomain);
  EXPECT_EQ(decoded.error->code, code) << decoded.error->description;
  EXPECT_FALSE(decoded.error->description.empty());
}

// An archive opened for editing, as a hostile or damaged file would differ from a good one.
class EditableArchive {
 public:
  explicit EditableArchive(const std::vector<uint8_t>& bytes) {
    plist_from_bin(reinterpret_cast<const char*>(bytes.data()), static_cast<uint32_t>(bytes.size()),
                   &top_);
    objects_ = plist_dict_get_item(top_, "$objects");
  }
  ~EditableArchive() { plist_free(top_); }

  plist_t object(uint64_t uid) const { return plist_array_get_item(objects_, uid); }
  uint64_t count() const { return plist_array_get_size(objects_); }
  static uint64_t uid(plist_t value) {
    uint64_t v = 0;
    plist_get_uid_val(value, &v);
    return v;
  }
  // The object index of the node named `name`.
  uint64_t node(std::string_view name) const {
    for (uint64_t i = 0; i < count(); ++i) {
      plist_t nameRef = plist_dict_get_item(object(i), "name");
      if (plist_get_node_type(object(i)) != PLIST_DICT || !nameRef) continue;
      uint64_t length = 0;
      const char* text = plist_get_string_ptr(object(uid(nameRef)), &length);
      if (text && std::string_view(text, length) == name) return i;
    }
    ADD_FAILURE() << "no node " << name;
    return 0;
  }
  // The UIDs of a node's children.
  plist_t childRefs(uint64_t node) const {
    return plist_dict_get_item(object(uid(plist_dict_get_item(object(node), "children"))),
                               "NS.objects");
  }
  uint64_t append(plist_t object) {
    plist_array_append_item(objects_, object);
    return count() - 1;
  }
  std::vector<uint8_t> bytes() const {
    char* out = nullptr;
    uint32_t length = 0;
    plist_to_bin(top_, &out, &length);
    std::vector<uint8_t> result(out, out + length);
    plist_to_bin_free(out);
    return result;
  }
  DecodedArchive decode() const { return decodeScanArchive(bytes()); }

 private:
  plist_t top_ = nullptr;
  plist_t objects_ = nullptr;
};

// A binary property list written byte by byte, with four-byte offsets and references. Tests use
// it for graphs no writer produces, and for archives of a hundred thousand objects, which
// libplist's writer takes many seconds to make.
class RawPlist {
 public:
  uint32_t string(std::string_view text) {
    if (auto known = strings_.find(std::string(text)); known != strings_.end())
      return known->second;
    std::vector<uint8_t> object = header(0x5, text.size());
    object.insert(object.end(), text.begin(), text.end());
    return strings_[std::string(text)] = add(std::move(object));
  }
  uint32_t uid(uint32_t value) { return add(withBigEndian({0x83}, value, 4)); }
  uint32_t integer(uint64_t value) { return add(withBigEndian({0x13}, value, 8)); }
  uint32_t boolean(bool value) { return add({static_cast<uint8_t>(value ? 0x09 : 0x08)}); }
  uint32_t array(const std::vector<uint32_t>& refs) {
    std::vector<uint8_t> object = header(0xA, refs.size());
    for (uint32_t ref : refs) object = withBigEndian(std::move(object), ref, 4);
    return add(std::move(object));
  }
  uint32_t dict(const std::vector<std::pair<std::string, uint32_t>>& entries) {
    std::vector<uint8_t> object = header(0xD, entries.size());
    std::vector<uint32_t> keys;
    for (const auto& entry : entries) keys.push_back(string(entry.first));
    for (uint32_t key : keys) object = withBigEndian(std::move(object), key, 4);
    for (const auto& entry : entries) object = withBigEndian(std::move(object), entry.second, 4);
    return add(std::move(object));
  }
  uint32_t add(std::vector<uint8_t> object) {
    objects_.push_back(std::move(object));
    return static_cast<uint32_t>(objects_.size() - 1);
  }
  std::vector<uint8_t> bytes(uint32_t root) const {
    std::vector<uint8_t> out{'b', 'p', 'l', 'i', 's', 't', '0', '0'};
    std::vector<uint64_t> offsets;
    for (const auto& object : objects_) {
      offsets.push_back(out.size());
      out.insert(out.end(), object.begin(), object.end());
    }
    uint64_t table = out.size();
    for (uint64_t offset : offsets) out = withBigEndian(std::move(out), offset, 4);
    out.insert(out.end(), {0, 0, 0, 0, 0, 0, 4, 4});
    out = withBigEndian(std::move(out), objects_.size(), 8);
    out = withBigEndian(std::move(out), root, 8);
    return withBigEndian(std::move(out), table, 8);
  }

 private:
  static std::vector<uint8_t> withBigEndian(std::vector<uint8_t> out, uint64_t v, int size) {
    for (int i = size - 1; i >= 0; --i) out.push_back(static_cast<uint8_t>(v >> (8 * i)));
    return out;
  }
  static std::vector<uint8_t> header(uint8_t type, std::size_t count) {
    if (count < 15) return {static_cast<uint8_t>(type << 4 | count)};
    return withBigEndian({static_cast<uint8_t>(type << 4 | 0xF), 0x12}, count, 4);
  }
  std::vector<std::vector<uint8_t>> objects_;
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
                              {"size", p.integer(depth - i)},
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

// A scan as the scanner leaves it: sizes, flags, dates, root figures and issues.
ScanNodeRef realisticTree() {
  const std::string smaller(kSmallerObjectsName);
  const std::string hidden(kHiddenSpaceName);
  auto modified = [](double date) { return [date](ScanNode& n) { n.setModificationDate(date); }; };
  ScanNodeRef root =
      makeTree("/home/ana/Projects and Notes", 9'000'000,
               {
                   {"src",
                    true,
                    5'000'000,
                    modified(1'600'000'000.25),
                    {
                        {"main.cpp", false, 3'000'000, modified(1'650'000'000.5)},
                        {"Gr\xC3\xBC\xC3\x9F"
                         "e 100%.txt",
                         false, 1'000'000, nullptr},
                        {"bad\xFF\xFEname", false, 600'000, nullptr},
                        {"clone.bin", false, 0,
                         [](ScanNode& n) {
                           n.setAPFSClone(true);
                           n.setCloneAllocationElsewhere(true);
                           n.setCloneSharedSize(400'000);
                         }},
                    }},
                   {"App.bundle",
                    true,
                    2'000'000,
                    [](ScanNode& n) { n.setPackage(true); },
                    {{"Contents", true, 2'000'000, nullptr}}},
                   {smaller,
                    true,
                    1'500'000,
                    [](ScanNode& n) { n.setAggregate(true); },
                    {{"a.txt", false, 1'000'000, nullptr}, {"b.txt", false, 500'000, nullptr}}},
                   {hidden, false, 500'000, [](ScanNode& n) { n.setVirtualNode(true); }},
               });
  root->setVolumeRoot(true);
  root->setVolumeCapacity(500'000'000'000ULL);
  root->setVolumeFreeSpace(120'000'000'000ULL);
  root->setVolumeAvailableSpace(130'000'000'000ULL);
  root->setSourceFingerprint(0x8000'0000'1234'5678ULL);
  root->setSourceItemCount(11);
  root->setScanDate(1'700'000'000.75);
  root->setScanIssues({{"/home/ana/Projects and Notes/locked", "Permission denied"},
                       {"/home/ana/Projects and Notes/Gr\xC3\xBC\xC3\x9F"
                        "e",
                        "Ungültig"}});
  return root;
}

// --- Round trips -----------------------------------------------------------------------------

TEST(KeyedArchiveRoundTrip, RealisticTreeComesBackWhole) {
  ScanNodeRef tree = realisticTree();
  DecodedArchive decoded = roundTrip(*tree);
  ASSERT_FALSE(decoded.error) << decoded.error->description;
  ASSERT_NE(decoded.root, nullptr);
  expectSameTree(*tree, *decoded.root);
  EXPECT_EQ(decoded.root->sourceFingerprint(), 0x8000'0000'1234'5678ULL);
}

TEST(KeyedArchiveRoundTrip, NameThatIsNotUTF8SurvivesThroughThePercentEncodedURL) {
  ScanNodeRef tree = realisticTree();
  std::vector<uint8_t> bytes = encodeScanArchive(*tree);
  EditableArchive archive(bytes);
  // The URL carries the raw bytes as escapes; the name is left out.
  uint64_t found = 0;
  for (uint64_t i = 0; i < archive.count(); ++i) {
    uint64_t length = 0;
    const char* text = plist_get_string_ptr(archive.object(i), &length);
    if (text && std::string_view(text, length) ==
                    "file:///home/ana/Projects%20and%20Notes/src/bad%FF%FEname") {
      found = i;
    }
  }
  EXPECT_NE(found, 0u);
  DecodedArchive decoded = decodeScanArchive(bytes);
  ASSERT_NE(decoded.root, nullptr);
  ScanNode* src = decoded.root->children()[0];
  EXPECT_EQ(childNames(*src)[2], "bad\xFF\xFEname");
  EXPECT_EQ(src->children()[2]->path(), "/home/ana/Projects and Notes/src/bad\xFF\xFEname");
}

TEST(KeyedArchiveRoundTrip, RootOfTheFileSystemKeepsItsName) {
  ScanNodeRef tree = makeTree("/", 10, {{"etc", true, 10, nullptr}});
  DecodedArchive decoded = roundTrip(*tree);
  ASSERT_NE(decoded.root, nullptr);
  EXPECT_EQ(decoded.root->name(), "/");
  EXPECT_EQ(decoded.root->children()[0]->path(), "/etc");
}

// --- Decoding rules --------------------------------------------------------------------------

TEST(KeyedArchiveRules, ZeroSizeSmallerObjectsGroupIsDropped) {
  std::string smaller(kSmallerObjectsName);
  auto aggregate = [](ScanNode& n) { n.setAggregate(true); };
  ScanNodeRef tree = makeTree("/data", 100,
                              {{"keep", false, 100, nullptr},
                               {smaller, true, 0, aggregate, {{"empty", false, 0, nullptr}}},
                               {"zero file", false, 0, nullptr}});
  DecodedArchive decoded = roundTrip(*tree);
  ASSERT_NE(decoded.root, nullptr);
  EXPECT_EQ(childNames(*decoded.root), (std::vector<std::string>{"keep", "zero file"}));
}

TEST(KeyedArchiveRules, ChildrenComeBackInChildOrderWithoutRegrouping) {
  std::vector<TreeShape> small;
  // Written smallest first, with names whose natural order differs from byte order.
  for (int i = 1; i <= 12; ++i) small.push_back({"f" + std::to_string(i), false, 10, nullptr});
  small.push_back({"big", false, 1'000'000, nullptr});
  small.push_back({std::string(kHiddenSpaceName), false, 5'000'000,
                   [](ScanNode& n) { n.setVirtualNode(true); }});
  ScanNodeRef tree = makeTree("/d", 6'000'120, small);
  DecodedArchive decoded = roundTrip(*tree);
  ASSERT_NE(decoded.root, nullptr);
  std::vector<std::string> names = childNames(*decoded.root);
  ASSERT_EQ(names.size(), 14u);  // twelve small files, yet no "smaller objects…" group
  EXPECT_EQ(names.front(), "big");
  EXPECT_EQ(names[1], "f1");
  EXPECT_EQ(names[2], "f2");
  EXPECT_EQ(names[12], "f12");
  EXPECT_EQ(names.back(), kHiddenSpaceName);
}

TEST(KeyedArchiveRules, MissingNameFallsBackToTheURLsLastComponent) {
  ScanNodeRef tree = makeTree("/srv/My Root", 3, {{"My File", false, 3, nullptr}});
  EditableArchive archive(encodeScanArchive(*tree));
  plist_dict_remove_item(archive.object(archive.node("My File")), "name");
  plist_dict_remove_item(archive.object(archive.node("My Root")), "name");
  DecodedArchive decoded = archive.decode();
  ASSERT_NE(decoded.root, nullptr);
  EXPECT_EQ(decoded.root->name(), "My Root");
  EXPECT_EQ(childNames(*decoded.root), std::vector<std::string>{"My File"});
}

TEST(KeyedArchiveRules, IssuesOfAnotherShapeAreLeftOutWithoutFailing) {
  ScanNodeRef tree = realisticTree();
  EditableArchive archive(encodeScanArchive(*tree));
  uint64_t root = archive.node("Projects and Notes");
  uint64_t issues = EditableArchive::uid(plist_dict_get_item(archive.object(root), "scanIssues"));
  plist_t records = plist_dict_get_item(archive.object(issues), "NS.objects");
  // One record becomes a plain string.
  uint64_t text = archive.append(plist_new_string("not a record"));
  plist_set_uid_val(plist_array_get_item(records, 0), text);
  DecodedArchive decoded = archive.decode();
  ASSERT_NE(decoded.root, nullptr) << decoded.error->description;
  EXPECT_TRUE(decoded.root->scanIssues().empty());
  EXPECT_EQ(decoded.root->size(), tree->size());
}

TEST(KeyedArchiveRules, DeepChainWithinTheLimitDecodes) {
  DecodedArchive decoded = decodeScanArchive(chainArchive(kMaxArchiveDepth + 1));
  ASSERT_NE(decoded.root, nullptr) << decoded.error->description;
  uint32_t depth = 0;
  for (ScanNode* node = decoded.root.get(); !node->children().empty();) {
    node = node->children()[0];
    ++depth;
    ASSERT_EQ(node->path(), "/d");
  }
  EXPECT_EQ(depth, kMaxArchiveDepth);
}

// --- Damaged and hostile input ---------------------------------------------------------------

class KeyedArchiveMalformed : public ::testing::Test {
 protected:
  void SetUp() override {
    tree_ = makeTree(
        "/m", 30,
        {{"a", true, 20, nullptr, {{"a1", false, 20, nullptr}}}, {"b", false, 10, nullptr}});
    good_ = encodeScanArchive(*tree_);
    ASSERT_NE(decodeScanArchive(good_).root, nullptr);
  }
  ScanNodeRef tree_;
  std::vector<uint8_t> good_;
};

TEST_F(KeyedArchiveMalformed, TruncatedAndRandomBytesAreRefused) {
  for (std::size_t cut : {std::size_t{0}, std::size_t{7}, good_.size() / 2, good_.size() - 1}) {
    std::vector<uint8_t> truncated(good_.begin(), good_.begin() + static_cast<long>(cut));
    expectArchiveError(decodeScanArchive(truncated), kArchiveNotPropertyList);
  }
  std::mt19937 random(7);
  std::vector<uint8_t> noise(4096);
  for (uint8_t& b : noise) b = static_cast<uint8_t>(random());
  expectArchiveError(decodeScanArchive(noise), kArchiveNotPropertyList);
  std::memcpy(noise.data(), "bplist00", 8);
  expectArchiveError(decodeScanArchive(noise), kArchiveNotPropertyList);
}

TEST_F(KeyedArchiveMalformed, PropertyListThatIsNotAScanArchiveIsRefused) {
  plist_t list = plist_new_array();
  plist_array_append_item(list, plist_new_string("hello"));
  char* out = nullptr;
  uint32_t length = 0;
  plist_to_bin(list, &out, &length);
  std::vector<uint8_t> bytes(out, out + length);
  plist_to_bin_free(out);
  plist_free(list);
  expectArchiveError(decodeScanArchive(bytes), kArchiveNotScanArchive);

  EditableArchive archive(good_);
  for (uint64_t i = 0; i < archive.count(); ++i) {
    plist_t name = plist_dict_get_item(archive.object(i), "$classname");
    if (name && plist_string_val_compare(name, "TWScanNode") == 0) {
      plist_set_string_val(name, "NSString");
    }
  }
  expectArchiveError(archive.decode(), kArchiveNotScanArchive);
}

TEST_F(KeyedArchiveMalformed, CyclesAndSharedItemsAreRefused) {
  {
    EditableArchive archive(good_);  // a1 lists the root as its child
    plist_array_append_item(archive.childRefs(archive.node("a1")), plist_new_uid(1));
    expectArchiveError(archive.decode(), kArchiveDamaged);
  }
  {
    EditableArchive archive(good_);  // a lists itself
    uint64_t a = archive.node("a");
    plist_array_append_item(archive.childRefs(a), plist_new_uid(a));
    expectArchiveError(archive.decode(), kArchiveDamaged);
  }
  {
    EditableArchive archive(good_);  // b appears under the root and under a
    plist_array_append_item(archive.childRefs(archive.node("a")), plist_new_uid(archive.node("b")));
    expectArchiveError(archive.decode(), kArchiveDamaged);
  }
}

TEST_F(KeyedArchiveMalformed, ReferencesOutOfRangeAreRefused) {
  {
    EditableArchive archive(good_);
    plist_set_uid_val(plist_array_get_item(archive.childRefs(archive.node("a")), 0), 999'999);
    expectArchiveError(archive.decode(), kArchiveDamaged);
  }
  {
    EditableArchive archive(good_);
    plist_t url = plist_dict_get_item(archive.object(archive.node("b")), "URL");
    plist_set_uid_val(url, archive.count());
    expectArchiveError(archive.decode(), kArchiveDamaged);
  }
}

TEST_F(KeyedArchiveMalformed, ValuesOfTheWrongTypeAreRefused) {
  {
    EditableArchive archive(good_);  // a child list holding a string
    uint64_t text = archive.append(plist_new_string("intruder"));
    plist_array_append_item(archive.childRefs(archive.node("a")), plist_new_uid(text));
    expectArchiveError(archive.decode(), kArchiveDamaged);
  }
  {
    EditableArchive archive(good_);  // children that are not a list
    uint64_t text = archive.append(plist_new_string("not a list"));
    plist_set_uid_val(plist_dict_get_item(archive.object(archive.node("b")), "children"), text);
    expectArchiveError(archive.decode(), kArchiveDamaged);
  }
  {
    EditableArchive archive(good_);  // a size that is text
    plist_dict_set_item(archive.object(archive.node("a1")), "size", plist_new_string("12"));
    expectArchiveError(archive.decode(), kArchiveDamaged);
  }
  {
    EditableArchive archive(good_);  // a location that is not a file URL
    uint64_t text = archive.append(plist_new_string("https://example.org/a"));
    uint64_t url =
        EditableArchive::uid(plist_dict_get_item(archive.object(archive.node("a")), "URL"));
    plist_set_uid_val(plist_dict_get_item(archive.object(url), "NS.relative"), text);
    expectArchiveError(archive.decode(), kArchiveDamaged);
  }
}

TEST_F(KeyedArchiveMalformed, NestingHundredThousandLevelsDeepIsRefused) {
  expectArchiveError(decodeScanArchive(chainArchive(100'000)), kArchiveTooComplex);
}

TEST_F(KeyedArchiveMalformed, PropertyListGraphsThatWouldExplodeAreRefused) {
  {
    // Forty arrays each holding the next one twice: 2^40 objects once expanded.
    RawPlist p;
    uint32_t next = p.boolean(false);
    for (int i = 0; i < 40; ++i) next = p.array({next, next});
    expectArchiveError(decodeScanArchive(p.bytes(next)), kArchiveNotPropertyList);
  }
  {
    // An array holding itself.
    RawPlist p;
    uint32_t self = p.array({0});
    expectArchiveError(decodeScanArchive(p.bytes(self)), kArchiveNotPropertyList);
  }
  {
    // Two thousand arrays nested in one another.
    RawPlist p;
    uint32_t next = p.boolean(false);
    for (int i = 0; i < 2000; ++i) next = p.array({next});
    expectArchiveError(decodeScanArchive(p.bytes(next)), kArchiveNotPropertyList);
  }
  {
    // Sharing within reason is fine.
    RawPlist p;
    uint32_t leaf = p.boolean(true);
    EXPECT_FALSE(checkBinaryPlist(p.bytes(p.array({leaf, leaf}))).has_value());
  }
}

TEST_F(KeyedArchiveMalformed, MutatedArchivesNeverCrash) {
  std::vector<uint8_t> seed = encodeScanArchive(*realisticTree());
  std::mt19937 random(2024);
  int decodedCount = 0;
  for (int round = 0; round < 3000; ++round) {
    std::vector<uint8_t> bytes = seed;
    int flips = 1 + static_cast<int>(random() % 4);
    for (int i = 0; i < flips; ++i) {
      std::size_t at = random() % bytes.size();
      switch (random() % 3) {
        case 0:
          bytes[at] ^= static_cast<uint8_t>(1u << (random() % 8));
          break;
        case 1:
          bytes[at] = static_cast<uint8_t>(random());
          break;
        default:
          bytes[at] = static_cast<uint8_t>(bytes[at] + 1);
          break;
      }
    }
    if (random() % 8 == 0) bytes.resize(random() % bytes.size());
    DecodedArchive decoded = decodeScanArchive(bytes);
    if (decoded.root) {
      ++decodedCount;
      EXPECT_FALSE(decoded.error.has_value());
    } else {
      ASSERT_TRUE(decoded.error.has_value());
      EXPECT_EQ(decoded.error->domain, kArchiveErrorDomain);
    }
  }
  EXPECT_GT(decodedCount, 0);  // some mutations touch only values, and those still decode
}

TEST_F(KeyedArchiveMalformed, RewiredReferencesNeverCrash) {
  std::vector<uint8_t> seed = encodeScanArchive(*realisticTree());
  std::mt19937 random(99);
  for (int round = 0; round < 400; ++round) {
    EditableArchive archive(seed);
    // Every reference in the archive, found by walking its objects.
    std::vector<plist_t> refs;
    std::vector<plist_t> pending{archive.object(0)};
    for (uint64_t i = 1; i < archive.count(); ++i) pending.push_back(archive.object(i));
    while (!pending.empty()) {
      plist_t node = pending.back();
      pending.pop_back();
      if (plist_get_node_type(node) == PLIST_UID) refs.push_back(node);
      if (plist_get_node_type(node) == PLIST_ARRAY) {
        for (uint32_t k = 0; k < plist_array_get_size(node); ++k) {
          pending.push_back(plist_array_get_item(node, k));
        }
      }
      if (plist_get_node_type(node) == PLIST_DICT) {
        plist_dict_iter iter = nullptr;
        plist_dict_new_iter(node, &iter);
        for (;;) {
          char* key = nullptr;
          plist_t value = nullptr;
          plist_dict_next_item(node, iter, &key, &value);
          std::free(key);
          if (!value) break;
          pending.push_back(value);
        }
        std::free(iter);
      }
    }
    ASSERT_FALSE(refs.empty());
    for (int edits = 1 + static_cast<int>(random() % 3); edits > 0; --edits) {
      plist_set_uid_val(refs[random() % refs.size()], random() % (archive.count() + 2));
    }
    DecodedArchive decoded = archive.decode();
    if (!decoded.root) {
      ASSERT_TRUE(decoded.error.has_value());
      EXPECT_EQ(decoded.error->domain, kArchiveErrorDomain);
    }
  }
}

// --- File URLs -------------------------------------------------------------------------------

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
  EXPECT_FALSE(pathForFileURL("file://server/share"));
  EXPECT_FALSE(pathForFileURL("file://localhostx/a"));
  EXPECT_FALSE(pathForFileURL("http:///a"));
  EXPECT_FALSE(pathForFileURL("file:///a%00b"));
}

}  // namespace
}  // namespace tw
