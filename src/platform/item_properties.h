// Asking the desktop's file manager to show an item's properties window, through the
// freedesktop.org FileManager1 service's ShowItemProperties call.
#pragma once

#include <functional>
#include <string>

namespace tw {

// Calls `done` on the calling thread's event loop with true when the file manager took the call.
void showItemProperties(const std::string& path, std::function<void(bool shown)> done);

}  // namespace tw
