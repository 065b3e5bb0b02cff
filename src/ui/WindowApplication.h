// The windowed front end's entry: the Qt application, the main window and its menus. Called
// by start-up only for a desktop start; a command-line start never constructs a QApplication.
#pragma once

namespace tw {

int runWindowApplication(int argc, char** argv);

}  // namespace tw
