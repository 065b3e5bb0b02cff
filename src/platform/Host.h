// The one object through which the program reaches the machine it runs on: the user's
// home folder, the folders and tools that live at absolute system paths, the temporary
// and configuration folders and the application bundle. Production code builds it once
// from the process (fromProcess); tests build their own and install it, so no test
// needs environment variables.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

namespace tw {

struct Host {
  // Home folder recorded for the current user in the user database (never $HOME).
  std::filesystem::path home;
  // Folder that stands for "/" for every absolute system path read or run.
  std::filesystem::path root = "/";
  // Per-user temporary folder, where the log files live: $TMPDIR when it is set. Linux has no
  // temporary folder of each user's own (/tmp is shared: a log left there by one user blocks
  // the same name for the next), so otherwise it is the user's state folder for the program,
  // $XDG_STATE_HOME/tidewell, else home/.local/state/tidewell, which also outlives a restart.
  std::filesystem::path temporaryDirectory;
  // Per-user configuration folder ($XDG_CONFIG_HOME, else home/.config).
  std::filesystem::path configDirectory;
  // Per-user state folder ($XDG_STATE_HOME, else home/.local/state): data that outlives a run
  // but is neither a setting nor a cache, such as the pending scan reminders.
  std::filesystem::path stateDirectory;
  // The application bundle (".../Tidewell.app"); empty when the executable is not inside one.
  std::filesystem::path bundle;
  // How long an external tool may run before it is ended (a stuck tool must not hang a scan),
  // and the longer time a command with administrator rights gets: someone types a password.
  std::chrono::milliseconds commandTimeLimit = std::chrono::minutes(1);
  std::chrono::milliseconds administratorCommandTimeLimit = std::chrono::minutes(30);
  // The most output a tool's run may print: one that floods it is ended like a stuck one
  // rather than filling memory until its time is up.
  uint64_t commandOutputLimit = uint64_t{1} << 30;

  // An absolute system path ("/usr/bin/xcrun", "/Library/Updates") as it is found on this host.
  std::filesystem::path system(std::string_view absolutePath) const;
  // The user's developer folder: home + "Library/Developer".
  std::filesystem::path developerFolder() const { return home / "Library" / "Developer"; }
  // Contents/Resources of the bundle.
  std::filesystem::path resourcesDirectory() const { return bundle / "Contents" / "Resources"; }

  // Reads the process: user database, executable location, TMPDIR, XDG_STATE_HOME,
  // XDG_CONFIG_HOME and, in test builds only, TIDEWELL_TEST_HOME, TIDEWELL_TEST_ROOT and
  // TIDEWELL_TEST_COMMAND_TIME_LIMIT_MS.
  static Host fromProcess();

  // The process-wide host. Before install() is called it is fromProcess().
  static const Host& current();
  static void install(Host host);
};

// Home folder of the current user from the user database (getpwuid_r); empty when unknown.
std::filesystem::path userDatabaseHome();
// Absolute path of the running executable; empty when it cannot be found.
std::filesystem::path executablePath();
// The bundle that holds an executable at Bundle.app/Contents/MacOS/<exe>; empty when it is not in one.
std::filesystem::path bundleContaining(const std::filesystem::path& executable);

// Installs a host for the lifetime of the object and restores the previous one afterwards.
class ScopedHost {
 public:
  explicit ScopedHost(Host host);
  ~ScopedHost();
  ScopedHost(const ScopedHost&) = delete;
  ScopedHost& operator=(const ScopedHost&) = delete;

 private:
  Host previous_;
};

}  // namespace tw
