// Opening a folder in the desktop's terminal: the program named by $TERMINAL, else
// x-terminal-emulator, else the first of gnome-terminal, konsole, xfce4-terminal and xterm found on
// PATH, started detached with the folder as its working directory. The folder is entered through
// its descriptor, so a path that is not valid UTF-8 works as well as any other.
#pragma once

#include <optional>
#include <string>

namespace tw {

// Finding the program.
// The terminal to start, as an absolute path, given the values of $TERMINAL and $PATH (either may
// be null); nothing when none is installed.
std::optional<std::string> findTerminalProgram(const char* terminalVariable,
                                               const char* pathVariable);
// The same for this process's environment.
std::optional<std::string> findTerminalProgram();

// Starting it.
// Starts `program` detached, in `folder`; false when the folder cannot be entered or the program
// cannot be started.
bool startTerminal(const std::string& program, const std::string& folder);
// Opens `folder` in the terminal found in the environment; false (and nothing started) when none
// is installed.
bool openTerminalInFolder(const std::string& folder);

}  // namespace tw
