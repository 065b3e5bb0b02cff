#include "app/Startup.h"

#include <unistd.h>

#include <cstdio>

namespace tw {

int runApplication(int, char**) {
  std::puts("The window is not in this build yet.");
  return isatty(STDIN_FILENO) ? 0 : 1;
}

}  // namespace tw
