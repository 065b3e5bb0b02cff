#include "fs/Shell.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unicode/utf8.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <optional>
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
  // open, every signal at its default and none blocked (the parent may ignore SIGPIPE), and a
  // process group of its own, so that a stuck tool can be ended with everything it started.
  int prepare(int outputFd) {
    int code = posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    if (code == 0) code = posix_spawn_file_actions_adddup2(&actions_, outputFd, STDOUT_FILENO);
    if (code == 0) code = posix_spawn_file_actions_adddup2(&actions_, outputFd, STDERR_FILENO);
#if defined(__GLIBC__) && (__GLIBC__ > 2 || (__GLIBC__ == 2 && __GLIBC_MINOR__ >= 34))
    // Descriptors that other code opened without O_CLOEXEC must not reach the child either.
    if (code == 0) code = posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1);
#endif
    short flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP;
#if defined(__APPLE__)
    flags |= POSIX_SPAWN_CLOEXEC_DEFAULT;
#endif
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    if (code == 0) code = posix_spawnattr_setsigmask(&attributes_, &none);
    if (code == 0) code = posix_spawnattr_setsigdefault(&attributes_, &all);
    if (code == 0) code = posix_spawnattr_setpgroup(&attributes_, 0);
    if (code == 0) code = posix_spawnattr_setflags(&attributes_, flags);
    return code;
  }

  const posix_spawn_file_actions_t* actions() const { return &actions_; }
  const posix_spawnattr_t* attributes() const { return &attributes_; }

 private:
  posix_spawn_file_actions_t actions_;
  posix_spawnattr_t attributes_;
};

using Clock = std::chrono::steady_clock;

// Whether the child has exited, without reaping it: while it is a zombie its process ID, and
// so the ID of the process group it leads, cannot be reused, and the group can still be
// signalled without reaching a stranger.
bool hasExited(pid_t pid) {
  siginfo_t info{};
  while (::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) != 0) {
    if (errno != EINTR) return true;  // nothing left to wait for
  }
  return info.si_pid == pid;
}

// The child's exit status; for a child killed by a signal, the signal's number.
int reap(pid_t pid) {
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) return -1;
  }
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  if (WIFSIGNALED(status)) return WTERMSIG(status);
  return -1;
}

int millisecondsUntil(Clock::time_point moment) {
  auto left = std::chrono::duration_cast<std::chrono::milliseconds>(moment - Clock::now()).count();
  return static_cast<int>(std::clamp<int64_t>(left + 1, 0, 1000));
}

enum class Ending {
  finished,        // the child exited and its output reached its end
  leftoverWriter,  // the child exited, but something it started still holds the output open
  timedOut,        // the child was still running at the deadline
  tooMuchOutput,   // the child printed more than the limit
};

// How long after the child's exit its output may stay open: a tool that started something in
// the background and left it holding the pipe is done, and the leftover must not keep us.
constexpr auto kLeftoverGrace = std::chrono::seconds(1);
// How long an ended tool may take to exit after SIGTERM before its group gets SIGKILL.
constexpr auto kTerminationGrace = std::chrono::seconds(1);
// How often the child's exit is checked while its output stays open (reading never waits this
// long when there is output).
constexpr auto kExitPoll = std::chrono::milliseconds(50);

// Reads the child's output while it runs (a child that fills the pipe would otherwise never
// exit) until it has exited and its output has ended, or one of the limits above is reached.
Ending collect(pid_t pid, int outputFd, std::string& output, Clock::time_point deadline, uint64_t outputLimit) {
  bool outputOpen = true;
  std::optional<Clock::time_point> exitedAt;
  // The end of output usually comes a moment before the exit can be seen: look again soon,
  // then less and less often.
  int napMilliseconds = 1;
  char buffer[65536];
  for (;;) {
    const auto now = Clock::now();
    if (!exitedAt && hasExited(pid)) exitedAt = now;
    if (exitedAt) {
      if (!outputOpen) return Ending::finished;
      if (now - *exitedAt >= kLeftoverGrace) return Ending::leftoverWriter;
    } else if (now >= deadline) {
      return Ending::timedOut;
    }
    const auto wakeUp = exitedAt ? *exitedAt + kLeftoverGrace : std::min(deadline, now + kExitPoll);
    if (!outputOpen) {
      ::poll(nullptr, 0, std::min(napMilliseconds, millisecondsUntil(wakeUp)));
      napMilliseconds = std::min(napMilliseconds * 2, 50);
      continue;
    }
    pollfd ready{outputFd, POLLIN, 0};
    if (::poll(&ready, 1, millisecondsUntil(wakeUp)) <= 0) continue;  // time to look at the child, or EINTR
    ssize_t bytes = ::read(outputFd, buffer, sizeof buffer);
    if (bytes > 0) {
      if (output.size() + static_cast<uint64_t>(bytes) > outputLimit) return Ending::tooMuchOutput;
      output.append(buffer, static_cast<size_t>(bytes));
    } else if (bytes == 0 || (errno != EINTR && errno != EAGAIN)) {
      outputOpen = false;
    }
  }
}

// Ends the child's whole process group: politely first, then for certain. The group is
// signalled before the child is reaped, so its ID still belongs to it.
void endGroup(pid_t pid) {
  ::killpg(pid, SIGTERM);
  const auto giveUp = Clock::now() + kTerminationGrace;
  while (!hasExited(pid) && Clock::now() < giveUp) ::poll(nullptr, 0, 10);
  ::killpg(pid, SIGKILL);
}

std::string durationText(std::chrono::milliseconds limit) {
  auto count = limit.count();
  if (count % 1000 == 0) return std::to_string(count / 1000) + " s";
  return std::to_string(count) + " ms";
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
  return run(executablePath, arguments, Host::current().commandTimeLimit);
}

Result run(const std::string& executablePath, const std::vector<std::string>& arguments,
           std::chrono::milliseconds timeLimit) {
  const auto deadline = Clock::now() + timeLimit;
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

  std::string output;
  const uint64_t outputLimit = Host::current().commandOutputLimit;
  const Ending ending = collect(pid, readEnd.get(), output, deadline, outputLimit);
  readEnd.reset();
  if (ending == Ending::timedOut || ending == Ending::tooMuchOutput) {
    endGroup(pid);
    reap(pid);
    if (ending == Ending::timedOut) {
      log::error("Shell: " + executablePath + " did not finish within " + durationText(timeLimit) +
                 "; it was ended with every process it started");
      return {-1, isValidUTF8(output) ? std::move(output) : std::string()};
    }
    log::error("Shell: " + executablePath + " printed more than " + std::to_string(outputLimit) +
               " bytes; it was ended with every process it started");
    return {-1, ""};
  }
  if (ending == Ending::leftoverWriter) {
    ::killpg(pid, SIGKILL);
    log::warning("Shell: " + executablePath +
                 " exited but left a process holding its output open; that process was ended");
  }
  int status = reap(pid);

  if (!isValidUTF8(output)) output.clear();
  return {status, std::move(output)};
}

CommandError::CommandError(std::string command, std::string output)
    : Error("Command failed: " + command + "\n" + output), command_(std::move(command)), output_(std::move(output)) {}

namespace {

void runInvocation(AdministratorRunner runner, const AdministratorInvocation& invocation, const std::string& command) {
  Result result = run(invocation.executablePath, invocation.arguments, Host::current().administratorCommandTimeLimit);
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
