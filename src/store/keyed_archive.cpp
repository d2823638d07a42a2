#include "store/keyed_archive.h"

namespace tw {

DecodedArchive decodeScanArchive(std::span<const uint8_t>) {
  return DecodedArchive{nullptr, Error{kArchiveErrorDomain, 1, "The archive could not be read."}};
}

std::vector<uint8_t> encodeScanArchive(ScanNode&) {
  return {};
}

}  // namespace tw
