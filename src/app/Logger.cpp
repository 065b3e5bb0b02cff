#include "app/Logger.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <vector>

namespace tw {
namespace {

// write(2) until everything is out; gives up on the first real error (log writes are not reported).
void writeAll(int fd, const char* data, size_t length) {
  while (length > 0) {
    ssize_t written = ::write(fd, data, length);
    if (written < 0) {
      if (errno == EINTR) continue;
      return;
    }
    data += written;
    length -= static_cast<size_t>(written);
  }
}

std::mutex& mainMutex() {
  static std::mutex mutex;
  return mutex;
}

// Creates the missing folders of `directory`, each readable by this user alone: log lines name
// the user's folders and projects.
void createPrivateFolders(const std::filesystem::path& directory) {
  std::error_code error;
  if (directory.empty() || std::filesystem::is_directory(directory, error)) return;
  createPrivateFolders(directory.parent_path() == directory ? std::filesystem::path() : directory.parent_path());
  ::mkdir(directory.c_str(), 0700);
}

// Replaced loggers stay alive: a reference from main() must never dangle.
std::vector<std::unique_ptr<Logger>>& mainLoggers() {
  static std::vector<std::unique_ptr<Logger>> loggers;
  return loggers;
}

}  // namespace

std::string_view Logger::mark(Level level) { return log::mark(level); }

Logger::Logger(std::string name, Level level, FileLogging fileLogging, const std::filesystem::path& directory,
               std::string prefix)
    : name_(std::move(name)), level_(level) {
  if (fileLogging == FileLogging::off) return;
  if (prefix.empty()) prefix = "UnknownApp";
  createPrivateFolders(directory);
  auto latest = directory / (prefix + "-" + name_ + "-LogFile-latest.log");
  auto previous = directory / (prefix + "-" + name_ + "-LogFile-previous.log");

  std::error_code error;
  if (std::filesystem::exists(std::filesystem::symlink_status(latest, error))) {
    std::filesystem::remove(previous, error);
    std::filesystem::rename(latest, previous, error);
    if (!error) oldLogFilePath_ = previous;
  }
  // O_NOFOLLOW: $TMPDIR may be a shared folder, a planted link must not redirect our log.
  fd_ = ::open(latest.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (fd_ < 0) {
    std::string line = std::string(mark(Level::error)) + " Can't create log file: " + latest.string() +
                       ". Error: " + std::strerror(errno) + "\n";
    writeAll(STDERR_FILENO, line.data(), line.size());
    return;
  }
  logFilePath_ = latest;
}

Logger::~Logger() {
  if (fd_ >= 0) ::close(fd_);
}

void Logger::info(std::string_view message) {
  if (level_ == Level::info) write(Level::info, message);
}

void Logger::warning(std::string_view message) {
  if (level_ != Level::error) write(Level::warning, message);
}

void Logger::error(std::string_view message) { write(Level::error, message); }

bool Logger::consoleLogging() const {
  std::lock_guard lock(mutex_);
  return consoleLogging_;
}

void Logger::setConsoleLogging(bool enabled) {
  std::lock_guard lock(mutex_);
  consoleLogging_ = enabled;
}

bool Logger::isLoggingToFile() const { return fd_ >= 0; }

void Logger::setLineObserver(LineObserver observer) {
  std::lock_guard lock(mutex_);
  observer_ = std::move(observer);
}

void Logger::write(Level level, std::string_view message) {
  std::string line;
  line.reserve(message.size() + 8);
  line.append(mark(level)).append(" ").append(message);

  // One lock per line: a line is handed to the console and to the file in one write each,
  // so lines written from several threads never interleave.
  std::lock_guard lock(mutex_);
  line.push_back('\n');
  if (consoleLogging_) writeAll(STDERR_FILENO, line.data(), line.size());
  if (fd_ >= 0) {
    writeAll(fd_, line.data(), line.size());
    // Synced after every line so the log is complete even when the process is killed.
    ::fsync(fd_);
  }
  line.pop_back();
  if (observer_) observer_(level, line);
}

Logger& Logger::main() {
  std::lock_guard lock(mainMutex());
  auto& loggers = mainLoggers();
  if (loggers.empty()) loggers.push_back(std::make_unique<Logger>("MainLog", Level::info, FileLogging::off));
  return *loggers.back();
}

void Logger::installMain(std::unique_ptr<Logger> logger) {
  std::lock_guard lock(mainMutex());
  mainLoggers().push_back(std::move(logger));
}

namespace {

// Every layer's log lines go to the main logger once this program has one.
void toMainLogger(LogLevel level, std::string_view message) {
  Logger& logger = Logger::main();
  switch (level) {
    case LogLevel::info: logger.info(message); break;
    case LogLevel::warning: logger.warning(message); break;
    case LogLevel::error: logger.error(message); break;
  }
}

[[maybe_unused]] const bool sinkInstalled = [] {
  log::setSink(&toMainLogger);
  return true;
}();

}  // namespace

}  // namespace tw
