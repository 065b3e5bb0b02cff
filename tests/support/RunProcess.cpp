#include "support/RunProcess.h"

#include <fcntl.h>
#include <pty.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <thread>

extern char** environ;

namespace tw::test {
namespace {

std::string readAll(int fd) {
  std::string text;
  char buffer[65536];
  for (ssize_t n; (n = ::read(fd, buffer, sizeof buffer)) != 0;) {
    if (n > 0) text.append(buffer, static_cast<size_t>(n));
    if (n < 0 && errno != EINTR) break;
  }
  return text;
}

std::vector<char*> pointers(std::vector<std::string>& strings) {
  std::vector<char*> result;
  for (auto& text : strings) result.push_back(text.data());
  result.push_back(nullptr);
  return result;
}

}  // namespace

ProcessResult runProcess(const std::string& program, const std::vector<std::string>& arguments,
                         const ProcessOptions& options) {
  int outPipe[2], errPipe[2];
  if (::pipe2(outPipe, O_CLOEXEC) != 0 || ::pipe2(errPipe, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
  int inputFd = -1, terminalMaster = -1;
  if (options.terminalInput ? ::openpty(&terminalMaster, &inputFd, nullptr, nullptr, nullptr) != 0
                            : (inputFd = ::open("/dev/null", O_RDONLY | O_CLOEXEC)) < 0)
    throw std::runtime_error("no standard input");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  for (int target = 0; int fd : {inputFd, outPipe[1], errPipe[1]})
    posix_spawn_file_actions_adddup2(&actions, fd, target++);

  std::vector<std::string> argv{program}, env;
  argv.insert(argv.end(), arguments.begin(), arguments.end());
  for (char** entry = environ; *entry; ++entry)
    if (std::string text(*entry); !options.environment.count(text.substr(0, text.find('=')))) env.push_back(text);
  for (const auto& [name, value] : options.environment)
    if (value) env.push_back(name + "=" + *value);
  pid_t pid = 0;
  const int rc = posix_spawn(&pid, program.c_str(), &actions, nullptr, pointers(argv).data(), pointers(env).data());
  posix_spawn_file_actions_destroy(&actions);
  for (int fd : {outPipe[1], errPipe[1], inputFd}) ::close(fd);

  ProcessResult result;
  if (rc == 0) {  // both pipes at once, so that neither fills up and blocks the child
    std::thread errorReader([&] { result.standardError = readAll(errPipe[0]); });
    result.standardOutput = readAll(outPipe[0]);
    errorReader.join();
  }
  for (int fd : {outPipe[0], errPipe[0]}) ::close(fd);
  int status = 0;
  while (rc == 0 && ::waitpid(pid, &status, 0) < 0 && errno == EINTR) continue;
  if (terminalMaster >= 0) ::close(terminalMaster);
  if (rc != 0) throw std::runtime_error("cannot start " + program + ": " + std::strerror(rc));
  result.exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return result;
}

}  // namespace tw::test
