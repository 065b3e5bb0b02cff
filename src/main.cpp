// The one executable of both front ends: the command-line tool when started from a terminal
// or through the launcher script, the window otherwise.
#include <cstdio>
#include <string>
#include <vector>

#include "app/Logger.h"
#include "app/Startup.h"
#include "cli/CmdLine.h"

int main(int argc, char** argv) {
  tw::startApplication();
  if (!tw::isCommandLineStart()) {
    std::fputs(
        "Tidewell: the window is not part of this build; run `tidewell --help` from a terminal, or start "
        "Contents/Resources/tidewell.sh inside the bundle.\n",
        stderr);
    return 1;
  }
  // Log lines would otherwise mix with the tool's own output.
  tw::Logger::main().setConsoleLogging(false);
  return tw::CmdLine::shared()->start(std::vector<std::string>(argv, argv + argc));
}
