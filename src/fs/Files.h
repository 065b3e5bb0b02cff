// The folders that need access grants (the user's home and developer folder, the custom
// DerivedData and Archives folders) and the grant operation itself: use the folder when it
// is accessible, else a stored bookmark, else ask the user (in the window) to pick it.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace tw {

// What only a window can do for a grant: the open panel and the informational alert.
class FolderAccessUI {
 public:
  virtual ~FolderAccessUI() = default;
  // Shows the open panel starting in `folder`; the picked folder, or nothing when cancelled
  // (`response` then holds the panel's response number).
  virtual std::optional<std::filesystem::path> runOpenPanel(const std::filesystem::path& folder,
                                                            const std::string& message, long& response) = 0;
  virtual void showInformationalAlert(const std::string& message, const std::string& informativeText,
                                      const std::string& button) = 0;
};

class GrantSettings;

namespace Files {

std::filesystem::path userHomeFolder();
std::filesystem::path developerFolder();

// Grants; `ui` is null on the command line (no panel: the folder itself, else its bookmark).
std::optional<std::filesystem::path> developerFolderGrant(GrantSettings& settings, FolderAccessUI* ui);
std::optional<std::filesystem::path> customDerivedDataFolderGrant(GrantSettings& settings, FolderAccessUI* ui);
std::optional<std::filesystem::path> customArchivesFolderGrant(GrantSettings& settings, FolderAccessUI* ui);

}  // namespace Files

}  // namespace tw
