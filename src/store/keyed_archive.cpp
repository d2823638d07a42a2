#include "store/keyed_archive.h"

#include <plist/plist.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "platform/file_url.h"
#include "platform/paths.h"
#include "store/binary_plist_check.h"

namespace tw {

namespace {

// Keys of the archive container and of the archived objects (file format).
constexpr const char* kArchiverKey = "$archiver";
constexpr const char* kVersionKey = "$version";
constexpr const char* kTopKey = "$top";
constexpr const char* kObjectsKey = "$objects";
constexpr const char* kRootKey = "root";
constexpr const char* kClassKey = "$class";
constexpr const char* kClassNameKey = "$classname";
constexpr const char* kClassesKey = "$classes";
constexpr const char* kNullObject = "$null";
constexpr const char* kArrayItemsKey = "NS.objects";
constexpr const char* kDictionaryKeysKey = "NS.keys";
constexpr const char* kURLBaseKey = "NS.base";
constexpr const char* kURLRelativeKey = "NS.relative";
constexpr const char* kDateTimeKey = "NS.time";
constexpr const char* kMutableStringKey = "NS.string";

// Keys of an archived scan node, in the order they are written (file format).
constexpr const char* kNameKey = "name";
constexpr const char* kURLKey = "URL";
constexpr const char* kSizeKey = "size";
constexpr const char* kDirectoryKey = "directory";
constexpr const char* kPackageKey = "package";
constexpr const char* kAggregateKey = "aggregate";
constexpr const char* kVolumeRootKey = "volumeRoot";
constexpr const char* kVirtualNodeKey = "virtualNode";
constexpr const char* kCloneKey = "APFSClone";
constexpr const char* kCloneElsewhereKey = "cloneAllocationElsewhere";
constexpr const char* kCloneSharedSizeKey = "cloneSharedSize";
constexpr const char* kVolumeCapacityKey = "volumeCapacity";
constexpr const char* kVolumeFreeSpaceKey = "volumeFreeSpace";
constexpr const char* kVolumeAvailableSpaceKey = "volumeAvailableSpace";
constexpr const char* kSourceFingerprintKey = "sourceFingerprint";
constexpr const char* kSourceItemCountKey = "sourceItemCount";
constexpr const char* kScanDateKey = "scanDate";
constexpr const char* kModificationDateKey = "modificationDate";
constexpr const char* kScanIssuesKey = "scanIssues";
constexpr const char* kChildrenKey = "children";
constexpr const char* kIssuePathKey = "path";
constexpr const char* kIssueMessageKey = "message";

// An unknown date, archived as the null object.
constexpr double kNoDate = std::numeric_limits<double>::quiet_NaN();

// A relative URL may lean on a base URL, which may lean on another; real archives use none.
constexpr int kMaxURLBaseChain = 8;

Error archiveError(ArchiveErrorCode code, std::string description) {
  return Error{kArchiveErrorDomain, code, std::move(description)};
}

struct PlistFree {
  void operator()(void* node) const { plist_free(node); }
};
using PlistHolder = std::unique_ptr<void, PlistFree>;

// Calls `f(item)` for each item of a property-list array in order, stopping when it answers
// false. Returns false when it was stopped.
template <typename F>
bool forEachItem(plist_t array, F&& f) {
  plist_array_iter iter = nullptr;
  plist_array_new_iter(array, &iter);
  bool completed = true;
  for (;;) {
    plist_t item = nullptr;
    plist_array_next_item(array, iter, &item);
    if (!item) break;
    if (!f(item)) {
      completed = false;
      break;
    }
  }
  std::free(iter);
  return completed;
}

bool isType(plist_t node, plist_type type) {
  return node && plist_get_node_type(node) == type;
}

std::string_view stringOf(plist_t node) {
  uint64_t length = 0;
  const char* text = plist_get_string_ptr(node, &length);
  return text ? std::string_view(text, length) : std::string_view();
}

// The way ScanNode::path() extends a folder's path by one name.
std::string childPath(const std::string& folder, std::string_view name) {
  std::string out = folder;
  if (out.empty() || out.back() != '/') out.push_back('/');
  out.append(name);
  return out;
}

// ---------------------------------------------------------------------------------------------
// Reading

enum class ClassKind : uint8_t { kOther, kScanNode, kArray, kDictionary, kURL, kDate, kString };

// Everything an archived node says about itself, read before the node is made.
struct NodeFields {
  std::string path;
  std::string name;
  bool hasName = false;
  bool directory = false, package = false, aggregate = false, volumeRoot = false;
  bool virtualNode = false, clone = false, cloneElsewhere = false;
  uint64_t size = 0, cloneSharedSize = 0;
  uint64_t volumeCapacity = 0, volumeFreeSpace = 0, volumeAvailableSpace = 0;
  uint64_t sourceFingerprint = 0, sourceItemCount = 0;
  double scanDate = 0;
  double modificationDate = kNoDate;  // absent: unknown
  std::vector<ScanIssue> scanIssues;
  plist_t children = nullptr;  // the items of the child list, when there is one

