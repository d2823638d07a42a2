// How the browser presents the root of a scan of a whole disk: the root is marked as a volume
// root with the disk's name and current space figures, and the top-level system folders are
// always listed on their own rather than inside "smaller objects…".
#pragma once

#include "platform/volume_layout.h"
#include "scan/scan_node.h"

namespace tw {

// When `root`'s path is the mount point of its volume (as `layout` reports it): marks the root
// a volume root, names it after the volume when the volume has a name, and records capacity,
// free and available space (available never below free). Then lifts "Users", "System",
// "Applications", "private" and "Library" out of the root's "smaller objects…" group.
void prepareVolumePresentationForRoot(ScanNode& root, const VolumeLayout& layout);

// The second step alone: moves the children with those names out of every "smaller objects…"
// group of `root` into the root's own list, shrinking the group (dropped once it is empty) and
// keeping the child order.
void liftSystemFoldersOutOfSmallerObjects(ScanNode& root);

}  // namespace tw
