// Scan database: reading legacy scan archives.
//
// Earlier releases saved a scan as a keyed archive: a binary property list whose "$objects"
// array holds every object once, objects referring to each other by UID, with the scanned tree's
// root under "$top"/"root". This unit turns such an archive back into a ScanNode tree (and writes
// one, for tests and fixtures). Decoding follows the node's archive rules: a missing name falls
// back to the URL's last component, child lists and issue lists are type-checked, empty
// "smaller objects…" groups are dropped and every child list comes back in the child order
// without being regrouped. Damaged or hostile input (cycles, references out of range, values of
// the wrong type, absurd nesting) gives an error in kArchiveErrorDomain and never a crash.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "platform/error.h"
#include "scan/scan_node.h"

namespace tw {

// Codes of errors in kArchiveErrorDomain.
enum ArchiveErrorCode : int {
  kArchiveNotPropertyList = 1,  // not a binary property list, or one that cannot be parsed safely
  kArchiveNotScanArchive = 2,   // a property list, but not a keyed archive of a scan node
  kArchiveDamaged = 3,          // references out of range or in a cycle, values of the wrong type
  kArchiveTooComplex = 4,       // nesting or expansion far beyond any real scan
};

// Format constants of the archive, as earlier releases wrote them.
inline constexpr const char* kKeyedArchiverName = "NSKeyedArchiver";
inline constexpr uint64_t kKeyedArchiveVersion = 100000;
inline constexpr const char* kScanNodeClassName = "TWScanNode";
// Seconds from 1970-01-01 to 2001-01-01, the epoch of archived dates.
inline constexpr double kArchiveDateEpochOffset = 978307200.0;
// Items nested deeper than this are refused.
inline constexpr uint32_t kMaxArchiveDepth = 10000;

// Reading and writing archives.
struct DecodedArchive {
  ScanNodeRef root;
  std::optional<Error> error;
};
// Decodes the binary property list of a keyed archive whose root object is a scan node.
DecodedArchive decodeScanArchive(std::span<const uint8_t> bytes);
// Encodes a tree the same way (used by tests and to write fixtures); empty on failure. Reading
// the children forces pending lazy loads. A name that is not valid UTF-8 is left out, so that
// decoding takes it from the percent-encoded URL.
std::vector<uint8_t> encodeScanArchive(ScanNode& root);

}  // namespace tw
