#include "fs/Files.h"

#include "fs/FolderAccess.h"
#include "platform/Host.h"

namespace tw::Files {
namespace {

constexpr const char* kDeveloperFolderMessage =
    "Tidewell needs permission to your Developer folder to scan Xcode cache files. Folder should be already "
    "selected and all you need to do is to click \"Open\".";
constexpr const char* kCustomFolderMessage =
    "Tidewell needs permission to this folder to scan its contents. Folder should be already selected and all you "
    "need to do is to click \"Open\".";

std::optional<std::filesystem::path> grant(const std::filesystem::path& folder, const char* message,
                                           GrantSettings& settings, FolderAccessUI* ui) {
  return acquireAccess(folder, settings, CancelPolicy::allowed, message, ui);
}

}  // namespace

// The user database's record, never $HOME: a sandboxed or sudo-started process may see another.
std::filesystem::path userHomeFolder() { return Host::current().home; }

std::filesystem::path developerFolder() { return userHomeFolder() / "Library" / "Developer"; }

std::optional<std::filesystem::path> developerFolderGrant(GrantSettings& settings, FolderAccessUI* ui) {
  return grant(developerFolder(), kDeveloperFolderMessage, settings, ui);
}

std::optional<std::filesystem::path> customDerivedDataFolderGrant(GrantSettings& settings, FolderAccessUI* ui) {
  const auto folder = settings.customDerivedDataFolder();
  if (!folder) return std::nullopt;
  return grant(*folder, kCustomFolderMessage, settings, ui);
}

std::optional<std::filesystem::path> customArchivesFolderGrant(GrantSettings& settings, FolderAccessUI* ui) {
  const auto folder = settings.customArchivesFolder();
  if (!folder) return std::nullopt;
  return grant(*folder, kCustomFolderMessage, settings, ui);
}

}  // namespace tw::Files
