// The path safety rule: what may never be moved to the Trash.
#include "cleanup/cleanup.h"

namespace tw {

SafetyRule SafetyRule::forThisProcess() {
  return {};
}

bool isSafeDeletionPath(std::string_view, std::string_view, const SafetyRule&) {
  return false;
}

}  // namespace tw
