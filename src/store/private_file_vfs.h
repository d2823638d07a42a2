// An SQLite file layer for database files that no other connection ever sees: the hidden file a
// new scan database is written to. It routes every write through FileSystemCalls and takes no
// file locks (the name is unique and the file is moved into place only when whole).
#pragma once

#include "store/file_system_calls.h"

namespace tw {

// Name of the layer for sqlite3_open_v2; registered on first use.
const char* privateFileVfsName();

// Selects the calls used by files the layer opens on this thread while the guard lives.
class PrivateFileCallsScope {
 public:
  explicit PrivateFileCallsScope(const FileSystemCalls& calls);
  ~PrivateFileCallsScope();
  PrivateFileCallsScope(const PrivateFileCallsScope&) = delete;
  PrivateFileCallsScope& operator=(const PrivateFileCallsScope&) = delete;

 private:
  const FileSystemCalls* previous_;
};

}  // namespace tw
