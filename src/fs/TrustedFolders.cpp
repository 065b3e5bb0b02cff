#include "fs/TrustedFolders.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <mutex>
#include <optional>
#include <vector>

#include "platform/FolderResolution.h"
#include "platform/Host.h"

namespace tw {
namespace {

std::mutex& trustedMutex() {
  static std::mutex mutex;
  return mutex;
}

std::vector<std::filesystem::path>& addedFolders() {
  static std::vector<std::filesystem::path> folders;
  return folders;
}

std::filesystem::path normal(const std::filesystem::path& path) {
  auto result = path.lexically_normal();
  if (result.has_relative_path() && !result.has_filename()) result = result.parent_path();
  return result;
}

// How many components of `item` lie below `folder`; 0 when `folder` does not hold it.
size_t depthBelow(const std::filesystem::path& folder, const std::filesystem::path& item) {
  if (folder.empty() || !folder.is_absolute()) return 0;
  auto [folderEnd, itemEnd] = std::mismatch(folder.begin(), folder.end(), item.begin(), item.end());
  if (folderEnd != folder.end() || itemEnd == item.end()) return 0;
  return static_cast<size_t>(std::distance(itemEnd, item.end()));
}

}  // namespace

void trustFolder(const std::filesystem::path& folder) {
  if (folder.empty() || !folder.is_absolute()) return;
  std::lock_guard lock(trustedMutex());
  auto& folders = addedFolders();
  const auto added = normal(folder);
  if (std::find(folders.begin(), folders.end(), added) == folders.end()) folders.push_back(added);
}

std::filesystem::path trustedAnchorFor(const std::filesystem::path& item) {
  const auto target = normal(item);
  const Host& host = Host::current();
  std::vector<std::filesystem::path> candidates{host.home, host.developerFolder(), host.system("/opt"),
                                                host.system("/usr/local")};
  {
    std::lock_guard lock(trustedMutex());
    candidates.insert(candidates.end(), addedFolders().begin(), addedFolders().end());
  }
  // The deepest trusted folder leaves the fewest components to trust.
  std::optional<std::filesystem::path> best;
  size_t bestDepth = SIZE_MAX;
  for (const auto& candidate : candidates) {
    const auto folder = normal(candidate);
    const size_t depth = depthBelow(folder, target);
    if (depth > 0 && depth < bestDepth) {
      best = folder;
      bestDepth = depth;
    }
  }
  if (best) return *best;
  return target.has_parent_path() ? target.parent_path() : std::filesystem::path(".");
}

OpenedFolder openFolderFromAnchor(const std::filesystem::path& folder, const std::filesystem::path& forItem) {
  OpenedFolder result;
  const auto anchor = trustedAnchorFor(forItem);
  const auto target = normal(folder);
  const int anchorFd = ::open(anchor.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (anchorFd < 0) {
    result.error = errno;
    return result;
  }
  const auto relative = target.lexically_relative(anchor);
  const std::string rest = relative == "." ? std::string() : relative.string();
  const BeneathResult opened = openFolderBeneath(anchorFd, rest);
  ::close(anchorFd);
  result.fd = opened.fd;
  result.error = opened.error;
  result.component = opened.component;
  return result;
}

}  // namespace tw
