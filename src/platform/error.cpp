#include "platform/error.h"

#include <cstring>

namespace tw {

Error posixError(int err) {
  char buf[256];
  // GNU strerror_r returns the message, which may or may not live in buf.
  const char* text = strerror_r(err, buf, sizeof buf);
  return Error{kPOSIXErrorDomain, err, text};
}

}  // namespace tw
