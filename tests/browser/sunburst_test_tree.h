// Small hand-made scan trees for the sunburst tests.
#pragma once

#include <cstdint>
#include <string_view>

#include "scan/scan_node.h"

namespace tw::test {

// A folder root of the given size (its children are added by the test).
inline ScanNodeRef makeFolderRoot(uint64_t size, std::string_view path = "/r") {
  ScanNodeRef root = ScanNode::makeRoot(path, true);
  root->setSize(size);
  return root;
}

// Appends a child to `parent`, in the order the test gives (largest first by convention).
inline ScanNode* addNode(ScanNode* parent, std::string_view name, uint64_t size, bool directory) {
  ScanNode* node = parent->createNode(name, directory);
  node->setSize(size);
  parent->addChild(node);
  return node;
}
inline ScanNode* addFolder(ScanNode* parent, std::string_view name, uint64_t size) {
  return addNode(parent, name, size, true);
}
inline ScanNode* addFile(ScanNode* parent, std::string_view name, uint64_t size) {
  return addNode(parent, name, size, false);
}

}  // namespace tw::test
