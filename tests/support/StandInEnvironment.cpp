#include "support/StandInEnvironment.h"

#include "app/Logger.h"

namespace tw::test {

Host hostWithRoot(const std::filesystem::path& root) {
  Host host;
  host.root = root;
  host.home = root / "home";
  host.temporaryDirectory = root / "tmp";
  host.configDirectory = root / "home" / ".config";
  return host;
}

LogCapture::LogCapture() {
  Logger::main().setLineObserver([this](Logger::Level, const std::string& line) {
    std::lock_guard lock(mutex_);
    lines_.push_back(line);
  });
}

LogCapture::~LogCapture() { Logger::main().setLineObserver(nullptr); }

std::vector<std::string> LogCapture::lines() const {
  std::lock_guard lock(mutex_);
  return lines_;
}

}  // namespace tw::test
