// Built from the same host source as the application but, like a release build, without
// TIDEWELL_TEST_HOOKS: prints the home, root and command time limit it sees, so a test can show that the
// test-only variables have no effect outside test builds.
#if defined(TIDEWELL_TEST_HOOKS)
#error "the release host probe must be compiled without test hooks"
#endif

#include <iostream>

#include "platform/Host.h"

int main() {
  auto host = tw::Host::fromProcess();
  std::cout << "home=" << host.home.string() << "\n";
  std::cout << "root=" << host.root.string() << "\n";
  std::cout << "commandTimeLimitMs=" << host.commandTimeLimit.count() << "\n";
  return 0;
}
