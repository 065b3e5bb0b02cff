// The real executable started as through its launcher, confined to one test's home, root and settings folders.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/Host.h"
#include "platform/UserDefaults.h"
#include "support/RunProcess.h"
#include "support/TempDir.h"

namespace tw::test {

using Environment = std::map<std::string, std::optional<std::string>>;

// Exit status and standard output in one string, so that one check compares both.
inline std::string outcome(const ProcessResult& r) { return std::to_string(r.exitStatus) + " " + r.standardOutput; }

struct Sandbox {
  Sandbox() {
    for (const auto& folder : {home, root, tmp, config, state}) std::filesystem::create_directories(folder);
  }
  // Without `fromCommandLine` the launcher's marker is removed, as for a start from the desktop.
  ProcessOptions options(bool fromCommandLine = true, const Environment& extra = {}) const {
    ProcessOptions result{.environment = {{"TIDEWELL_TEST_HOME", home.string()},
                                          {"TIDEWELL_TEST_ROOT", root.string()},
                                          {"TMPDIR", tmp.string()},
                                          {"XDG_CONFIG_HOME", config.string()},
                                          {"XDG_STATE_HOME", state.string()},
                                          {"TIDEWELL_FROM_COMMAND_LINE",
                                           fromCommandLine ? std::optional<std::string>("1") : std::nullopt}}};
    for (const auto& [name, value] : extra) result.environment[name] = value;
    return result;
  }
  ProcessOptions terminal() const { return {options(false).environment, /*terminalInput=*/true}; }
  ProcessResult run(const std::vector<std::string>& arguments, const Environment& extra = {}) const {
    return runProcess(TIDEWELL_EXECUTABLE, arguments, options(true, extra));
  }
  std::filesystem::path logFile() const { return tmp / "dev.tidewell.Tidewell-MainLog-LogFile-latest.log"; }
  std::string logLine() const { return "You can check full log here: " + logFile().string() + "\n\n"; }
  UserDefaults preferences() const {
    return UserDefaults(UserDefaults::standardStorePath(Host{.configDirectory = config}));
  }

  TempDir scratch;
  std::filesystem::path home = scratch / "home", root = scratch / "root", tmp = scratch / "tmp",
                        config = scratch / "config", state = scratch / "state";
};

}  // namespace tw::test
