// Scan trees in tests: scanning a folder, building small trees by hand, finding nodes by name,
// and a text of everything a tree holds for comparing two trees.
#pragma once

#include <iomanip>
#include <limits>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "scan/directory_scanner.h"
#include "scan/scan_node.h"

namespace tw::test {

inline ScanResult scanTree(const std::string& path,
                           std::shared_ptr<const VolumeLayout> layout = nullptr,
                           ScanSettings settings = {}, int threads = 2,
                           const ProgressHandler& progress = nullptr) {
  DirectoryScanner::Options options;
  options.layout = std::move(layout);
  options.settings = [settings] { return settings; };
  options.threads = threads;
  DirectoryScanner scanner(options);
  return scanner.scanNow(path, 0, progress);
}

// Adds a child to `parent` and returns it.
inline ScanNode* addNode(ScanNode* parent, std::string_view name, bool directory, uint64_t size,
                         double modificationDate = std::numeric_limits<double>::quiet_NaN()) {
  ScanNode* node = parent->createNode(name, directory);
  node->setSize(size);
  node->setModificationDate(modificationDate);
  parent->addChild(node);
  return node;
}
inline ScanNode* addFolder(ScanNode* parent, std::string_view name, uint64_t size) {
  return addNode(parent, name, true, size);
}
inline ScanNode* addFile(ScanNode* parent, std::string_view name, uint64_t size) {
  return addNode(parent, name, false, size);
}
// Adds files to `parent` from "name:size name:size …", in that order.
inline void addFiles(ScanNode* parent, std::string_view listing) {
  std::istringstream in{std::string(listing)};
  for (std::string item; in >> item;) {
    const std::size_t colon = item.rfind(':');
    addFile(parent, item.substr(0, colon), std::stoull(item.substr(colon + 1)));
  }
}
// A folder root of the given size.
inline ScanNodeRef makeFolderRoot(uint64_t size, std::string_view path = "/r") {
  ScanNodeRef root = ScanNode::makeRoot(path, true);
  root->setSize(size);
  return root;
}

// The child of `node` named `name`, looking inside "smaller objects…" groups too, or null.
inline ScanNode* child(ScanNode* node, std::string_view name) {
  if (!node) return nullptr;
  for (ScanNode* c : node->children()) {
    if (c->name() == name) return c;
    if (c->isAggregate())
      if (ScanNode* inside = child(c, name)) return inside;
  }
  return nullptr;
}

// Follows "a/b/c" from `node` by names.
inline ScanNode* find(ScanNode* node, std::string_view relative) {
  while (node && !relative.empty()) {
    const std::size_t slash = std::min(relative.find('/'), relative.size());
    node = child(node, relative.substr(0, slash));
    relative.remove_prefix(std::min(slash + 1, relative.size()));
  }
  return node;
}

// A file or folder at `relative` below `root`, modified at 1000 s, making missing folders.
inline ScanNode* addPath(ScanNode* root, std::string_view relative, bool directory, uint64_t size) {
  for (std::size_t slash; (slash = relative.find('/')) != std::string_view::npos;) {
    ScanNode* next = child(root, relative.substr(0, slash));
    root = next ? next : addNode(root, relative.substr(0, slash), true, 0);
    relative.remove_prefix(slash + 1);
  }
  return addNode(root, relative, directory, size, 1000);
}

using Names = std::vector<std::string>;

template <typename Nodes>
std::vector<std::string> namesOf(const Nodes& nodes) {
  std::vector<std::string> names;
  for (const auto& node : nodes) names.emplace_back(node->name());
  return names;
}
inline std::vector<std::string> childNames(ScanNode* node) {
  return namesOf(node->children());
}

inline std::string issuesText(const std::vector<ScanIssue>& issues) {
  std::string out;
  for (const ScanIssue& issue : issues) out += issue.path + ": " + issue.message + "\n";
  return out;
}

// Everything a tree records except the scan date, one line per node in tree order, with its
// issues; a child out of the child order or with another parent is marked.
inline std::string describeTree(ScanNode* root) {
  if (!root) return "no tree\n";
  std::ostringstream out;
  out << std::setprecision(17) << "volume " << root->isVolumeRoot() << " " << root->volumeCapacity()
      << " " << root->volumeFreeSpace() << " " << root->volumeAvailableSpace() << " fingerprint "
      << root->sourceFingerprint() << " items " << root->sourceItemCount() << "\n";
  std::vector<std::pair<ScanNode*, int>> pending{{root, 0}};
  while (!pending.empty()) {
    auto [node, depth] = pending.back();
    pending.pop_back();
    out << std::string(depth, ' ') << node->path() << " [" << node->name() << "] " << node->size()
        << (node->isDirectory() ? " dir" : "") << (node->isPackage() ? " pkg" : "")
        << (node->isAggregate() ? " agg" : "") << (node->isVirtualNode() ? " virt" : "")
        << (node->isAPFSClone() ? " clone" : "")
        << (node->isCloneAllocationElsewhere() ? " elsewhere" : "") << " shared "
        << node->cloneSharedSize() << " mtime " << node->modificationDate()
        << (node->isChildrenLoaded() ? "" : " unloaded") << "\n";
    auto children = node->children();
    for (std::size_t i = children.size(); i-- > 0;) {
      if (children[i]->parent() != node) out << "WRONG PARENT of " << children[i]->name() << "\n";
      if (i > 0 && ScanNode::precedes(children[i], children[i - 1]))
        out << "OUT OF ORDER " << children[i]->name() << "\n";
      pending.push_back({children[i], depth + 1});
    }
  }
  return out.str() + "issues\n" + issuesText(root->scanIssues());
}

}  // namespace tw::test
