#include "app/Startup.h"

#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/Logger.h"
#include "app/Preferences.h"
#include "cli/CmdLine.h"
#include "platform/Host.h"

namespace tw {
namespace {

// The launcher script in the bundle's resources sets this, so that a start without a terminal
// (SSH commands, CI jobs) is still a command-line start.
constexpr const char* kFromCommandLineVariable = "TIDEWELL_FROM_COMMAND_LINE";

bool isCommandLineStart() { return ::isatty(STDIN_FILENO) == 1 || std::getenv(kFromCommandLineVariable) != nullptr; }

}  // namespace

int runApplication(int argc, char** argv, WindowFrontEnd window) {
  Logger::installMain(std::make_unique<Logger>("MainLog", Logger::Level::info, Logger::FileLogging::on));

  const auto& bundle = Host::current().bundle;
  Preferences::shared().setAppFolder(bundle.empty() ? std::nullopt : std::optional<std::filesystem::path>(bundle));

  std::vector<std::string> arguments(argv, argv + argc);

  // A desktop start: only here is a display needed, so only here is the toolkit started.
  if (!isCommandLineStart()) return window(argc, argv);

  // Log lines would otherwise mix with the tool's own output.
  Logger::main().setConsoleLogging(false);
  CmdLine::shared()->start(arguments);
  return 0;
}

}  // namespace tw
