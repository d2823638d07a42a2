// Handing work back to the GUI thread: an Executor (scan/directory_scanner.h) that posts each
// function to the event loop of `context`'s thread. A function still queued when `context` is
// destroyed is dropped, never run.
#pragma once

#include <QObject>

#include "scan/directory_scanner.h"

namespace tw {

Executor queuedExecutor(QObject* context);

}  // namespace tw
