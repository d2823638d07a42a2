// Small helpers shared by the scanner tests.
#pragma once

#include <string>
#include <vector>

#include "scan/directory_scanner.h"

namespace tw::test {

inline ScanResult scanTree(const std::string& path,
                           std::shared_ptr<const VolumeLayout> layout = nullptr,
                           ScanSettings settings = {}, int threads = 2) {
  DirectoryScanner::Options options;
  options.layout = std::move(layout);
  options.settings = [settings] { return settings; };
  options.threads = threads;
  DirectoryScanner scanner(options);
  return scanner.scanNow(path, 0, nullptr);
}

// The child of `node` named `name`, or null.
inline ScanNode* child(ScanNode* node, std::string_view name) {
  if (!node) return nullptr;
  for (ScanNode* c : node->children())
    if (c->name() == name) return c;
  return nullptr;
}

// Follows "a/b/c" from `node` by names.
inline ScanNode* find(ScanNode* node, const std::string& relative) {
  std::size_t start = 0;
  while (node && start <= relative.size()) {
    std::size_t slash = relative.find('/', start);
    if (slash == std::string::npos) slash = relative.size();
    node = child(node, std::string_view(relative).substr(start, slash - start));
    start = slash + 1;
  }
  return node;
}

inline uint64_t childSum(ScanNode* node) {
  uint64_t sum = 0;
  for (ScanNode* c : node->children()) sum += c->size();
  return sum;
}

}  // namespace tw::test
