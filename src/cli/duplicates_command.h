// `tarnwell-scan --open FILE --duplicates [--json]`: the duplicate search of the file tools run on
// a saved scan, its checksums cached in the file so a second run reads only what changed.
#pragma once

namespace tw {

// Runs the command when the arguments ask for it and returns its exit status; -1 when they do not
// mention --duplicates, leaving them to the other commands.
int runDuplicatesCommand(int argc, char** argv);

}  // namespace tw
