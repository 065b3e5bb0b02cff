// The folders that cloud clients keep in sync. They are listed for reference, with their
// size, so that users see where their space goes; deleting them would delete the user's
// files in the cloud as well, so they are never cleanable.
#include <sys/stat.h>

#include <set>

#include "fs/DirectorySize.h"
#include "model/SystemEntries.h"
#include "platform/ThreadPool.h"
#include "scan/DevCaches.h"
#include "scan/Scanners.h"
#include "scan/SystemItems.h"

namespace tw::SystemItems {
namespace {

using std::filesystem::path;

struct CloudProvider {
  std::string_view prefix;
  std::string_view displayName;
};

// Tried in order: the first prefix that matches wins ("Box-Box" before "Box").
constexpr CloudProvider kProviders[] = {
    {"GoogleDrive", "Google Drive"},
    {"Google Drive", "Google Drive"},
    {"Dropbox", "Dropbox"},
    {"OneDrive", "OneDrive"},
    {"Box-Box", "Box"},
    {"Box", "Box"},
    {"ProtonDrive", "Proton Drive"},
    {"pCloud", "pCloud"},
    {"MEGA", "MEGA"},
    {"Nextcloud", "Nextcloud"},
    {"ownCloud", "ownCloud"},
    {"Yandex.Disk", "Yandex.Disk"},
    {"Tresorit", "Tresorit"},
    {"Egnyte", "Egnyte"},
    {"Sync", "Sync.com"},
    {"iCloudDrive", "iCloud Drive"},
    {"Creative Cloud Files", "Creative Cloud"},
};

constexpr std::string_view kSyncedFolderPatterns[] = {
    "~/Library/CloudStorage/*",
    "~/Dropbox",
    "~/Dropbox *",
    "~/Google Drive*",
    "~/OneDrive*",
    "~/Yandex.Disk*",
    "~/pCloud Drive",
    "~/MEGA",
    "~/Nextcloud",
    "~/ownCloud",
    "~/Library/Mobile Documents/com~apple~CloudDocs",
};

constexpr std::string_view kReferenceNote =
    "Synced cloud folder – shown for reference only, Tidewell never deletes anything here. Files kept online-only "
    "take no space on this Mac; to free space, make folders online-only in the cloud client itself.";

bool isFolderFollowingLinks(const path& item) {
  struct stat info {};
  return ::stat(item.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

// The home folder prefix is replaced by "~" also when the home folder is reached through a
// symbolic link and the synced folder's path was resolved.
std::string abbreviatedResolvedPath(const path& folder) {
  std::string text = DevCaches::abbreviatedPath(folder);
  if (text.starts_with('~')) return text;
  std::error_code error;
  const path home = DevCaches::realHomeDirectory();
  if (home.empty()) return text;
  const path resolvedHome = std::filesystem::canonical(home, error);
  if (error) return text;
  const path relative = folder.lexically_relative(resolvedHome);
  if (relative.empty() || *relative.begin() == "..") return text;
  return relative == "." ? "~" : "~/" + relative.string();
}

}  // namespace

std::string cloudDisplayName(std::string_view folderName) {
  if (folderName == "com~apple~CloudDocs") return "iCloud Drive";
  for (const CloudProvider& provider : kProviders) {
    if (!folderName.starts_with(provider.prefix)) continue;
    std::string_view rest = folderName.substr(provider.prefix.size());
    while (!rest.empty() && (rest.front() == '-' || rest.front() == ' ')) rest.remove_prefix(1);
    while (!rest.empty() && (rest.front() == '(' || rest.front() == ')')) rest.remove_prefix(1);
    while (!rest.empty() && (rest.back() == '(' || rest.back() == ')')) rest.remove_suffix(1);
    if (rest.empty()) return std::string(provider.displayName);
    return std::string(provider.displayName) + " – " + std::string(rest);
  }
  return std::string(folderName);
}

}  // namespace tw::SystemItems

namespace tw {

std::vector<CleanupEntryPtr> scanCloudFolders() {
  std::vector<std::filesystem::path> folders;
  std::set<std::filesystem::path> seen;
  for (std::string_view pattern : SystemItems::kSyncedFolderPatterns) {
    for (const std::filesystem::path& match : DevCaches::expandPattern(pattern)) {
      if (!SystemItems::isFolderFollowingLinks(match)) continue;
      // "~/Dropbox" is often a link to the folder in ~/Library/CloudStorage: show it once.
      std::error_code error;
      std::filesystem::path resolved = std::filesystem::canonical(match, error);
      if (error) continue;
      if (seen.insert(resolved).second) folders.push_back(std::move(resolved));
    }
  }

  std::vector<CleanupEntryPtr> entries;
  for (const std::filesystem::path& folder : folders) {
    std::string tooltip =
        SystemItems::abbreviatedResolvedPath(folder) + "\n\n" + std::string(SystemItems::kReferenceNote);
    entries.push_back(std::make_shared<CloudSyncFolderEntry>(SystemItems::cloudDisplayName(folder.filename().string()),
                                                             folder, std::move(tooltip)));
  }

  ThreadPool::shared().concurrentPerform(entries.size(), [&](size_t index) {
    auto& entry = static_cast<CloudSyncFolderEntry&>(*entries[index]);
    HardLinkTracker tracker;
    try {
      entry.setSize(CleanupEntry::Size::value(allocatedSizeOfDirectory(entry.folderUrl(), &tracker)));
    } catch (const std::exception&) {
      // Left unknown: a synced folder that cannot be read is still listed.
    }
  });
  DevCaches::sortLargestFirst(entries);
  return entries;
}

}  // namespace tw
