#include "app/Startup.h"

#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <optional>

#include "app/Logger.h"
#include "app/Preferences.h"
#include "fs/FolderAccess.h"
#include "platform/Host.h"

namespace tw {
namespace {

// The launcher script in the bundle's resources sets this, so that a start without a terminal
// (SSH commands, CI jobs) is still a command-line start.
constexpr const char* kFromCommandLineVariable = "TIDEWELL_FROM_COMMAND_LINE";

}  // namespace

void startApplication() {
  const Host& host = Host::current();
  // The log files are named after the bundle the executable runs from ("UnknownApp" outside
  // one), so that copies of the application with identifiers of their own keep separate logs.
  Logger::installMain(std::make_unique<Logger>("MainLog", Logger::Level::info, Logger::FileLogging::on,
                                               host.temporaryDirectory, bundleIdentifier().value_or("")));
  const auto& bundle = host.bundle;
  Preferences::shared().setAppFolder(bundle.empty() ? std::nullopt : std::optional<std::filesystem::path>(bundle));
}

bool isCommandLineStart() { return ::isatty(STDIN_FILENO) == 1 || std::getenv(kFromCommandLineVariable) != nullptr; }

}  // namespace tw
