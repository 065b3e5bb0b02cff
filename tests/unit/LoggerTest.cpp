#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "app/Logger.h"
#include "support/TempDir.h"

namespace tw {
namespace {

using test::readFile;
using test::TempDir;

constexpr const char* kPrefix = "dev.tidewell.Tidewell";

std::filesystem::path latest(const TempDir& dir) { return dir / "dev.tidewell.Tidewell-MainLog-LogFile-latest.log"; }
std::filesystem::path previous(const TempDir& dir) {
  return dir / "dev.tidewell.Tidewell-MainLog-LogFile-previous.log";
}

TEST(Logger, RotatesLatestToPreviousOverThreeStarts) {
  TempDir dir;
  {
    Logger first("MainLog", Logger::Level::info, Logger::FileLogging::on, dir.path(), kPrefix);
    first.setConsoleLogging(false);
    first.info("first run");
    EXPECT_FALSE(first.oldLogFilePath().has_value());
    EXPECT_EQ(first.logFilePath(), latest(dir));
  }
  {
    Logger second("MainLog", Logger::Level::info, Logger::FileLogging::on, dir.path(), kPrefix);
    second.setConsoleLogging(false);
    second.warning("second run");
    EXPECT_EQ(second.oldLogFilePath(), previous(dir));
    EXPECT_EQ(readFile(previous(dir)), "\u2755 first run\n");
    EXPECT_EQ(readFile(latest(dir)), "\u26A0\uFE0F second run\n");
  }
  Logger third("MainLog", Logger::Level::info, Logger::FileLogging::on, dir.path(), kPrefix);
  third.setConsoleLogging(false);
  third.error("third run");
  EXPECT_EQ(readFile(previous(dir)), "\u26A0\uFE0F second run\n");
  EXPECT_EQ(readFile(latest(dir)), "\u274C third run\n");
}

TEST(Logger, LevelFiltersAndFormatCharactersPassUnchanged) {
  TempDir dir;
  Logger logger("MainLog", Logger::Level::warning, Logger::FileLogging::on, dir.path(), "");
  logger.setConsoleLogging(false);
  logger.info("dropped");
  logger.warning("100% %s %n {}");
  logger.error("kept");
  EXPECT_EQ(readFile(dir / "UnknownApp-MainLog-LogFile-latest.log"), "\u26A0\uFE0F 100% %s %n {}\n\u274C kept\n");
}

TEST(Logger, WithoutFileLoggingCreatesNothing) {
  TempDir dir;
  Logger logger("MainLog", Logger::Level::info, Logger::FileLogging::off, dir.path(), kPrefix);
  logger.setConsoleLogging(false);
  logger.info("nowhere");
  EXPECT_FALSE(logger.isLoggingToFile());
  EXPECT_FALSE(logger.logFilePath().has_value());
  EXPECT_FALSE(logger.oldLogFilePath().has_value());
  EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
}

TEST(Logger, UnwritableFolderLeavesConsoleOnly) {
  TempDir dir;
  Logger logger("MainLog", Logger::Level::info, Logger::FileLogging::on, dir / "missing", kPrefix);
  EXPECT_FALSE(logger.isLoggingToFile());
  EXPECT_FALSE(logger.logFilePath().has_value());
}

TEST(Logger, ConcurrentLinesStayWhole) {
  TempDir dir;
  Logger logger("MainLog", Logger::Level::info, Logger::FileLogging::on, dir.path(), kPrefix);
  logger.setConsoleLogging(false);
  constexpr int kThreads = 8;
  constexpr int kLines = 200;
  const std::string payload(300, 'p');
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kLines; ++i) logger.info("thread " + std::to_string(t) + " " + payload);
    });
  }
  for (auto& thread : threads) thread.join();

  std::string contents = readFile(latest(dir));
  size_t lines = 0;
  size_t start = 0;
  while (start < contents.size()) {
    size_t end = contents.find('\n', start);
    ASSERT_NE(end, std::string::npos);
    std::string line = contents.substr(start, end - start);
    EXPECT_EQ(line.rfind("\u2755 thread ", 0), 0u) << line;
    EXPECT_EQ(line.substr(line.size() - payload.size()), payload);
    ++lines;
    start = end + 1;
  }
  EXPECT_EQ(lines, size_t(kThreads * kLines));
}

TEST(Logger, ObserverSeesEveryWrittenLine) {
  Logger logger("Test", Logger::Level::info, Logger::FileLogging::off, {}, kPrefix);
  logger.setConsoleLogging(false);
  std::vector<std::string> seen;
  logger.setLineObserver([&](Logger::Level, const std::string& line) { seen.push_back(line); });
  logger.info("DevFiles: one");
  logger.error("DevFiles: two");
  EXPECT_EQ(seen, (std::vector<std::string>{"\u2755 DevFiles: one", "\u274C DevFiles: two"}));
}

}  // namespace
}  // namespace tw
