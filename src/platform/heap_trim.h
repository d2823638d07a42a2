// The C library's heap: how much freed memory it keeps at the top of the heap before handing it
// back to the kernel.
#pragma once

namespace tw {

// Lets the heap keep up to 64 MB of freed memory at its top for reuse (once per process). Work
// that repeatedly allocates and frees a few hundred kilobytes, such as SQLite's statement
// journal of every multi-row UPDATE, otherwise shrinks and regrows the heap each time, and every
// shrink flushes the address space on all cores.
void keepFreedHeapTopForReuse();

}  // namespace tw
