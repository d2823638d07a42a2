#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QElapsedTimer>
#include <QFile>
#include <QProcess>

#include "app/instance_channel.h"
#include "app/instance_lock.h"
#include "app_test_support.h"
#include "gtest/gtest.h"

namespace tw {
namespace {

// Reads a process's output until a line equal to `line` arrives or `timeoutMs` passes.
bool waitForLine(QProcess& process, const QByteArray& line, QByteArray* seen, int timeoutMs) {
  QElapsedTimer clock;
  clock.start();
  while (clock.elapsed() < timeoutMs) {
    *seen += process.readAllStandardOutput();
    if (seen->split('\n').contains(line)) return true;
    if (process.state() == QProcess::NotRunning) return false;
    process.waitForReadyRead(100);
  }
  return false;
}

struct RunningCopy {
  QProcess process;
  QByteArray output;
  explicit RunningCopy(const QProcessEnvironment& env) {
    process.setProcessEnvironment(env);
    process.start(test::tarnwellBinary(), {});
  }
  ~RunningCopy() {
    if (process.state() != QProcess::NotRunning) {
      process.kill();
      process.waitForFinished(5000);
    }
  }
};

TEST(InstanceLock, SecondHolderIsRefusedUntilTheFirstReleases) {
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
}

TEST(InstanceLock, LockLeftByAKilledProcessNeverBlocks) {
  test::TempTree tree;
  const std::string path = tree.path("Instance.lock");
  int ready[2];
  ASSERT_EQ(::pipe(ready), 0);
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    InstanceLock held;
    const char state = held.acquire(path) ? 'n' : 'y';
    if (::write(ready[1], &state, 1) != 1) _exit(1);
    ::pause();
    _exit(0);
  }
  char state = 0;
  ASSERT_EQ(::read(ready[0], &state, 1), 1);
  ASSERT_EQ(state, 'y');
  InstanceLock mine;
  EXPECT_TRUE(mine.acquire(path).has_value());
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
  EXPECT_FALSE(mine.acquire(path).has_value());
  ::close(ready[0]);
  ::close(ready[1]);
}

TEST(InstanceLock, UnusableLockFileCountsAsAnotherCopy) {
  InstanceLock lock;
  EXPECT_TRUE(lock.acquire("/nonexistent-folder/Instance.lock").has_value());
  EXPECT_FALSE(lock.isHeld());
}

TEST(SingleInstance, SecondCopyHandsItsTokenToTheFirstAndQuitsWithoutAWindow) {
  test::AppEnvironment env;
  RunningCopy first(env.processEnvironment());
  ASSERT_TRUE(waitForLine(first.process, "ready", &first.output, 20000))
      << first.output.data() << first.process.errorString().toStdString()
      << first.process.readAllStandardError().data();

  QProcessEnvironment secondEnv = env.processEnvironment();
  secondEnv.insert(QStringLiteral("XDG_ACTIVATION_TOKEN"), QStringLiteral("kwin-1234_x.y"));
  QProcess second;
  second.setProcessEnvironment(secondEnv);
  QElapsedTimer clock;
  clock.start();
  second.start(test::tarnwellBinary(), {});
  ASSERT_TRUE(second.waitForFinished(10000));
  const qint64 elapsed = clock.elapsed();
  EXPECT_EQ(second.exitStatus(), QProcess::NormalExit);
  EXPECT_EQ(second.exitCode(), 0);
  const QByteArray secondOutput = second.readAllStandardOutput();
  EXPECT_EQ(secondOutput, "duplicate\n");  // never "ready": it built no window
  EXPECT_LT(elapsed, 3000);

  EXPECT_TRUE(waitForLine(first.process, "activated kwin-1234_x.y", &first.output, 5000))
      << first.output.data();
  EXPECT_EQ(first.process.state(), QProcess::Running);

  // Without a token the running copy is still asked to come forward.
  QProcess third;
  third.setProcessEnvironment(env.processEnvironment());
  third.start(test::tarnwellBinary(), {});
  ASSERT_TRUE(third.waitForFinished(10000));
  EXPECT_EQ(third.exitCode(), 0);
  EXPECT_TRUE(waitForLine(first.process, "activated ", &first.output, 5000)) << first.output.data();
}

TEST(SingleInstance, CopyKilledWhileRunningLeavesNothingThatBlocksTheNext) {
  test::AppEnvironment env;
  {
    RunningCopy crashed(env.processEnvironment());
    ASSERT_TRUE(waitForLine(crashed.process, "ready", &crashed.output, 20000));
    crashed.process.kill();
    crashed.process.waitForFinished(5000);
  }
  // The lock file and the socket file are both still there.
  EXPECT_TRUE(QFile::exists(QString::fromStdString(env.libraryFolder() + "/Instance.lock")));

  RunningCopy next(env.processEnvironment());
  ASSERT_TRUE(waitForLine(next.process, "ready", &next.output, 20000)) << next.output.data();
  // And the new copy answers on the socket the dead one left behind.
  QProcessEnvironment laterEnv = env.processEnvironment();
  laterEnv.insert(QStringLiteral("XDG_ACTIVATION_TOKEN"), QStringLiteral("t2"));
  QProcess later;
  later.setProcessEnvironment(laterEnv);
  later.start(test::tarnwellBinary(), {});
  ASSERT_TRUE(later.waitForFinished(10000));
  EXPECT_EQ(later.exitCode(), 0);
  EXPECT_TRUE(waitForLine(next.process, "activated t2", &next.output, 5000)) << next.output.data();
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

TEST(SingleInstance, HandOverWithNobodyListeningGivesUpInTime) {
  test::AppEnvironment env;
  test::application();
  QElapsedTimer clock;
  clock.start();
  EXPECT_FALSE(
      forwardActivation(QString::fromStdString(env.runtimeDir() + "/nobody.socket"), "tok", 300));
  EXPECT_LT(clock.elapsed(), 2000);
}

TEST(SingleInstance, EachLibraryHasItsOwnSocketInTheRuntimeFolder) {
  test::AppEnvironment env;
  const QString a = instanceSocketPath("/home/a/.local/share/Tarnwell");
  const QString b = instanceSocketPath("/home/b/.local/share/Tarnwell");
  EXPECT_NE(a, b);
  EXPECT_EQ(a, instanceSocketPath("/home/a/.local/share/Tarnwell"));
  EXPECT_TRUE(a.startsWith(QString::fromStdString(env.runtimeDir()) + "/")) << a.toStdString();
}

}  // namespace
}  // namespace tw