  bool isSynthetic() const { return aggregate || virtualNode; }
};

class ArchiveReader {
 public:
  ArchiveReader(plist_t top, std::size_t inputSize)
      : top_(top), byteBudget_(8 * static_cast<uint64_t>(inputSize) + (1u << 20)) {}

  DecodedArchive decode();

 private:
  bool fail(ArchiveErrorCode code, std::string why) {
    if (!error_) error_ = archiveError(code, std::move(why));
    return false;
  }
  bool damaged(std::string why) { return fail(kArchiveDamaged, "The archive is damaged: " + why); }
  // Text copied out of the archive is charged here, so that a small file whose objects share
  // one long string thousands of times cannot make the decoder copy it without end.
  bool charge(std::size_t bytes);

  bool readContainer(uint64_t& rootIndex);
  bool isNull(plist_t object) const {
    return isType(object, PLIST_STRING) && stringOf(object) == kNullObject;
  }
  // Follows a UID to its object; `out` is null for the null object.
  bool resolve(plist_t value, plist_t& out);
  // The object a dictionary refers to under `key`; null when absent or null.
  bool objectFor(plist_t dict, const char* key, plist_t& out);
  bool kindOf(plist_t object, ClassKind& out);
  // A plain string, or a mutable string object.
  bool textOf(plist_t object, std::string_view& out, bool& isText);
  bool arrayItems(plist_t object, plist_t& items, bool& isArray);

  bool readInteger(plist_t dict, const char* key, uint64_t& out);
  bool readBool(plist_t dict, const char* key, bool& out);
  // Leaves `out` as it was when the date is absent.
  bool readDate(plist_t dict, const char* key, double& out);
  bool readURL(plist_t url, std::string& path);
  bool readIssues(plist_t dict, std::vector<ScanIssue>& out);
  bool readFields(plist_t dict, NodeFields& f);
  void applyFields(ScanNode& node, const NodeFields& f);
  bool buildTree(uint64_t rootIndex, ScanNodeRef& root);

