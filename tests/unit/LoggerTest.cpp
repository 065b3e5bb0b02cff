#include <gtest/gtest.h>

#include <sstream>
#include <thread>

#include "app/Logger.h"
#include "support/TempDir.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using test::readFile;
using Level = Logger::Level;

// A logger writing to a file in `folder` and not to the console.
std::unique_ptr<Logger> fileLogger(const fs::path& folder, Level level = Level::info) {
  auto logger = std::make_unique<Logger>("MainLog", level, Logger::FileLogging::on, folder, "dev.tidewell.Tidewell");
  logger->setConsoleLogging(false);
  return logger;
}

TEST(Logger, KeepsLatestAndPreviousLogInAPrivateFolderAndWritesWhatItsLevelPassesAsGiven) {
  test::TempDir dir;
  const auto latest = dir / "state/tidewell/dev.tidewell.Tidewell-MainLog-LogFile-latest.log";
  const auto previous = dir / "state/tidewell/dev.tidewell.Tidewell-MainLog-LogFile-previous.log";
  std::optional<std::string> before;  // what the run before wrote
  for (const std::string run : {"first 100%", "second %s %n", "third {}"}) {
    std::string seen;  // the lines the observer saw
    auto logger = fileLogger(dir / "state/tidewell", Level::warning);
    logger->setLineObserver([&](Level, const std::string& line) { seen += line + "\n"; });
    EXPECT_EQ(before ? readFile(previous) : "", before.value_or(""));
    logger->info("dropped");
    logger->warning(run);
    logger->error("kept");
    EXPECT_EQ(seen, "\u26A0\uFE0F " + run + "\n\u274C kept\n");
    before = seen;
  }
  EXPECT_EQ(readFile(latest), before);
  // Without a folder, no file.
  test::writeFile(dir / "file", "not a folder");
  EXPECT_FALSE(fileLogger(dir / "file/tidewell")->isLoggingToFile());
}

TEST(Logger, ConcurrentLinesStayWhole) {
  test::TempDir dir;
  auto logger = fileLogger(dir.path());
  const std::string payload(300, 'p');
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t)
    threads.emplace_back([&, t] {
      for (int i = 0; i < 200; ++i) logger->info("thread " + std::to_string(t) + " " + payload);
    });
  for (auto& thread : threads) thread.join();
  std::istringstream contents(readFile(*logger->logFilePath()));
  size_t lines = 0;
  for (std::string line; std::getline(contents, line); ++lines)
    EXPECT_TRUE(line.rfind("\u2755 thread ", 0) == 0 && line.ends_with(" " + payload)) << line;
  EXPECT_EQ(lines, 8u * 200u);
}

}  // namespace
}  // namespace tw
