#pragma once
// Running a shell command from a test: its exit status and what it printed.
#include <sys/wait.h>

#include <cstdio>
#include <string>

namespace zvtest {

struct CommandRun {
  int status = -1;  // exit status; -1 when the command could not run or was killed
  std::string output;
};

// Runs `command` through the shell, stdout and stderr together.
inline CommandRun runCommand(const std::string& command) {
  CommandRun result;
  FILE* pipe = ::popen((command + " 2>&1").c_str(), "r");
  if (pipe == nullptr) return result;
  char buffer[4096];
  for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) result.output.append(buffer, n);
  const int status = ::pclose(pipe);
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return result;
}

inline std::string shellQuoted(const std::string& text) {
  std::string out = "'";
  for (char c : text) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return out + "'";
}

// xmllint's verdict on `xml` against the schema at `schemaPath`, offline.
inline CommandRun xmllint(const std::string& xml, const std::string& schemaPath) {
  return runCommand("printf '%s' " + shellQuoted(xml) + " | xmllint --noout --nonet --schema " + shellQuoted(schemaPath) + " -");
}

}  // namespace zvtest
