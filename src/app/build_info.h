// What this build is: the project's version, the git commit it was built from and whether it is a
// release or a debug build, all fixed when it was compiled.
#pragma once

#include <QString>

namespace tw {

QString applicationVersion();  // "0.1.0"
QString buildCommit();         // an abbreviated commit, "unknown" outside a git checkout
bool isReleaseBuild();
// "— release build" or "— debug build".
QString buildKindText();
// "Tarnwell 0.1.0 (4547381abc) — release build", as Settings shows it.
QString versionLine();

}  // namespace tw
