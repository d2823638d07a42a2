#include "platform/heap_trim.h"

#include <malloc.h>

#include <mutex>

namespace tw {

void keepFreedHeapTopForReuse() {
  static std::once_flag once;
  std::call_once(once, [] {
    // Setting the threshold also fixes glibc's mmap threshold at its default (128 KB), so large
    // blocks keep going to their own mappings and are returned when freed.
    mallopt(M_TRIM_THRESHOLD, 64 * 1024 * 1024);
  });
}

}  // namespace tw
