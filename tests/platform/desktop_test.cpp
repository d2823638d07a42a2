// The desktop: the user's reduce-motion choice, and finding and starting the terminal on real
// temporary folders standing in for PATH.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QByteArray>
#include <chrono>
#include <cstdlib>
#include <thread>

#include "platform/reduce_motion.h"
#include "platform/terminal_launcher.h"
#include "support/temp_tree.h"

namespace tw {
namespace {

TEST(ReduceMotion, EnvironmentOverridesTheDesktopAndKdeFactorZeroCountsOnlyInTheKdeGroup) {
  qputenv("TARNWELL_REDUCE_MOTION", "1");
  EXPECT_TRUE(prefersReducedMotion());
  qputenv("TARNWELL_REDUCE_MOTION", "0");
  EXPECT_FALSE(prefersReducedMotion());
  qunsetenv("TARNWELL_REDUCE_MOTION");
  const std::pair<const char*, std::optional<bool>> cases[] = {
      {"[KDE]\nAnimationDurationFactor=0\n", true},
      {"[General]\nx=1\r\n[KDE]\r\nAnimationDurationFactor = 0\r\n", true},
      {"[KDE]\nAnimationDurationFactor=0.5\n", false},
      {"[KDE]\nAnimationDurationFactor=0\nAnimationDurationFactor=1", false},
      {"[Other]\nAnimationDurationFactor=0\n", std::nullopt},
      {"[KDE]\nAnimationDurationFactor=fast\n", std::nullopt},
      {"", std::nullopt}};
  for (const auto& [globals, disabled] : cases)
    EXPECT_EQ(kdeGlobalsDisableAnimations(globals), disabled) << globals;
}

using test::readFile;
using test::TempTree;
using test::writeFile;

std::string makeProgram(TempTree& tree, const std::string& relative, const std::string& script) {
  const std::string path = tree.path(relative);
  writeFile(path, script);
  ::chmod(path.c_str(), 0755);
  return path;
}

TEST(TerminalLauncherTest, PrefersTerminalVariableThenKnownProgramsAndStartsInAnOddFolder) {
  TempTree tree;
  const std::string bin = tree.folder("bin");
  const std::string pathVariable = "/nonexistent:" + bin;
  EXPECT_FALSE(findTerminalProgram(nullptr, pathVariable.c_str()));
  EXPECT_FALSE(findTerminalProgram("missing-term", pathVariable.c_str()));
  const std::string xterm = makeProgram(tree, "bin/xterm", "#!/bin/sh\n");
  const std::string konsole = makeProgram(tree, "bin/konsole", "#!/bin/sh\n");
  EXPECT_EQ(findTerminalProgram(nullptr, pathVariable.c_str()), konsole);
  // A $TERMINAL that is not installed falls back to the known ones.
  EXPECT_EQ(findTerminalProgram("missing-term", pathVariable.c_str()), konsole);
  EXPECT_EQ(findTerminalProgram("xterm", pathVariable.c_str()), xterm);
  const std::string own = makeProgram(tree, "own-term", "#!/bin/sh\n");
  EXPECT_EQ(findTerminalProgram(own.c_str(), nullptr), own);
  // Not executable: not a terminal.
  writeFile(tree.path("bin/gnome-terminal"), "#!/bin/sh\n");
  EXPECT_EQ(findTerminalProgram(nullptr, pathVariable.c_str()), konsole);
  // The terminal starts in a folder whose name is not UTF-8.
  const std::string folder = tree.folder("caf\xe9 \xff\nend");
  const std::string record = tree.path("record");
  const std::string program =
      makeProgram(tree, "term",
                  "#!/bin/sh\n/bin/pwd -P > \"$0.cwd\"\nprintf %s \"$PWD\" > \"" + record + "\"\n");
  ASSERT_TRUE(startTerminal(program, folder));
  std::string seen;
  for (int i = 0; i < 200 && seen.empty(); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    seen = readFile(record);
  }
  EXPECT_EQ(seen, folder);
  EXPECT_EQ(readFile(program + ".cwd"), folder + "\n");
  EXPECT_FALSE(startTerminal(program, tree.path("missing")));
}

}  // namespace
}  // namespace tw
