// One copy per user: the instance lock, and the hand-over from a later copy to the running one,
// with real tarnwell processes.
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>

#include "app/instance_channel.h"
#include "app/instance_lock.h"
#include "gtest/gtest.h"
#include "support/desktop_environment.h"

namespace tw {
namespace {

// A copy of tarnwell running until the test ends.
struct RunningCopy {
  QProcess process;
  QByteArray output;
  explicit RunningCopy(const test::DesktopEnvironment& env) {
    process.setProcessEnvironment(env.processEnvironment());
    process.start(QStringLiteral(TW_TARNWELL_BINARY), {});
  }
  ~RunningCopy() {
    process.kill();
    process.waitForFinished(5000);
  }
  // Reads the output until the line `line` arrives; false when `timeoutMs` pass first.
  bool waitForLine(const QByteArray& line, int timeoutMs = 20000) {
    QElapsedTimer clock;
    clock.start();
    while (clock.elapsed() < timeoutMs && process.state() != QProcess::NotRunning) {
      output += process.readAllStandardOutput();
      if (output.split('\n').contains(line)) return true;
      process.waitForReadyRead(100);
    }
    return false;
  }
};

// One more copy run to its end with `token` as its activation token: its output, or "crashed".
QByteArray runAnotherCopy(const test::DesktopEnvironment& env, const QString& token = {}) {
  QProcessEnvironment environment = env.processEnvironment();
  if (!token.isEmpty()) environment.insert(QStringLiteral("XDG_ACTIVATION_TOKEN"), token);
  QProcess process;
  process.setProcessEnvironment(environment);
  process.start(QStringLiteral(TW_TARNWELL_BINARY), {});
  const bool ended = process.waitForFinished(3000) && process.exitStatus() == QProcess::NormalExit;
  return ended && process.exitCode() == 0 ? process.readAllStandardOutput() : "crashed";
}

TEST(InstanceLock, SecondHolderOrAnUnusableFileIsRefusedUntilTheFirstReleases) {
  test::TempTree tree;
  InstanceLock first, second, unusable;
  EXPECT_FALSE(first.acquire(tree.path("Instance.lock")).has_value());
  std::optional<Error> refused = second.acquire(tree.path("Instance.lock"));
  ASSERT_TRUE(refused.has_value());
  EXPECT_EQ(refused->code, EWOULDBLOCK);
  EXPECT_FALSE(second.isHeld());
  first.release();
  EXPECT_FALSE(second.acquire(tree.path("Instance.lock")).has_value());
  EXPECT_TRUE(second.isHeld());
  // A lock file that cannot be made counts as another copy.
  EXPECT_TRUE(unusable.acquire("/nonexistent-folder/Instance.lock").has_value());
  EXPECT_FALSE(unusable.isHeld());
}

TEST(SingleInstance, LaterCopiesHandTheirTokenOverAndQuitEvenAfterACrashedCopy) {
  test::DesktopEnvironment env;
  {
    RunningCopy crashed(env);  // killed: its lock and socket files stay behind
    ASSERT_TRUE(crashed.waitForLine("ready")) << crashed.process.readAllStandardError().data();
  }
  EXPECT_TRUE(QFile::exists(QString::fromStdString(env.libraryFolder() + "/Instance.lock")));
  RunningCopy first(env);
  ASSERT_TRUE(first.waitForLine("ready")) << first.output.data();
  // Within 3 s, without building a window (never "ready"), and the first comes forward.
  EXPECT_EQ(runAnotherCopy(env, "kwin-1234_x.y"), "duplicate\n");
  EXPECT_TRUE(first.waitForLine("activated kwin-1234_x.y", 5000)) << first.output.data();
  EXPECT_EQ(runAnotherCopy(env), "duplicate\n");  // without a token it comes forward too
  EXPECT_TRUE(first.waitForLine("activated ", 5000)) << first.output.data();
  EXPECT_EQ(first.process.state(), QProcess::Running);
}

TEST(SingleInstance, TokensAreForwardedOnlyWhenTheyLookLikeTokensToOneSocketPerLibrary) {
  EXPECT_EQ(sanitizedActivationToken("kwin-1234_x.y"), "kwin-1234_x.y");
  for (const char* bad : {"a b", "a\nactivate b", "caf\xc3\xa9"})
    EXPECT_EQ(sanitizedActivationToken(bad), "") << bad;
  EXPECT_EQ(sanitizedActivationToken(QByteArray(kMaximumActivationTokenBytes, 'x')).size(),
            kMaximumActivationTokenBytes);
  EXPECT_EQ(sanitizedActivationToken(QByteArray(kMaximumActivationTokenBytes + 1, 'x')), "");

  test::DesktopEnvironment env;
  const QString a = instanceSocketPath("/home/a/.local/share/Tarnwell");
  EXPECT_NE(a, instanceSocketPath("/home/b/.local/share/Tarnwell"));
  EXPECT_EQ(a, instanceSocketPath("/home/a/.local/share/Tarnwell"));
  EXPECT_TRUE(a.startsWith(QString::fromStdString(env.runtimeDir()) + "/")) << a.toStdString();
  // A hand-over to nobody gives up in time.
  QElapsedTimer clock;
  clock.start();
  EXPECT_FALSE(
      forwardActivation(QString::fromStdString(env.runtimeDir() + "/nobody.socket"), "tok", 300));
  EXPECT_LT(clock.elapsed(), 2000);
}

}  // namespace
}  // namespace tw
