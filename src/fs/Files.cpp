#include "fs/Files.h"

#include <sys/stat.h>

#include <algorithm>
#include <string>
#include <system_error>

#include "platform/Log.h"
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

// A custom folder stands in for a whole location whose items are deleted wholesale: "." would
// make the current folder derived data, "/" or the home folder every folder of the machine or
// the user. Only an absolute path to an existing folder that does not hold the home folder
// qualifies; anything else is ignored with a line in the log, as a folder that vanished is.
std::optional<std::filesystem::path> usableCustomFolder(const std::optional<std::filesystem::path>& folder,
                                                        std::string_view description) {
  if (!folder) return std::nullopt;
  auto ignored = [&](const std::string& reason) {
    log::warning("Files: Ignoring the custom " + std::string(description) + " folder \u201C" + folder->string() +
                 "\u201D: " + reason + ".");
    return std::nullopt;
  };
  if (!folder->is_absolute()) return ignored("it is not an absolute path");
  struct stat status {};
  if (::stat(folder->c_str(), &status) != 0) return ignored("it no longer exists");
  if (!S_ISDIR(status.st_mode)) return ignored("it is not a folder");
  // Compared as the folders they really are, so "/Users/.." or a link to "/" count as "/".
  std::error_code error;
  const auto real = std::filesystem::canonical(*folder, error);
  if (error) return ignored("it cannot be resolved");
  if (real == real.root_path()) return ignored("it is the root folder");
  const auto home = std::filesystem::weakly_canonical(userHomeFolder(), error);
  if (!error && !home.empty()) {
    auto [realEnd, homeEnd] = std::mismatch(real.begin(), real.end(), home.begin(), home.end());
    if (realEnd == real.end())
      return ignored(homeEnd == home.end() ? "it is the home folder" : "it holds the home folder");
  }
  return folder;
}

}  // namespace

// The user database's record, never $HOME: a sandboxed or sudo-started process may see another.
std::filesystem::path userHomeFolder() { return Host::current().home; }

std::filesystem::path developerFolder() { return userHomeFolder() / "Library" / "Developer"; }

std::optional<std::filesystem::path> developerFolderGrant(GrantSettings& settings, FolderAccessUI* ui) {
  return grant(developerFolder(), kDeveloperFolderMessage, settings, ui);
}

std::optional<std::filesystem::path> customDerivedDataFolderGrant(GrantSettings& settings, FolderAccessUI* ui) {
  const auto folder = usableCustomFolder(settings.customDerivedDataFolder(), "derived data");
  if (!folder) return std::nullopt;
  return grant(*folder, kCustomFolderMessage, settings, ui);
}

std::optional<std::filesystem::path> customArchivesFolderGrant(GrantSettings& settings, FolderAccessUI* ui) {
  const auto folder = usableCustomFolder(settings.customArchivesFolder(), "archives");
  if (!folder) return std::nullopt;
  return grant(*folder, kCustomFolderMessage, settings, ui);
}

}  // namespace tw::Files
