// Where work runs: Executors (scan/directory_scanner.h) for the GUI thread and for the pool.
#pragma once

#include <QObject>

#include "scan/directory_scanner.h"

namespace tw {

// Posts each function to the event loop of `context`'s thread. A function still queued when
// `context` is destroyed is dropped, never run.
Executor queuedExecutor(QObject* context);

// Runs each function on Qt's global thread pool; inline once the pool is gone at exit.
Executor threadPoolExecutor();

}  // namespace tw
