// Errors are values: a domain, a code and a sentence a user can read. Every interface of Tarnwell
// returns them beside its result; nothing is thrown across an interface.
#pragma once

#include <cerrno>
#include <optional>
#include <string>

namespace tw {

// Error domains, exactly as stored in logs and shown in alerts.
inline constexpr const char* kSQLiteErrorDomain = "org.tarnwell.Tarnwell.SQLite";
inline constexpr const char* kScanErrorDomain = "org.tarnwell.Tarnwell.Scan";
inline constexpr const char* kVolumeAccessErrorDomain = "org.tarnwell.Tarnwell.VolumeAccess";
inline constexpr const char* kArchiveErrorDomain = "org.tarnwell.Tarnwell.Archive";
inline constexpr const char* kPOSIXErrorDomain = "POSIX";

struct Error {
  std::string domain;
  int code = 0;
  std::string description;

  bool operator==(const Error&) const = default;
};

// An error in the POSIX domain for errno value `err`, described by strerror.
Error posixError(int err);

// Like posixError, for use right after a failed system call.
inline Error lastPosixError() {
  return posixError(errno);
}

}  // namespace tw
