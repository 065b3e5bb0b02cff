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

// Reads both pipes to their ends, whichever has data, so that neither fills up and blocks the child.
void drain(int outFd, int errFd, std::string& out, std::string& err) {
  pollfd fds[2] = {{outFd, POLLIN, 0}, {errFd, POLLIN, 0}};
  char buffer[65536];
  for (int open = 2; open > 0;) {
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

// Pointers to `strings` ending in a null pointer, as exec wants them.
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
  if (!options.terminalInput) {
    inputFd = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  } else if (::openpty(&terminalMaster, &inputFd, nullptr, nullptr, nullptr) != 0) {
    throw std::runtime_error("openpty");
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, inputFd, 0);
  posix_spawn_file_actions_adddup2(&actions, outPipe[1], 1);
  posix_spawn_file_actions_adddup2(&actions, errPipe[1], 2);

  std::vector<std::string> argv{program}, env;
  argv.insert(argv.end(), arguments.begin(), arguments.end());
  for (char** entry = environ; *entry; ++entry) {
    std::string text(*entry);
    if (!options.environment.count(text.substr(0, text.find('=')))) env.push_back(text);
  }
  for (const auto& [name, value] : options.environment)
    if (value) env.push_back(name + "=" + *value);
  pid_t pid = 0;
  int rc = posix_spawn(&pid, program.c_str(), &actions, nullptr, pointers(argv).data(), pointers(env).data());
  posix_spawn_file_actions_destroy(&actions);
  for (int fd : {outPipe[1], errPipe[1], inputFd}) ::close(fd);

  ProcessResult result;
  if (rc == 0) drain(outPipe[0], errPipe[0], result.standardOutput, result.standardError);
  for (int fd : {outPipe[0], errPipe[0]}) ::close(fd);
  if (rc != 0) {
    if (terminalMaster >= 0) ::close(terminalMaster);
    throw std::runtime_error("cannot start " + program + ": " + std::strerror(rc));
  }
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (terminalMaster >= 0) ::close(terminalMaster);
  result.exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return result;
}

}  // namespace tw::test
