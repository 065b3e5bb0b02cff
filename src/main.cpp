// The one executable of both front ends: the command-line tool when started from a terminal
// or through the launcher script, the window otherwise. Only a desktop start constructs the
// toolkit, so the command line needs no display.
#include <string>
#include <vector>

#include "app/Logger.h"
#include "app/Startup.h"
#include "cli/CmdLine.h"
#include "ui/WindowApplication.h"

int main(int argc, char** argv) {
  tw::startApplication();
  if (!tw::isCommandLineStart()) return tw::runWindowApplication(argc, argv);
  // Log lines would otherwise mix with the tool's own output.
  tw::Logger::main().setConsoleLogging(false);
  return tw::CmdLine::shared()->start(std::vector<std::string>(argv, argv + argc));
}
