// Start-up timing for the benchmarks: with TARNWELL_TRACE_STARTUP set, the process prints
// "painted <ms>" at the main window's first paint and "restored <ms>" when the saved scans have
// been handed over, in milliseconds since the process started (the kernel's start time of the
// process, to its 10 ms clock tick). With the value "quit" it quits once both lines are out.
#pragma once

namespace tw {

class Application;

// Installs the trace on a started application; does nothing unless TARNWELL_TRACE_STARTUP is set.
void traceStartupIfAsked(Application& app);

// Milliseconds since this process was started.
double millisecondsSinceProcessStart();

}  // namespace tw
