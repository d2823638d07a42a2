#include <QElapsedTimer>
#include <QFile>
#include <QProcess>

#include "app/instance_channel.h"
#include "app/instance_lock.h"
#include "gtest/gtest.h"
#include "support/desktop_environment.h"

namespace tw {
namespace {

const QString kTarnwell = QStringLiteral(TW_TARNWELL_BINARY);

// A copy of tarnwell running in the background until the test ends.
struct RunningCopy {
  QProcess process;
  QByteArray output;
  explicit RunningCopy(const test::DesktopEnvironment& env) {
    process.setProcessEnvironment(env.processEnvironment());
    process.start(kTarnwell, {});
  }
  ~RunningCopy() {
    if (process.state() != QProcess::NotRunning) {
      process.kill();
      process.waitForFinished(5000);
    }
  }
  // Reads the output until a line equal to `line` arrives or `timeoutMs` passes.
  bool waitForLine(const QByteArray& line, int timeoutMs = 20000) {
    QElapsedTimer clock;
    clock.start();
    while (clock.elapsed() < timeoutMs) {
      output += process.readAllStandardOutput();
      if (output.split('\n').contains(line)) return true;
      if (process.state() == QProcess::NotRunning) return false;
      process.waitForReadyRead(100);
    }
    return false;
  }
};

// One more copy run to its end, with `token` as its activation token unless empty.
struct FinishedCopy {
  int exitCode = -1;  // -1: crashed or still running after 10 s
  QByteArray output;
  qint64 milliseconds = 0;
};
FinishedCopy runAnotherCopy(const test::DesktopEnvironment& env, const QString& token = {}) {
  QProcessEnvironment environment = env.processEnvironment();
  if (!token.isEmpty()) environment.insert(QStringLiteral("XDG_ACTIVATION_TOKEN"), token);
  QProcess process;
  process.setProcessEnvironment(environment);
  QElapsedTimer clock;
  clock.start();
  process.start(kTarnwell, {});
  FinishedCopy copy;
  if (process.waitForFinished(10000) && process.exitStatus() == QProcess::NormalExit)
    copy.exitCode = process.exitCode();
  copy.milliseconds = clock.elapsed();
  copy.output = process.readAllStandardOutput();
  return copy;
}

TEST(InstanceLock, SecondHolderOrAnUnusableFileIsRefusedUntilTheFirstReleases) {
  test::TempTree tree;
  const std::string path = tree.path("Instance.lock");
  InstanceLock first, second;
  EXPECT_FALSE(first.acquire(path).has_value());
  std::optional<Error> refused = second.acquire(path);
  ASSERT_TRUE(refused.has_value());
  EXPECT_EQ(refused->code, EWOULDBLOCK);
  EXPECT_FALSE(second.isHeld());
  first.release();
  EXPECT_FALSE(second.acquire(path).has_value());
  EXPECT_TRUE(second.isHeld());
  // A lock file that cannot be made counts as another copy.
  InstanceLock unusable;
  EXPECT_TRUE(unusable.acquire("/nonexistent-folder/Instance.lock").has_value());
  EXPECT_FALSE(unusable.isHeld());
}

TEST(SingleInstance, SecondCopyHandsItsTokenToTheFirstAndQuitsWithoutAWindow) {
  test::DesktopEnvironment env;
  RunningCopy first(env);
  ASSERT_TRUE(first.waitForLine("ready"))
      << first.output.data() << first.process.readAllStandardError().data();

  const FinishedCopy second = runAnotherCopy(env, QStringLiteral("kwin-1234_x.y"));
  EXPECT_EQ(second.exitCode, 0);
  EXPECT_EQ(second.output, "duplicate\n");  // never "ready": it built no window
  EXPECT_LT(second.milliseconds, 3000);
  EXPECT_TRUE(first.waitForLine("activated kwin-1234_x.y", 5000)) << first.output.data();
  EXPECT_EQ(first.process.state(), QProcess::Running);

  // Without a token the running copy is still asked to come forward.
  EXPECT_EQ(runAnotherCopy(env).exitCode, 0);
  EXPECT_TRUE(first.waitForLine("activated ", 5000)) << first.output.data();
}

TEST(SingleInstance, CopyKilledWhileRunningLeavesNothingThatBlocksTheNext) {
  test::DesktopEnvironment env;
  {
    RunningCopy crashed(env);
    ASSERT_TRUE(crashed.waitForLine("ready"));
    crashed.process.kill();
    crashed.process.waitForFinished(5000);
  }
  // The lock file and the socket file are both still there.
  EXPECT_TRUE(QFile::exists(QString::fromStdString(env.libraryFolder() + "/Instance.lock")));
  RunningCopy next(env);
  ASSERT_TRUE(next.waitForLine("ready")) << next.output.data();
  // And the new copy answers on the socket the dead one left behind.
  EXPECT_EQ(runAnotherCopy(env, QStringLiteral("t2")).exitCode, 0);
  EXPECT_TRUE(next.waitForLine("activated t2", 5000)) << next.output.data();
}

TEST(SingleInstance, TokensAreForwardedOnlyWhenTheyLookLikeTokens) {
  EXPECT_EQ(sanitizedActivationToken("kwin-1234_x.y"), "kwin-1234_x.y");
  EXPECT_EQ(sanitizedActivationToken("a b"), "");
  EXPECT_EQ(sanitizedActivationToken("a\nactivate b"), "");
  EXPECT_EQ(sanitizedActivationToken("caf\xc3\xa9"), "");
  EXPECT_EQ(sanitizedActivationToken(QByteArray(kMaximumActivationTokenBytes, 'x')).size(),
            kMaximumActivationTokenBytes);
  EXPECT_EQ(sanitizedActivationToken(QByteArray(kMaximumActivationTokenBytes + 1, 'x')), "");
}

TEST(SingleInstance, EachLibraryHasItsOwnSocketAndAHandOverToNobodyGivesUpInTime) {
  test::DesktopEnvironment env;
  const QString a = instanceSocketPath("/home/a/.local/share/Tarnwell");
  EXPECT_NE(a, instanceSocketPath("/home/b/.local/share/Tarnwell"));
  EXPECT_EQ(a, instanceSocketPath("/home/a/.local/share/Tarnwell"));
  EXPECT_TRUE(a.startsWith(QString::fromStdString(env.runtimeDir()) + "/")) << a.toStdString();
  QElapsedTimer clock;
  clock.start();
  EXPECT_FALSE(
      forwardActivation(QString::fromStdString(env.runtimeDir() + "/nobody.socket"), "tok", 300));
  EXPECT_LT(clock.elapsed(), 2000);
}

}  // namespace
}  // namespace tw
