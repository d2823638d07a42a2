#include "browser/sunburst_layout.h"

#include <algorithm>
#include <cmath>

#include "browser/sunburst_angles.h"

namespace tw {

namespace {

bool isVideoFolderName(std::string_view name) {
  std::string lower(name);
  for (char& c : lower)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return lower == "video" || lower == "videos" || lower == "movies";
}

bool isFolder(const ScanNode& node) {
  return node.isDirectory() && !node.isAggregate();
}

}  // namespace

SunburstRing SunburstLayout::ringForDepth(unsigned depth) {
  if (depth < 5) {
    const double inner = 52.0 + 32.0 * depth;
    return {inner, inner + 30.0};
  }
  const double inner = 212.0 + 6.0 * (depth - 5);
  return {inner, inner + 4.0};
}

double SunburstLayout::scaleForSize(double width, double height) {
  return std::min(1.0, std::min(width, height) * 0.46 / 242.0);
}

double SunburstLayout::childrenStartAngle(const ScanNode& root) {
  if (!root.isVolumeRoot() || root.volumeCapacity() == 0) return 0;
  const double used =
      std::min(1.0, static_cast<double>(root.size()) / static_cast<double>(root.volumeCapacity()));
  return sunburst::kFullTurn * (1.0 - used);
}

void SunburstLayout::setRootNode(ScanNodeRef root) {
  if (root && root_) {
    if (const SunburstSegment* segment = segmentForNode(root.get()))
      rememberColorPosition(root.get(), segment->colorPosition);
  }
  if (root && isVideoFolderName(root->name()))
    rememberColorPosition(root.get(), kVideoColorPosition);
  root_ = std::move(root);
  rebuildSegments();
}

void SunburstLayout::rebuildSegments() {
  segments_.clear();
  indexByNode_.clear();
  if (!root_ || root_->size() == 0) return;
  appendChildren(root_->children(), childrenStartAngle(*root_), sunburst::kFullTurn, 0, segments_);
  indexByNode_.reserve(segments_.size());
  for (std::size_t i = 0; i < segments_.size(); ++i)
    indexByNode_.emplace(segments_[i].node, static_cast<int>(i));
}

void SunburstLayout::appendChildren(std::span<ScanNode* const> children, double start, double end,
                                    unsigned depth, std::vector<SunburstSegment>& into) const {
  if (depth > kMaximumDepth || children.empty()) return;
  // Sizes are taken once per child: a size function may have to work for its answer.
  std::vector<uint64_t> sizes;
  sizes.reserve(children.size());
  for (const ScanNode* child : children) sizes.push_back(sizeOf_ ? sizeOf_(child) : child->size());
  uint64_t total = 0;
  uint64_t dirTotal = 0;
  int dirCount = 0;
  for (std::size_t i = 0; i < children.size(); ++i) {
    total += sizes[i];
    if (isFolder(*children[i])) {
      dirTotal += sizes[i];
      ++dirCount;
    }
  }
  if (total == 0) return;

  std::optional<double> remembered;
  if (depth == 0 && dirCount == 1) remembered = rememberedColorPosition(root_.get());

  const SunburstRing ring = ringForDepth(depth);
  double angle = start;
  double dirFraction = 0;
  for (std::size_t i = 0; i < children.size(); ++i) {
    ScanNode* child = children[i];
    double position = 0;
    if (isFolder(*child) && dirTotal > 0) {
      const double share = static_cast<double>(sizes[i]) / static_cast<double>(dirTotal);
      position = remembered ? *remembered : dirFraction + share * 0.5;
      dirFraction += share;
    }
    const double span =
        (end - start) * (static_cast<double>(sizes[i]) / static_cast<double>(total));
    const double next = angle + span;
    if (span >= kMinimumSpan) {
      into.push_back({child, angle, next, ring.innerRadius, ring.outerRadius, position, depth});
      // The ring below the deepest is never drawn, so its children are not even loaded.
      if (depth < kMaximumDepth) appendChildren(child->children(), angle, next, depth + 1, into);
    }
    angle = next;
  }
}

const SunburstSegment* SunburstLayout::segmentForNode(const ScanNode* node) const {
  const int index = indexOfNode(node);
  return index < 0 ? nullptr : &segments_[index];
}

int SunburstLayout::indexOfNode(const ScanNode* node) const {
  auto it = indexByNode_.find(node);
  return it == indexByNode_.end() ? -1 : it->second;
}

void SunburstLayout::rememberColorPosition(ScanNode* root, double position) {
  if (!root) return;
  // Entries of trees that are gone may share an address with a new node; drop them as we go.
  std::erase_if(colorPositionsByRoot_,
                [](const auto& entry) { return entry.second.tree.expired(); });
  colorPositionsByRoot_[root] = {std::weak_ptr<ScanNode>(root->ref()), position};
}

std::optional<double> SunburstLayout::rememberedColorPosition(const ScanNode* root) const {
  auto it = colorPositionsByRoot_.find(root);
  if (it == colorPositionsByRoot_.end() || it->second.tree.expired()) return std::nullopt;
  return it->second.position;
}

std::optional<SunburstColor> SunburstLayout::colorForNode(const ScanNode* node) const {
  const SunburstSegment* segment = segmentForNode(node);
  if (!segment) return std::nullopt;
  return sunburst::baseColorForNode(*segment->node, segment->colorPosition, segment->depth);
}

SunburstColor SunburstLayout::rootColor() const {
  if (auto position = rememberedColorPosition(root_.get())) return sunburst::hueColor(*position, 0);
  return sunburst::kAccentTeal;
}

const SunburstSegment* SunburstLayout::segmentAtOffset(double dx, double dy, double scale) const {
  const int index = indexAtOffset(dx, dy, scale);
  return index < 0 ? nullptr : &segments_[index];
}

int SunburstLayout::indexAtOffset(double dx, double dy, double scale) const {
  const double distance = std::hypot(dx, dy);
  const double angle = sunburst::angleOfOffset(dx, dy);
  for (int i = static_cast<int>(segments_.size()) - 1; i >= 0; --i) {
    const SunburstSegment& s = segments_[i];
    if (s.innerRadius * scale <= distance && distance <= s.outerRadius * scale &&
        s.startAngle <= angle && angle <= s.endAngle)
      return i;
  }
  return -1;
}

bool SunburstLayout::isInCentreDisc(double dx, double dy, double scale) {
  return std::hypot(dx, dy) < kCentreRadius * scale;
}

}  // namespace tw
