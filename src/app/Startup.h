// Process start shared by both front ends: the main logger with its log file and the recorded
// application folder, and the test that tells a command-line start from a desktop start.
#pragma once

namespace tw {

void startApplication();

// Standard input is a terminal, or the launcher script marked the start.
bool isCommandLineStart();

}  // namespace tw
