// The text files of a freedesktop.org trash folder: info/NAME.trashinfo, which records where a
// trashed item came from and when, and the trash's "directorysizes" cache of folder sizes. Paths
// are percent-encoded byte by byte, so names that are not UTF-8, or hold "%", newlines or spaces,
// come back exactly.
#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tw {

// Encoding: every byte outside A-Z, a-z, 0-9, "-", ".", "_", "~" and "/" becomes "%XX".
std::string percentEncodeTrashPath(std::string_view path);
// Decoding "%XX" escapes; nothing when an escape is malformed.
std::optional<std::string> percentDecodeTrashPath(std::string_view text);

// .trashinfo: "[Trash Info]", "Path=" with the encoded path and "DeletionDate=" with the local
// time as YYYY-MM-DDThh:mm:ss.
std::string trashDeletionDate(std::time_t when);
std::string trashInfoText(std::string_view path, std::string_view deletionDate);
// The decoded Path= of a .trashinfo text; nothing when it has none or it is malformed.
std::optional<std::string> trashInfoPath(std::string_view text);

// directorysizes: one line per trashed folder, "SIZE MTIME NAME" with its size in bytes, the
// modification time of its .trashinfo and its encoded name in files/.
struct TrashedFolderSize {
  uint64_t bytes = 0;
  int64_t infoModified = 0;
  std::string name;
};
// `existing` with the lines of `removed` names and of the names of `added` left out, then `added`
// appended; lines that cannot be read are dropped.
std::string updatedDirectorySizes(std::string_view existing,
                                  const std::vector<TrashedFolderSize>& added,
                                  const std::vector<std::string>& removed);

}  // namespace tw
