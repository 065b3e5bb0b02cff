#include "support/RunProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

extern char** environ;

namespace tw::test {
namespace {

std::vector<std::string> mergedEnvironment(const ProcessOptions& options) {
  std::vector<std::string> result;
  for (char** entry = environ; *entry; ++entry) {
    std::string text(*entry);
    auto name = text.substr(0, text.find('='));
    if (options.environment.count(name)) continue;
    result.push_back(text);
  }
  for (const auto& [name, value] : options.environment) {
    if (value) result.push_back(name + "=" + *value);
  }
  return result;
}

void drain(int outFd, int errFd, std::string& out, std::string& err) {
  pollfd fds[2] = {{outFd, POLLIN, 0}, {errFd, POLLIN, 0}};
  int open = 2;
  char buffer[65536];
  while (open > 0) {
    if (::poll(fds, 2, -1) < 0) {
      if (errno == EINTR) continue;
      break;
    }
    for (int i = 0; i < 2; ++i) {
      if (fds[i].fd < 0 || !(fds[i].revents & (POLLIN | POLLHUP | POLLERR))) continue;
      ssize_t n = ::read(fds[i].fd, buffer, sizeof buffer);
      if (n > 0) {
        (i == 0 ? out : err).append(buffer, static_cast<size_t>(n));
      } else if (n == 0 || errno != EINTR) {
        fds[i].fd = -1;
        --open;
      }
    }
  }
}

}  // namespace

ProcessResult runProcess(const std::string& program, const std::vector<std::string>& arguments,
                         const ProcessOptions& options) {
  int outPipe[2];
  int errPipe[2];
  if (::pipe2(outPipe, O_CLOEXEC) != 0 || ::pipe2(errPipe, O_CLOEXEC) != 0) throw std::runtime_error("pipe");

  int inputFd = -1;
  int terminalMaster = -1;
  if (options.terminalInput) {
    int slave = -1;
    if (::openpty(&terminalMaster, &slave, nullptr, nullptr, nullptr) != 0) throw std::runtime_error("openpty");
    inputFd = slave;
  } else {
    inputFd = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  }

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, inputFd, 0);
  posix_spawn_file_actions_adddup2(&actions, outPipe[1], 1);
  posix_spawn_file_actions_adddup2(&actions, errPipe[1], 2);

  std::vector<std::string> argvStrings{program};
  argvStrings.insert(argvStrings.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (auto& a : argvStrings) argv.push_back(a.data());
  argv.push_back(nullptr);
  auto envStrings = mergedEnvironment(options);
  std::vector<char*> envp;
  for (auto& e : envStrings) envp.push_back(e.data());
  envp.push_back(nullptr);

  pid_t pid = 0;
  int rc = posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  ::close(outPipe[1]);
  ::close(errPipe[1]);
  ::close(inputFd);
  if (rc != 0) {
    ::close(outPipe[0]);
    ::close(errPipe[0]);
    if (terminalMaster >= 0) ::close(terminalMaster);
    throw std::runtime_error("cannot start " + program + ": " + std::strerror(rc));
  }

  ProcessResult result;
  drain(outPipe[0], errPipe[0], result.standardOutput, result.standardError);
  ::close(outPipe[0]);
  ::close(errPipe[0]);
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (terminalMaster >= 0) ::close(terminalMaster);
  result.exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return result;
}

}  // namespace tw::test
