// Showing items in the desktop's file manager: the freedesktop.org FileManager1 service over
// D-Bus, else the folder holding the first item opened through the desktop's URL handler.
#pragma once

#include <QByteArray>
#include <string>
#include <vector>

namespace tw {

// A file:// URL for a raw-bytes path, every byte outside the path's safe characters
// percent-encoded, so that a name that is not UTF-8 reaches the file manager unchanged.
QByteArray fileUrlForPath(const std::string& path);

// Asks the file manager to show `paths` selected; falls back to opening the first one's folder.
void revealInFileManager(const std::vector<std::string>& paths);

}  // namespace tw
