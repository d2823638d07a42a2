#include "platform/terminal_launcher.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

extern char** environ;

namespace tw {

namespace {

bool isExecutableFile(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode) && access(path.c_str(), X_OK) == 0;
}

// `name` itself when it holds a slash, else the first executable of that name on `pathVariable`.
std::optional<std::string> resolveProgram(std::string_view name, const char* pathVariable) {
  if (name.empty()) return std::nullopt;
  if (name.find('/') != std::string_view::npos) {
    std::string path(name);
    return isExecutableFile(path) ? std::optional(path) : std::nullopt;
  }
  if (!pathVariable) return std::nullopt;
  std::string_view rest = pathVariable;
  while (true) {
    const std::size_t colon = rest.find(':');
    std::string_view folder = rest.substr(0, colon);
    if (!folder.empty()) {
      std::string candidate(folder);
      candidate.push_back('/');
      candidate.append(name);
      if (isExecutableFile(candidate)) return candidate;
    }
    if (colon == std::string_view::npos) return std::nullopt;
    rest.remove_prefix(colon + 1);
  }
}

}  // namespace

std::optional<std::string> findTerminalProgram(const char* terminalVariable,
                                               const char* pathVariable) {
  if (terminalVariable)
    if (auto program = resolveProgram(terminalVariable, pathVariable)) return program;
  static constexpr std::array<std::string_view, 5> kKnown = {
      "x-terminal-emulator", "gnome-terminal", "konsole", "xfce4-terminal", "xterm"};
  for (std::string_view name : kKnown)
    if (auto program = resolveProgram(name, pathVariable)) return program;
  return std::nullopt;
}

std::optional<std::string> findTerminalProgram() {
  return findTerminalProgram(std::getenv("TERMINAL"), std::getenv("PATH"));
}

bool startTerminal(const std::string& program, const std::string& folder) {
  const int folderFD = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folderFD < 0) return false;

  // Everything the child needs is made before fork: after it only async-signal-safe calls run.
  std::string pwd = "PWD=" + folder;
  std::vector<char*> environment;
  for (char** entry = environ; entry && *entry; ++entry)
    if (std::strncmp(*entry, "PWD=", 4) != 0) environment.push_back(*entry);
  environment.push_back(pwd.data());
  environment.push_back(nullptr);
  std::string programCopy = program;
  char* arguments[] = {programCopy.data(), nullptr};

  // Two forks: the terminal is adopted by init and never becomes our zombie.
  const pid_t child = fork();
  if (child < 0) {
    close(folderFD);
    return false;
  }
  if (child == 0) {
    setsid();
    const pid_t grandchild = fork();
    if (grandchild != 0) _exit(grandchild < 0 ? 1 : 0);
    if (fchdir(folderFD) != 0) _exit(126);
    execve(programCopy.c_str(), arguments, environment.data());
    _exit(127);
  }
  close(folderFD);
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

bool openTerminalInFolder(const std::string& folder) {
  std::optional<std::string> program = findTerminalProgram();
  return program && startTerminal(*program, folder);
}

}  // namespace tw
