// The process-wide diagnostic log. Every line carries a level mark ("❕", "⚠️", "❌") and goes
// to the console (standard error) and to a log file in the per-user temporary folder
// (Host::temporaryDirectory); the previous run's file is kept beside it. Lines from several
// threads never interleave.
#pragma once

#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Log.h"

namespace tw {

class Logger {
 public:
  using Level = LogLevel;
  enum class FileLogging { off, on };

  // Creates the logger; with file logging on, rotates "<prefix>-<name>-LogFile-latest.log" to
  // "...-previous.log" in `directory` (created for this user alone when missing) and starts an
  // empty latest file. `prefix` is the bundle identifier ("UnknownApp" when empty).
  Logger(std::string name, Level level, FileLogging fileLogging, const std::filesystem::path& directory = {},
         std::string prefix = {});
  ~Logger();
  Logger(const Logger&) = delete;
  Logger& operator=(const Logger&) = delete;

  void info(std::string_view message);
  void warning(std::string_view message);
  void error(std::string_view message);

  bool consoleLogging() const;
  void setConsoleLogging(bool enabled);
  bool isLoggingToFile() const;
  Level level() const { return level_; }
  const std::string& name() const { return name_; }
  const std::optional<std::filesystem::path>& logFilePath() const { return logFilePath_; }
  const std::optional<std::filesystem::path>& oldLogFilePath() const { return oldLogFilePath_; }

  // Receives every written line (mark included, no line feed); tests use it to see log lines.
  using LineObserver = std::function<void(Level, const std::string& line)>;
  void setLineObserver(LineObserver observer);

  // The main logger ("MainLog"). Until start-up installs one it is a console-only logger.
  static Logger& main();
  static void installMain(std::unique_ptr<Logger> logger);

  static std::string_view mark(Level level);

 private:
  void write(Level level, std::string_view message);

  std::string name_;
  Level level_;
  bool consoleLogging_ = true;
  int fd_ = -1;
  std::optional<std::filesystem::path> logFilePath_;
  std::optional<std::filesystem::path> oldLogFilePath_;
  LineObserver observer_;
  mutable std::mutex mutex_;
};

}  // namespace tw
