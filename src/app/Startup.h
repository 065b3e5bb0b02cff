// Process start: the main logger, the recorded application folder, and the choice between
// the command-line tool and the window.
#pragma once

namespace tw {

// The window's entry, handed in by main() so that this layer never depends on the interface.
using WindowFrontEnd = int (*)(int argc, char** argv);

int runApplication(int argc, char** argv, WindowFrontEnd window);

}  // namespace tw
