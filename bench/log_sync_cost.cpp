// What syncing the log file after every line costs: writes the same lines through the logger
// (one write and one fsync per line) and through plain writes without the sync, in one run,
// and prints the time per line of each and their ratio.
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "app/Logger.h"

namespace {

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

int main(int argc, char** argv) {
  const int lines = argc > 1 ? std::atoi(argv[1]) : 2000;
  auto folder = std::filesystem::path(argc > 2 ? argv[2] : std::filesystem::temp_directory_path().string()) /
                "tidewell-log-bench";
  std::filesystem::create_directories(folder);
  const std::string message = "DevCaches: Found 12 entries for Dev Caches in /Users/someone/Library/Caches (1.2 GB)";

  auto start = std::chrono::steady_clock::now();
  {
    tw::Logger logger("Bench", tw::Logger::Level::info, tw::Logger::FileLogging::on, folder, "bench");
    logger.setConsoleLogging(false);
    for (int i = 0; i < lines; ++i) logger.info(message);
  }
  double synced = secondsSince(start);

  auto plainPath = folder / "plain.log";
  int fd = ::open(plainPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  std::string line = "\u2755 " + message + "\n";
  start = std::chrono::steady_clock::now();
  for (int i = 0; i < lines; ++i) {
    if (::write(fd, line.data(), line.size()) < 0) return 1;
  }
  double plain = secondsSince(start);
  ::close(fd);
  std::filesystem::remove_all(folder);

  std::printf("lines: %d\n", lines);
  std::printf("synced per line: %8.1f us\n", synced / lines * 1e6);
  std::printf("plain per line:  %8.2f us\n", plain / lines * 1e6);
  std::printf("sync costs %.0fx a plain write\n", synced / plain);
  return 0;
}
