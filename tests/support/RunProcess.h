// Runs a program to the end with a chosen environment and collects its output.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tw::test {

struct ProcessResult {
  int exitStatus = -1;  // exit code, or 128 + signal number
  std::string standardOutput, standardError;
};

struct ProcessOptions {
  // Variables added to (or, when empty, removed from) the test's own environment.
  std::map<std::string, std::optional<std::string>> environment;
  bool terminalInput = false;  // a pseudo-terminal as standard input instead of /dev/null
};

ProcessResult runProcess(const std::string& program, const std::vector<std::string>& arguments,
                         const ProcessOptions& options = {});

}  // namespace tw::test