  plist_t top_;
  uint64_t byteBudget_;
  std::vector<plist_t> objects_;
  std::unordered_map<plist_t, ClassKind> classKinds_;
  std::optional<Error> error_;
};

bool ArchiveReader::charge(std::size_t bytes) {
  if (bytes > byteBudget_) {
    return fail(kArchiveTooComplex, "The archive expands far beyond the size of any real scan.");
  }
  byteBudget_ -= bytes;
  return true;
}

bool ArchiveReader::resolve(plist_t value, plist_t& out) {
  out = nullptr;
  if (!value) return true;
  if (!isType(value, PLIST_UID)) return damaged("a value is not an object reference.");
  uint64_t uid = 0;
  plist_get_uid_val(value, &uid);
  if (uid >= objects_.size()) {
    return damaged("a reference points to object " + std::to_string(uid) + " of " +
                   std::to_string(objects_.size()) + ".");
  }
  plist_t object = objects_[uid];
  if (!isNull(object)) out = object;
  return true;
}

bool ArchiveReader::objectFor(plist_t dict, const char* key, plist_t& out) {
  return resolve(plist_dict_get_item(dict, key), out);
}

bool ArchiveReader::kindOf(plist_t object, ClassKind& out) {
  out = ClassKind::kOther;
  if (isType(object, PLIST_STRING)) {
    out = ClassKind::kString;
    return true;
  }
  if (!isType(object, PLIST_DICT)) return true;
  plist_t cls = nullptr;
  if (!objectFor(object, kClassKey, cls)) return false;
  if (!isType(cls, PLIST_DICT)) return true;
  if (auto known = classKinds_.find(cls); known != classKinds_.end()) {
    out = known->second;
    return true;
  }
  // A class is what its name says, or what one of its superclasses in "$classes" says.
  auto kindForName = [](std::string_view name) {
    if (name == kScanNodeClassName) return ClassKind::kScanNode;
    if (name == "NSArray") return ClassKind::kArray;
    if (name == "NSDictionary") return ClassKind::kDictionary;
    if (name == "NSURL") return ClassKind::kURL;
    if (name == "NSDate") return ClassKind::kDate;
    if (name == "NSString") return ClassKind::kString;
    return ClassKind::kOther;
  };
  ClassKind kind = ClassKind::kOther;
  plist_t name = plist_dict_get_item(cls, kClassNameKey);
  if (isType(name, PLIST_STRING)) kind = kindForName(stringOf(name));
  // Only a node's own class counts for nodes; other objects may be subclasses.
  plist_t chain = plist_dict_get_item(cls, kClassesKey);
  if (kind == ClassKind::kOther && isType(chain, PLIST_ARRAY)) {
    forEachItem(chain, [&](plist_t item) {
      if (isType(item, PLIST_STRING)) {
        ClassKind k = kindForName(stringOf(item));
        if (k != ClassKind::kOther && k != ClassKind::kScanNode) kind = k;
      }
      return kind == ClassKind::kOther;
    });
  }
  classKinds_.emplace(cls, kind);
  out = kind;
  return true;
}

bool ArchiveReader::textOf(plist_t object, std::string_view& out, bool& isText) {
  isText = false;
  if (isType(object, PLIST_STRING)) {
    out = stringOf(object);
  } else {
    ClassKind kind;
    if (!kindOf(object, kind)) return false;
    plist_t inner =
        kind == ClassKind::kString ? plist_dict_get_item(object, kMutableStringKey) : nullptr;
    if (!isType(inner, PLIST_STRING)) return true;
    out = stringOf(inner);
  }
  isText = true;
  return charge(out.size());
}

bool ArchiveReader::arrayItems(plist_t object, plist_t& items, bool& isArray) {
  isArray = false;
  ClassKind kind;
  if (!kindOf(object, kind)) return false;
  if (kind != ClassKind::kArray) return true;
  items = plist_dict_get_item(object, kArrayItemsKey);
  isArray = isType(items, PLIST_ARRAY);
  return true;
}

bool ArchiveReader::readInteger(plist_t dict, const char* key, uint64_t& out) {
  out = 0;
  plist_t value = plist_dict_get_item(dict, key);
  if (!value) return true;
  switch (plist_get_node_type(value)) {
    case PLIST_UINT:
      plist_get_uint_val(value, &out);
      return true;
    case PLIST_BOOLEAN: {
      uint8_t b = 0;
      plist_get_bool_val(value, &b);
      out = b ? 1 : 0;
      return true;
    }
    case PLIST_REAL: {
      double d = 0;
      plist_get_real_val(value, &d);
      if (std::isfinite(d) && d >= -9.2e18 && d < 1.8e19) {
        out = d < 0 ? static_cast<uint64_t>(static_cast<int64_t>(d)) : static_cast<uint64_t>(d);
        return true;
      }
      break;
    }
    default:
      break;
  }
  return damaged(std::string("\"") + key + "\" is not a number.");
}

bool ArchiveReader::readBool(plist_t dict, const char* key, bool& out) {
  uint64_t value = 0;
  if (!readInteger(dict, key, value)) return false;
  out = value != 0;
  return true;
}

bool ArchiveReader::readDate(plist_t dict, const char* key, double& out) {
  plist_t date = nullptr;
  if (!objectFor(dict, key, date)) return false;
  if (!date) return true;
  ClassKind kind;
  if (!kindOf(date, kind)) return false;
  plist_t time = kind == ClassKind::kDate ? plist_dict_get_item(date, kDateTimeKey) : nullptr;
  double seconds = 0;
  if (isType(time, PLIST_REAL)) {
    plist_get_real_val(time, &seconds);
  } else if (isType(time, PLIST_UINT)) {
    uint64_t whole = 0;
    plist_get_uint_val(time, &whole);
    seconds = static_cast<double>(static_cast<int64_t>(whole));
  } else {
    return damaged(std::string("\"") + key + "\" is not a date.");
  }
  if (!std::isfinite(seconds)) return damaged(std::string("\"") + key + "\" is not a date.");
  out = seconds + kArchiveDateEpochOffset;
  return true;
}

bool ArchiveReader::readURL(plist_t url, std::string& path) {
  // Relative parts, innermost first, until a base gives the absolute file URL.
  std::vector<std::string_view> relatives;
  for (int hop = 0;; ++hop) {
    ClassKind kind;
    if (!kindOf(url, kind)) return false;
    if (kind != ClassKind::kURL || hop > kMaxURLBaseChain) {
      return damaged("an item's location is not a file URL.");
    }
    plist_t relative = nullptr, base = nullptr;
    if (!objectFor(url, kURLRelativeKey, relative) || !objectFor(url, kURLBaseKey, base)) {
      return false;
    }
    std::string_view text;
    bool isText = false;
    if (!relative) return damaged("an item's location is empty.");
    if (!textOf(relative, text, isText)) return false;
    if (!isText) return damaged("an item's location is not text.");
    std::optional<std::string> absolute;
    if (hasFileScheme(text)) {
      absolute = pathForFileURL(text);
      if (!absolute) return damaged("an item's location is not a local file URL.");
    } else if (!base && !text.empty() && text.front() == '/') {
      absolute = percentDecode(text);
    }
    if (absolute) {
      path = std::move(*absolute);
      for (auto it = relatives.rbegin(); it != relatives.rend(); ++it) {
        path = childPath(path, percentDecode(*it));
      }
      if (!relatives.empty()) path = standardizePath(path);
      if (path.find('\0') != std::string::npos) return damaged("an item's location holds a NUL.");
      return charge(path.size());
    }
    if (!base) return damaged("an item's location is not a file URL.");
    relatives.push_back(text);
    url = base;
  }
}

bool ArchiveReader::readIssues(plist_t dict, std::vector<ScanIssue>& out) {
  out.clear();
  plist_t list = nullptr, items = nullptr;
  bool isArray = false;
  if (!objectFor(dict, kScanIssuesKey, list)) return false;
  if (!list) return true;
  if (!arrayItems(list, items, isArray)) return false;
  if (!isArray) return true;  // issues of another shape are left out, not fatal

  std::vector<ScanIssue> issues;
  bool wellFormed = true;
  forEachItem(items, [&](plist_t ref) {
    plist_t record = nullptr;
    ClassKind kind = ClassKind::kOther;
    if (!resolve(ref, record) || (record && !kindOf(record, kind))) return false;
    bool isRecord = kind == ClassKind::kDictionary && isType(record, PLIST_DICT);
    plist_t keys = isRecord ? plist_dict_get_item(record, kDictionaryKeysKey) : nullptr;
    plist_t values = isRecord ? plist_dict_get_item(record, kArrayItemsKey) : nullptr;
    if (!isType(keys, PLIST_ARRAY) || !isType(values, PLIST_ARRAY) ||
        plist_array_get_size(keys) != plist_array_get_size(values)) {
      wellFormed = false;
      return false;
    }
    ScanIssue issue;
    uint32_t count = plist_array_get_size(keys);
    for (uint32_t i = 0; i < count && wellFormed; ++i) {
      plist_t key = nullptr, value = nullptr;
      std::string_view keyText, valueText;
      bool keyIsText = false, valueIsText = false;
      if (!resolve(plist_array_get_item(keys, i), key) ||
          !resolve(plist_array_get_item(values, i), value) ||
          (key && !textOf(key, keyText, keyIsText)) ||
          (value && !textOf(value, valueText, valueIsText))) {
        return false;
      }
      if (!keyIsText || !valueIsText) {
        wellFormed = false;
        return false;
      }
      if (keyText == kIssuePathKey) issue.path = valueText;
      if (keyText == kIssueMessageKey) issue.message = valueText;
    }
    issues.push_back(std::move(issue));
    return true;
  });
  if (error_) return false;
  if (wellFormed) out = std::move(issues);
  return true;
}

bool ArchiveReader::readFields(plist_t dict, NodeFields& f) {
  f = NodeFields{};
  plist_t url = nullptr, name = nullptr, children = nullptr;
  if (!objectFor(dict, kURLKey, url)) return false;
  if (!url) return damaged("an item has no location.");
  if (!readURL(url, f.path) || !readBool(dict, kDirectoryKey, f.directory)) return false;

  if (!objectFor(dict, kNameKey, name)) return false;
  if (name) {
    std::string_view text;
    if (!textOf(name, text, f.hasName)) return false;
    if (!f.hasName) return damaged("an item's name is not text.");
    if (text.find('\0') != std::string_view::npos) return damaged("an item's name holds a NUL.");
    f.name = text;
  } else {
    f.name = displayNameForPath(f.path);
  }

  if (!readInteger(dict, kSizeKey, f.size) || !readBool(dict, kPackageKey, f.package) ||
      !readBool(dict, kAggregateKey, f.aggregate) ||
      !readBool(dict, kVolumeRootKey, f.volumeRoot) ||
      !readBool(dict, kVirtualNodeKey, f.virtualNode) || !readBool(dict, kCloneKey, f.clone) ||
      !readBool(dict, kCloneElsewhereKey, f.cloneElsewhere) ||
      !readInteger(dict, kCloneSharedSizeKey, f.cloneSharedSize) ||
      !readInteger(dict, kVolumeCapacityKey, f.volumeCapacity) ||
      !readInteger(dict, kVolumeFreeSpaceKey, f.volumeFreeSpace) ||
      !readInteger(dict, kVolumeAvailableSpaceKey, f.volumeAvailableSpace) ||
      !readInteger(dict, kSourceFingerprintKey, f.sourceFingerprint) ||
      !readInteger(dict, kSourceItemCountKey, f.sourceItemCount) ||
      !readDate(dict, kScanDateKey, f.scanDate) ||
      !readDate(dict, kModificationDateKey, f.modificationDate) ||
      !readIssues(dict, f.scanIssues)) {
    return false;
  }

  if (!objectFor(dict, kChildrenKey, children)) return false;
  if (children) {
    bool isArray = false;
    if (!arrayItems(children, f.children, isArray)) return false;
    if (!isArray) return damaged("an item's children are not a list.");
  }
  return true;
}

void ArchiveReader::applyFields(ScanNode& node, const NodeFields& f) {
  node.setPackage(f.package);
  node.setAggregate(f.aggregate);
  node.setVolumeRoot(f.volumeRoot);
  node.setVirtualNode(f.virtualNode);
  node.setAPFSClone(f.clone);
  node.setCloneAllocationElsewhere(f.cloneElsewhere);
  node.setSize(f.size);
  node.setCloneSharedSize(f.cloneSharedSize);
  node.setModificationDate(f.modificationDate);
  // Root figures live in the side record; most nodes have none and should not get one.
  if (f.volumeCapacity) node.setVolumeCapacity(f.volumeCapacity);
  if (f.volumeFreeSpace) node.setVolumeFreeSpace(f.volumeFreeSpace);
  if (f.volumeAvailableSpace) node.setVolumeAvailableSpace(f.volumeAvailableSpace);
  if (f.sourceFingerprint) node.setSourceFingerprint(f.sourceFingerprint);
  if (f.sourceItemCount) node.setSourceItemCount(static_cast<int64_t>(f.sourceItemCount));
  if (f.scanDate != 0) node.setScanDate(f.scanDate);
  if (!f.scanIssues.empty()) node.setScanIssues(f.scanIssues);
}

bool ArchiveReader::buildTree(uint64_t rootIndex, ScanNodeRef& rootRef) {
  plist_t rootObject = objects_[rootIndex];
  ClassKind kind;
  if (!kindOf(rootObject, kind)) return false;
  if (kind != ClassKind::kScanNode) {
    return fail(kArchiveNotScanArchive, "The archive does not hold a scan.");
  }
  NodeFields fields;
  if (!readFields(rootObject, fields)) return false;
  rootRef = ScanNode::makeRoot(fields.path, fields.directory);
  applyFields(*rootRef, fields);
  if (fields.name != rootRef->name()) rootRef->setName(fields.name);

  // Nodes whose child lists are still to be read. Each node object may appear in the tree only
  // once, which rules out cycles and exponential sharing alike.
  struct Pending {
    ScanNode* node;
    plist_t children;
    std::string path;
    uint32_t depth;
  };
  std::vector<Pending> pending;
  std::vector<uint8_t> placed(objects_.size(), 0);
  placed[rootIndex] = 1;
  if (fields.children) pending.push_back({rootRef.get(), fields.children, fields.path, 0});

  std::vector<NodeFields> childFields;
  std::vector<ScanNode*> made, kept;
  while (!pending.empty()) {
    Pending parent = std::move(pending.back());
    pending.pop_back();
    if (plist_array_get_size(parent.children) == 0) continue;
    if (parent.depth >= kMaxArchiveDepth) {
      return fail(kArchiveTooComplex, "The archive's items are nested more than " +
                                          std::to_string(kMaxArchiveDepth) + " levels deep.");
    }
    childFields.clear();
    bool ok = forEachItem(parent.children, [&](plist_t ref) {
      plist_t child = nullptr;
      ClassKind childKind = ClassKind::kOther;
      if (!resolve(ref, child) || (child && !kindOf(child, childKind))) return false;
      if (childKind != ClassKind::kScanNode) {
        return damaged("a list of children holds something other than an item.");
      }
      uint64_t uid = 0;
      plist_get_uid_val(ref, &uid);
      if (placed[uid]) return damaged("an item appears twice in the tree, or inside itself.");
      placed[uid] = 1;
      childFields.emplace_back();
      return readFields(child, childFields.back());
    });
    if (!ok) return false;

    made.clear();
    kept.clear();
    for (NodeFields& f : childFields) {
      ScanNode* node = parent.node->createNode(f.name, f.directory);
      applyFields(*node, f);
      // A node's path is rebuilt from its parent's; keep the archived one where they differ.
      std::string expected = f.isSynthetic() ? parent.path : childPath(parent.path, f.name);
      if (f.path != expected) node->setPath(f.path);
      made.push_back(node);
      if (!(f.aggregate && f.size == 0)) kept.push_back(node);
    }
    // Empty groups are dropped (their own subtrees are still read and checked).
    std::stable_sort(kept.begin(), kept.end(), ScanNode::precedes);
    for (ScanNode* node : kept) parent.node->addChild(node);
    for (std::size_t i = made.size(); i-- > 0;) {
      NodeFields& f = childFields[i];
      if (f.children && plist_array_get_size(f.children) > 0) {
        pending.push_back({made[i], f.children, std::move(f.path), parent.depth + 1});
      }
    }
  }
  return true;
}

bool ArchiveReader::readContainer(uint64_t& rootIndex) {
  if (!isType(top_, PLIST_DICT)) {
    return fail(kArchiveNotScanArchive, "The file is not a keyed archive.");
  }
  plist_t archiver = plist_dict_get_item(top_, kArchiverKey);
  plist_t version = plist_dict_get_item(top_, kVersionKey);
  plist_t topObjects = plist_dict_get_item(top_, kTopKey);
  plist_t objects = plist_dict_get_item(top_, kObjectsKey);
  if (!isType(archiver, PLIST_STRING) || stringOf(archiver) != kKeyedArchiverName ||
      !isType(version, PLIST_UINT) || !isType(topObjects, PLIST_DICT) ||
      !isType(objects, PLIST_ARRAY)) {
    return fail(kArchiveNotScanArchive, "The file is not a keyed archive.");
  }
  plist_t root = plist_dict_get_item(topObjects, kRootKey);
  if (!isType(root, PLIST_UID)) {
    return fail(kArchiveNotScanArchive, "The archive has no root object.");
  }
  objects_.reserve(plist_array_get_size(objects));
  forEachItem(objects, [this](plist_t item) {
    objects_.push_back(item);
    return true;
  });
  plist_get_uid_val(root, &rootIndex);
  if (rootIndex >= objects_.size() || isNull(objects_[rootIndex])) {
    return damaged("the root reference points to no object.");
  }
  return true;
}

DecodedArchive ArchiveReader::decode() {
  DecodedArchive result;
  uint64_t rootIndex = 0;
  if (readContainer(rootIndex) && buildTree(rootIndex, result.root)) return result;
  result.root = nullptr;
  result.error = error_ ? *error_ : archiveError(kArchiveDamaged, "The archive is damaged.");
  return result;
}

// ---------------------------------------------------------------------------------------------
// Writing

bool isValidUTF8(std::string_view text) {
  std::size_t i = 0;
  while (i < text.size()) {
    auto c = static_cast<unsigned char>(text[i]);
    std::size_t extra = 0;
    uint32_t min = 0, code = 0;
    if (c < 0x80) {
      ++i;
      continue;
    } else if ((c & 0xE0) == 0xC0) {
      extra = 1, min = 0x80, code = c & 0x1F;
    } else if ((c & 0xF0) == 0xE0) {
      extra = 2, min = 0x800, code = c & 0x0F;
    } else if ((c & 0xF8) == 0xF0) {
      extra = 3, min = 0x10000, code = c & 0x07;
    } else {
      return false;
    }
    if (i + extra >= text.size()) return false;
    for (std::size_t k = 1; k <= extra; ++k) {
      auto cc = static_cast<unsigned char>(text[i + k]);
      if ((cc & 0xC0) != 0x80) return false;
      code = code << 6 | (cc & 0x3F);
    }
    if (code < min || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return false;
    i += extra + 1;
  }
  return true;
}

// Text for a string object: bytes that are not UTF-8 become U+FFFD, since property-list strings
// are Unicode.
std::string toUTF8(std::string_view text) {
  if (isValidUTF8(text)) return std::string(text);
  std::string out;
  for (std::size_t i = 0; i < text.size();) {
    std::size_t length = 1;
    while (length <= 4 && i + length <= text.size() && !isValidUTF8(text.substr(i, length))) {
      ++length;
    }
    if (length <= 4 && i + length <= text.size()) {
      out.append(text.substr(i, length));
      i += length;
    } else {
      out.append("\xEF\xBF\xBD");
      ++i;
    }
  }
  return out;
}

class ArchiveWriter {
 public:
  ~ArchiveWriter() {
    for (plist_t object : objects_) plist_free(object);
  }
  std::vector<uint8_t> encode(ScanNode& root);

 private:
  uint64_t add(plist_t object) {
    objects_.push_back(object);
    return objects_.size() - 1;
  }
  uint64_t reserve() { return add(nullptr); }
  uint64_t classFor(const char* name, std::initializer_list<const char*> superclasses);
  uint64_t addString(std::string_view text) { return add(plist_new_string(toUTF8(text).c_str())); }
  uint64_t addURL(std::string_view path, bool directory);
  uint64_t addDate(double secondsSince1970);
  uint64_t addArray(const std::vector<uint64_t>& items, bool mutableArray);
  uint64_t addIssues(const std::vector<ScanIssue>& issues);
  plist_t nodeObject(ScanNode& node, const std::string& path, const std::vector<uint64_t>& kids);

  std::vector<plist_t> objects_;
  std::unordered_map<std::string, uint64_t> classes_;
};

uint64_t ArchiveWriter::classFor(const char* name,
                                 std::initializer_list<const char*> superclasses) {
  if (auto known = classes_.find(name); known != classes_.end()) return known->second;
  plist_t cls = plist_new_dict();
  plist_dict_set_item(cls, kClassNameKey, plist_new_string(name));
  plist_t chain = plist_new_array();
  plist_array_append_item(chain, plist_new_string(name));
  for (const char* super : superclasses) plist_array_append_item(chain, plist_new_string(super));
  plist_dict_set_item(cls, kClassesKey, chain);
  uint64_t uid = add(cls);
  classes_.emplace(name, uid);
  return uid;
}

uint64_t ArchiveWriter::addURL(std::string_view path, bool directory) {
  uint64_t relative = addString(fileURLForPath(path, directory));
  plist_t url = plist_new_dict();
  plist_dict_set_item(url, kClassKey, plist_new_uid(classFor("NSURL", {"NSObject"})));
  plist_dict_set_item(url, kURLBaseKey, plist_new_uid(0));
  plist_dict_set_item(url, kURLRelativeKey, plist_new_uid(relative));
  return add(url);
}

uint64_t ArchiveWriter::addDate(double secondsSince1970) {
  if (std::isnan(secondsSince1970)) return 0;
  plist_t date = plist_new_dict();
  plist_dict_set_item(date, kClassKey, plist_new_uid(classFor("NSDate", {"NSObject"})));
  plist_dict_set_item(date, kDateTimeKey,
                      plist_new_real(secondsSince1970 - kArchiveDateEpochOffset));
  return add(date);
}

uint64_t ArchiveWriter::addArray(const std::vector<uint64_t>& items, bool mutableArray) {
  uint64_t cls = mutableArray ? classFor("NSMutableArray", {"NSArray", "NSObject"})
                              : classFor("NSArray", {"NSObject"});
  plist_t list = plist_new_array();
  for (uint64_t item : items) plist_array_append_item(list, plist_new_uid(item));
  plist_t array = plist_new_dict();
  plist_dict_set_item(array, kClassKey, plist_new_uid(cls));
  plist_dict_set_item(array, kArrayItemsKey, list);
  return add(array);
}

uint64_t ArchiveWriter::addIssues(const std::vector<ScanIssue>& issues) {
  std::vector<uint64_t> records;
  for (const ScanIssue& issue : issues) {
    plist_t keys = plist_new_array();
    plist_t values = plist_new_array();
    plist_array_append_item(keys, plist_new_uid(addString(kIssuePathKey)));
    plist_array_append_item(values, plist_new_uid(addString(issue.path)));
    plist_array_append_item(keys, plist_new_uid(addString(kIssueMessageKey)));
    plist_array_append_item(values, plist_new_uid(addString(issue.message)));
    plist_t record = plist_new_dict();
    plist_dict_set_item(record, kClassKey, plist_new_uid(classFor("NSDictionary", {"NSObject"})));
    plist_dict_set_item(record, kDictionaryKeysKey, keys);
    plist_dict_set_item(record, kArrayItemsKey, values);
    records.push_back(add(record));
  }
  return addArray(records, false);
}

plist_t ArchiveWriter::nodeObject(ScanNode& node, const std::string& path,
                                  const std::vector<uint64_t>& kids) {
  plist_t dict = plist_new_dict();
  auto setUID = [dict](const char* key, uint64_t uid) {
    plist_dict_set_item(dict, key, plist_new_uid(uid));
  };
  auto setInteger = [dict](const char* key, uint64_t value) {
    plist_dict_set_item(dict, key, plist_new_uint(value));
  };
  auto setBool = [dict](const char* key, bool value) {
    plist_dict_set_item(dict, key, plist_new_bool(value ? 1 : 0));
  };
  setUID(kClassKey, classFor(kScanNodeClassName, {"NSObject"}));
  // A name that is not UTF-8 cannot be a property-list string; the reader takes it from the URL.
  std::string_view name = node.name();
  if (isValidUTF8(name) || name != displayNameForPath(path)) {
    setUID(kNameKey, addString(name));
  } else {
    setUID(kNameKey, 0);
  }
  setUID(kURLKey, addURL(path, node.isDirectory()));
  setInteger(kSizeKey, node.size());
  setBool(kDirectoryKey, node.isDirectory());
  setBool(kPackageKey, node.isPackage());
  setBool(kAggregateKey, node.isAggregate());
  setBool(kVolumeRootKey, node.isVolumeRoot());
  setBool(kVirtualNodeKey, node.isVirtualNode());
  setBool(kCloneKey, node.isAPFSClone());
  setBool(kCloneElsewhereKey, node.isCloneAllocationElsewhere());
  setInteger(kCloneSharedSizeKey, node.cloneSharedSize());
  setInteger(kVolumeCapacityKey, node.volumeCapacity());
  setInteger(kVolumeFreeSpaceKey, node.volumeFreeSpace());
  setInteger(kVolumeAvailableSpaceKey, node.volumeAvailableSpace());
  // Signed 64-bit in the archive, holding the fingerprint's bits.
  setInteger(kSourceFingerprintKey, node.sourceFingerprint());
  setInteger(kSourceItemCountKey, static_cast<uint64_t>(node.sourceItemCount()));
  setUID(kScanDateKey, addDate(node.scanDate() != 0 ? node.scanDate() : kNoDate));
  setUID(kModificationDateKey, addDate(node.modificationDate()));
  setUID(kScanIssuesKey, addIssues(node.scanIssues()));
  setUID(kChildrenKey, addArray(kids, true));
  return dict;
}

std::vector<uint8_t> ArchiveWriter::encode(ScanNode& root) {
  add(plist_new_string(kNullObject));
  struct Task {
    ScanNode* node;
    uint64_t slot;
    std::string path;
  };
  std::vector<Task> tasks;
  tasks.push_back({&root, reserve(), root.path()});
  std::vector<uint64_t> kids;
  while (!tasks.empty()) {
    Task task = std::move(tasks.back());
    tasks.pop_back();
    std::span<ScanNode* const> children = task.node->children();
    std::size_t firstTask = tasks.size();
    kids.clear();
    for (ScanNode* child : children) {
      kids.push_back(reserve());
      std::string path = child->hasOwnPath()    ? child->path()
                         : child->isSynthetic() ? task.path
                                                : childPath(task.path, child->name());
      tasks.push_back({child, kids.back(), std::move(path)});
    }
    std::reverse(tasks.begin() + static_cast<std::ptrdiff_t>(firstTask), tasks.end());
    objects_[task.slot] = nodeObject(*task.node, task.path, kids);
  }

  plist_t container = plist_new_dict();
  PlistHolder holder(container);
  plist_dict_set_item(container, kVersionKey, plist_new_uint(kKeyedArchiveVersion));
  plist_dict_set_item(container, kArchiverKey, plist_new_string(kKeyedArchiverName));
  plist_t top = plist_new_dict();
  plist_dict_set_item(top, kRootKey, plist_new_uid(1));
  plist_dict_set_item(container, kTopKey, top);
  plist_t objects = plist_new_array();
  for (plist_t object : objects_) plist_array_append_item(objects, object);
  objects_.clear();
  plist_dict_set_item(container, kObjectsKey, objects);

  char* bytes = nullptr;
  uint32_t length = 0;
  plist_to_bin(container, &bytes, &length);
  if (!bytes) return {};
  std::vector<uint8_t> out(bytes, bytes + length);
  plist_to_bin_free(bytes);
  return out;
}

}  // namespace

DecodedArchive decodeScanArchive(std::span<const uint8_t> bytes) {
  if (std::optional<std::string> why = checkBinaryPlist(bytes)) {
    return {nullptr,
            archiveError(kArchiveNotPropertyList, "The archive cannot be read: " + *why + ".")};
  }
  plist_t top = nullptr;
  plist_from_bin(reinterpret_cast<const char*>(bytes.data()), static_cast<uint32_t>(bytes.size()),
                 &top);
  if (!top) {
    return {nullptr, archiveError(kArchiveNotPropertyList,
                                  "The archive cannot be read: the property list is damaged.")};
  }
  PlistHolder holder(top);
  return ArchiveReader(top, bytes.size()).decode();
}

std::vector<uint8_t> encodeScanArchive(ScanNode& root) {
  return ArchiveWriter().encode(root);
}

}  // namespace tw
