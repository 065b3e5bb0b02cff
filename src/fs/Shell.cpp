#include "fs/Shell.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unicode/utf8.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <system_error>

#include "platform/Log.h"
#include "platform/AdministratorRunner.h"
#include "platform/Host.h"

extern char** environ;

namespace tw::Shell {
namespace {

std::string errnoDescription(int code) { return std::generic_category().message(code); }

void logCannotRun(const std::string& executablePath, int code) {
  log::error("Shell: Cannot run " + executablePath + ": " + errnoDescription(code));
}

// Closes a descriptor once; close() is not retried on EINTR (the descriptor is gone either way).
class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int fd) : fd_(fd) {}
  ~FileDescriptor() { reset(); }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  int get() const { return fd_; }
  void reset(int fd = -1) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = fd;
  }

 private:
  int fd_ = -1;
};

// Both ends of the pipe get O_CLOEXEC at creation, so no other child started at the same time
// from another thread inherits them (a stray write end would keep our read from ever ending).
// Ends that land on 0, 1 or 2 (a parent started with closed standard streams) are moved up,
// because a dup2 onto the same number would leave close-on-exec set in the child.
bool makePipe(FileDescriptor& readEnd, FileDescriptor& writeEnd, int& code) {
  int fds[2];
  if (::pipe2(fds, O_CLOEXEC) != 0) {
    code = errno;
    return false;
  }
  readEnd.reset(fds[0]);
  writeEnd.reset(fds[1]);
  for (FileDescriptor* end : {&readEnd, &writeEnd}) {
    if (end->get() > STDERR_FILENO) continue;
    int moved = ::fcntl(end->get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    if (moved < 0) {
      code = errno;
      return false;
    }
    end->reset(moved);
  }
  return true;
}

class SpawnSetup {
 public:
  SpawnSetup() {
    posix_spawn_file_actions_init(&actions_);
    posix_spawnattr_init(&attributes_);
  }
  ~SpawnSetup() {
    posix_spawn_file_actions_destroy(&actions_);
    posix_spawnattr_destroy(&attributes_);
  }
  SpawnSetup(const SpawnSetup&) = delete;
  SpawnSetup& operator=(const SpawnSetup&) = delete;

  // Standard input from /dev/null, standard output and error into the pipe, nothing else
  // open, every signal at its default and none blocked (the parent may ignore SIGPIPE).
  int prepare(int outputFd) {
    int code = posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    if (code == 0) code = posix_spawn_file_actions_adddup2(&actions_, outputFd, STDOUT_FILENO);
    if (code == 0) code = posix_spawn_file_actions_adddup2(&actions_, outputFd, STDERR_FILENO);
#if defined(__GLIBC__) && (__GLIBC__ > 2 || (__GLIBC__ == 2 && __GLIBC_MINOR__ >= 34))
    // Descriptors that other code opened without O_CLOEXEC must not reach the child either.
    if (code == 0) code = posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1);
#endif
    short flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
#if defined(__APPLE__)
    flags |= POSIX_SPAWN_CLOEXEC_DEFAULT;
#endif
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    if (code == 0) code = posix_spawnattr_setsigmask(&attributes_, &none);
    if (code == 0) code = posix_spawnattr_setsigdefault(&attributes_, &all);
    if (code == 0) code = posix_spawnattr_setflags(&attributes_, flags);
    return code;
  }

  const posix_spawn_file_actions_t* actions() const { return &actions_; }
  const posix_spawnattr_t* attributes() const { return &attributes_; }

 private:
  posix_spawn_file_actions_t actions_;
  posix_spawnattr_t attributes_;
};

void readToEnd(int fd, std::string& output) {
  char buffer[65536];
  for (;;) {
    ssize_t count = ::read(fd, buffer, sizeof buffer);
    if (count > 0) {
      output.append(buffer, static_cast<size_t>(count));
    } else if (count == 0 || errno != EINTR) {
      return;
    }
  }
}

// The child's exit status; for a child killed by a signal, the signal's number.
int waitForExit(pid_t pid) {
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) return -1;
  }
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  if (WIFSIGNALED(status)) return WTERMSIG(status);
  return -1;
}

// Well-formed UTF-8 only: no overlong forms, no surrogates, nothing above U+10FFFF.
bool isValidUTF8(const std::string& bytes) {
  const auto* data = reinterpret_cast<const uint8_t*>(bytes.data());
  int64_t length = static_cast<int64_t>(bytes.size());
  int64_t index = 0;
  while (index < length) {
    UChar32 codePoint;
    U8_NEXT(data, index, length, codePoint);
    if (codePoint < 0) return false;
  }
  return true;
}

}  // namespace

Result run(const std::string& executablePath, const std::vector<std::string>& arguments) {
  const std::string program = Host::current().system(executablePath).string();

  struct stat info {};
  if (::stat(program.c_str(), &info) != 0) {
    logCannotRun(executablePath, errno);
    return {-1, ""};
  }
  if (S_ISDIR(info.st_mode)) {
    logCannotRun(executablePath, EISDIR);
    return {-1, ""};
  }

  FileDescriptor readEnd;
  FileDescriptor writeEnd;
  int code = 0;
  if (!makePipe(readEnd, writeEnd, code)) {
    logCannotRun(executablePath, code);
    return {-1, ""};
  }

  SpawnSetup setup;
  if (int prepared = setup.prepare(writeEnd.get()); prepared != 0) {
    logCannotRun(executablePath, prepared);
    return {-1, ""};
  }

  std::vector<char*> argv;
  argv.reserve(arguments.size() + 2);
  argv.push_back(const_cast<char*>(executablePath.c_str()));
  for (const auto& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);

  // posix_spawn reports a failed exec itself (glibc's vfork-style spawn and macOS both do),
  // so no error pipe is needed to tell "could not start" from "started and failed".
  pid_t pid = 0;
  int spawned = EINTR;
  while (spawned == EINTR) {
    spawned = ::posix_spawn(&pid, program.c_str(), setup.actions(), setup.attributes(), argv.data(), environ);
  }
  if (spawned != 0) {
    logCannotRun(executablePath, spawned);
    return {-1, ""};
  }
  writeEnd.reset();

  // Read to the end before waiting: a child that fills the pipe would otherwise never exit.
  std::string output;
  readToEnd(readEnd.get(), output);
  readEnd.reset();
  int status = waitForExit(pid);

  if (!isValidUTF8(output)) output.clear();
  return {status, std::move(output)};
}

CommandError::CommandError(std::string command, std::string output)
    : Error("Command failed: " + command + "\n" + output), command_(std::move(command)), output_(std::move(output)) {}

namespace {

void runInvocation(AdministratorRunner runner, const AdministratorInvocation& invocation, const std::string& command) {
  Result result = run(invocation.executablePath, invocation.arguments);
  if (result.status == 0) return;
  throw CommandError(command, administratorFailureOutput(runner, result.status, std::move(result.output)));
}

}  // namespace

void runAsAdministrator(const std::string& command) {
  const AdministratorRunner runner = currentAdministratorRunner();
  runInvocation(runner, administratorInvocation(runner, command), command);
}

void runAsAdministrator(const std::string& executablePath, const std::vector<std::string>& arguments) {
  const AdministratorRunner runner = currentAdministratorRunner();
  std::string command = quoteForShell(executablePath);
  for (const std::string& argument : arguments) command += " " + quoteForShell(argument);
  runInvocation(runner, administratorProgramInvocation(runner, executablePath, arguments), command);
}

}  // namespace tw::Shell
