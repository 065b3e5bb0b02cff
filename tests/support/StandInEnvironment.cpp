#include "support/StandInEnvironment.h"

namespace tw::test {

Host hostWithRoot(const std::filesystem::path& root) {
  Host host;
  host.root = root;
  host.home = root / "home";
  host.temporaryDirectory = root / "tmp";
  host.configDirectory = root / "home" / ".config";
  host.stateDirectory = root / "home" / ".local" / "state";
  return host;
}

}  // namespace tw::test
