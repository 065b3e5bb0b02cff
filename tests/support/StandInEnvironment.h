// A host whose system paths and home live below a test folder (and the main logger's lines).
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "platform/Host.h"
#include "support/LogCapture.h"

namespace tw::test {

// A host with "/" at `root`, the home at root/home and the temporary folder at root/tmp.
Host hostWithRoot(const std::filesystem::path& root);

}  // namespace tw::test
