// Process start: the main logger, the recorded application folder, and the choice between
// the command-line tool and the window.
#pragma once

namespace tw {

int runApplication(int argc, char** argv);

}  // namespace tw
