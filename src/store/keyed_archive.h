// Legacy scan archives: the keyed archive of a whole scan tree that earlier releases saved.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "platform/error.h"
#include "scan/scan_node.h"

namespace tw {

struct DecodedArchive {
  ScanNodeRef root;
  std::optional<Error> error;  // in kArchiveErrorDomain
};

// The scan tree stored in a keyed archive, or the reason it cannot be read.
DecodedArchive decodeScanArchive(std::span<const uint8_t> bytes);
// A keyed archive of the tree below `root`, for tests.
std::vector<uint8_t> encodeScanArchive(ScanNode& root);

}  // namespace tw
