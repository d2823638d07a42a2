// Reads the scanning preferences the way a scan does and prints them, each value hex-encoded so
// that any byte shows: "skip 0|1", then "path <hex>" and "pattern <hex>" lines in stored order.
#include <QByteArray>
#include <cstdio>

#include "services/preferences.h"

int main() {
  tw::registerDefaultPreferences();
  const tw::ScanSettings settings = tw::readScanSettings();
  std::printf("skip %d\n", settings.skipPackages ? 1 : 0);
  for (const std::string& path : settings.excludedPaths)
    std::printf("path %s\n", QByteArray::fromStdString(path).toHex().constData());
  for (const std::string& pattern : settings.excludedFilePatterns)
    std::printf("pattern %s\n", QByteArray::fromStdString(pattern).toHex().constData());
  return 0;
}
