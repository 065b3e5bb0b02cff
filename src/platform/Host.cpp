#include "platform/Host.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <mutex>
#include <vector>

#if defined(__APPLE__)
#include <mach-o/dyld.h>
#endif

namespace tw {
namespace {

std::mutex& hostMutex() {
  static std::mutex mutex;
  return mutex;
}

// Hosts are never freed once installed: a reference from current() stays valid even when a
// test installs another one later.
std::vector<std::unique_ptr<Host>>& hostSlots() {
  static std::vector<std::unique_ptr<Host>> hosts;
  return hosts;
}

std::string environmentValue(const char* name) {
  const char* value = std::getenv(name);
  return value ? std::string(value) : std::string();
}

}  // namespace

std::filesystem::path Host::system(std::string_view absolutePath) const {
  std::filesystem::path path(absolutePath);
  if (root.empty() || root == "/") return path;
  return root / path.relative_path();
}

std::filesystem::path userDatabaseHome() {
  long bufferSize = sysconf(_SC_GETPW_R_SIZE_MAX);
  std::vector<char> buffer(bufferSize > 0 ? static_cast<size_t>(bufferSize) : 16384);
  passwd entry{};
  passwd* result = nullptr;
  while (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &result) == ERANGE) {
    buffer.resize(buffer.size() * 2);
  }
  if (!result || !result->pw_dir) return {};
  return std::filesystem::path(result->pw_dir);
}

std::filesystem::path executablePath() {
#if defined(__APPLE__)
  uint32_t size = 0;
  _NSGetExecutablePath(nullptr, &size);
  std::string buffer(size, '\0');
  if (_NSGetExecutablePath(buffer.data(), &size) != 0) return {};
  std::error_code error;
  auto resolved = std::filesystem::canonical(buffer.c_str(), error);
  return error ? std::filesystem::path(buffer.c_str()) : resolved;
#else
  std::error_code error;
  auto path = std::filesystem::read_symlink("/proc/self/exe", error);
  return error ? std::filesystem::path() : path;
#endif
}

std::filesystem::path bundleContaining(const std::filesystem::path& executable) {
  auto macos = executable.parent_path();
  auto contents = macos.parent_path();
  auto bundle = contents.parent_path();
  if (macos.filename() != "MacOS" || contents.filename() != "Contents" || bundle.extension() != ".app") return {};
  return bundle;
}

Host Host::fromProcess() {
  Host host;
  host.home = userDatabaseHome();
#if defined(TIDEWELL_TEST_HOOKS)
  // Test builds only: the end-to-end tests run the real executable against generated homes.
  if (auto testHome = environmentValue("TIDEWELL_TEST_HOME"); !testHome.empty()) host.home = testHome;
  if (auto testRoot = environmentValue("TIDEWELL_TEST_ROOT"); !testRoot.empty()) host.root = testRoot;
  if (auto limit = std::strtoll(environmentValue("TIDEWELL_TEST_COMMAND_TIME_LIMIT_MS").c_str(), nullptr, 10);
      limit > 0) {
    host.commandTimeLimit = std::chrono::milliseconds(limit);
  }
#endif
  if (auto state = environmentValue("XDG_STATE_HOME"); !state.empty() && state.front() == '/') {
    host.stateDirectory = state;
  } else {
    host.stateDirectory = host.home / ".local" / "state";
  }
  if (auto tmp = environmentValue("TMPDIR"); !tmp.empty()) {
    host.temporaryDirectory = tmp;
  } else {
    host.temporaryDirectory = host.stateDirectory / "tidewell";
  }
  if (auto config = environmentValue("XDG_CONFIG_HOME"); !config.empty() && config.front() == '/') {
    host.configDirectory = config;
  } else {
    host.configDirectory = host.home / ".config";
  }
  host.bundle = bundleContaining(executablePath());
  return host;
}

const Host& Host::current() {
  std::lock_guard lock(hostMutex());
  auto& slots = hostSlots();
  if (slots.empty()) slots.push_back(std::make_unique<Host>(fromProcess()));
  return *slots.back();
}

void Host::install(Host host) {
  std::lock_guard lock(hostMutex());
  hostSlots().push_back(std::make_unique<Host>(std::move(host)));
}

ScopedHost::ScopedHost(Host host) : previous_(Host::current()) { Host::install(std::move(host)); }

ScopedHost::~ScopedHost() { Host::install(std::move(previous_)); }

}  // namespace tw
