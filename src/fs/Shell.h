// Runs the operating system's own tools as child processes (no shell, no quoting) and
// commands with administrator rights.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "platform/Error.h"

namespace tw::Shell {

struct Result {
  int status;
  std::string output;  // standard output and standard error together, UTF-8 (empty when invalid)
};

// Runs the program at an absolute system path (mapped through the host's root). Never
// throws: a program that cannot start is logged and gives (-1, "").
//
// The program runs in a process group of its own. One still running after `timeLimit` (the
// host's commandTimeLimit unless given) is ended with its whole group and gives -1 with what
// it printed so far, with a log line; so is one that prints more than the host's
// commandOutputLimit (with no output). One that exits but leaves something it started
// holding its output open is waited for only briefly; the leftover group is then ended too.
Result run(const std::string& executablePath, const std::vector<std::string>& arguments);
Result run(const std::string& executablePath, const std::vector<std::string>& arguments,
           std::chrono::milliseconds timeLimit);

// A command that ended unsuccessfully. Description: "Command failed: " + command + "\n" + output.
class CommandError : public Error {
 public:
  CommandError(std::string command, std::string output);
  const std::string& command() const { return command_; }
  const std::string& output() const { return output_; }

 private:
  std::string command_;
  std::string output_;
};

// Runs `command` through the system shell with administrator rights after the system's own
// credential prompt. Throws CommandError when the runner fails or the user cancels.
void runAsAdministrator(const std::string& command);

// Runs the program at an absolute path with its arguments with administrator rights, with no
// shell in between where the platform's runner allows it. The error names the program and its
// arguments, each quoted for the shell.
void runAsAdministrator(const std::string& executablePath, const std::vector<std::string>& arguments);

}  // namespace tw::Shell
