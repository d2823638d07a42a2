#include "app/build_info.h"

#include "app/build_commit.h"

namespace tw {

QString applicationVersion() {
  return QStringLiteral(TARNWELL_VERSION);
}

QString buildCommit() {
  return QStringLiteral(TARNWELL_GIT_COMMIT);
}

bool isReleaseBuild() {
  return TARNWELL_RELEASE_BUILD != 0;
}

QString buildKindText() {
  return isReleaseBuild() ? QStringLiteral("— release build") : QStringLiteral("— debug build");
}

QString versionLine() {
  const QString version =
      applicationVersion().isEmpty() ? QStringLiteral("?") : applicationVersion();
  const QString commit = buildCommit().isEmpty() ? QStringLiteral("?") : buildCommit();
  return QStringLiteral("Tarnwell %1 (%2) %3").arg(version, commit, buildKindText());
}

}  // namespace tw
