#include "fs/Files.h"

#include "app/Preferences.h"
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
                                           FolderAccessUI* ui) {
  const auto bookmark = Preferences::shared().data(Preferences::bookmarkKey(folder));
  return acquireAccess(folder, bookmark, CancelPolicy::allowed, message, ui);
}

}  // namespace

// The user database's record, never $HOME: a sandboxed or sudo-started process may see another.
std::filesystem::path userHomeFolder() { return Host::current().home; }

std::filesystem::path developerFolder() { return userHomeFolder() / "Library" / "Developer"; }

std::optional<std::filesystem::path> developerFolderGrant(FolderAccessUI* ui) {
  return grant(developerFolder(), kDeveloperFolderMessage, ui);
}

std::optional<std::filesystem::path> customDerivedDataFolderGrant(FolderAccessUI* ui) {
  const auto folder = Preferences::shared().customDerivedDataFolder();
  if (!folder) return std::nullopt;
  return grant(*folder, kCustomFolderMessage, ui);
}

std::optional<std::filesystem::path> customArchivesFolderGrant(FolderAccessUI* ui) {
  const auto folder = Preferences::shared().customArchivesFolder();
  if (!folder) return std::nullopt;
  return grant(*folder, kCustomFolderMessage, ui);
}

}  // namespace tw::Files
