// A host whose system paths and home live below a test folder (and the main logger's lines).
#pragma once

#include <filesystem>

#include "platform/Host.h"
#include "support/LogCapture.h"

namespace tw::test {

// A host with "/" at `root`, the home at root/home and the temporary folder at root/tmp.
inline Host hostWithRoot(const std::filesystem::path& root) {
  return Host{.home = root / "home",
              .root = root,
              .temporaryDirectory = root / "tmp",
              .configDirectory = root / "home" / ".config",
              .stateDirectory = root / "home" / ".local" / "state"};
}

}  // namespace tw::test
