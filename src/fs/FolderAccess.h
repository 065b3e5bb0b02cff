// Obtaining access to a folder: the folder itself when it can be read and written, else the
// folder a stored bookmark leads to (a stale bookmark is refreshed first), else the folder the
// user picks in an open panel, which is then kept as a bookmark under the key of the folder
// that was asked for. Wrong picks are explained and asked again; a pick that still gives no
// access ends in advice and no grant.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "fs/Files.h"
#include "platform/Error.h"

namespace tw {

enum class CancelPolicy { allowed, notAllowed };

// What the grants keep between runs: the bookmark of each folder the user granted, and the
// custom folders the user chose. The application passes its preferences.
class GrantSettings {
 public:
  virtual ~GrantSettings() = default;
  virtual std::optional<std::vector<uint8_t>> folderBookmark(const std::filesystem::path& folder) const = 0;
  virtual void setFolderBookmark(const std::filesystem::path& folder, const std::vector<uint8_t>& bookmark) = 0;
  virtual void removeFolderBookmark(const std::filesystem::path& folder) = 0;
  virtual std::optional<std::filesystem::path> customDerivedDataFolder() const = 0;
  virtual std::optional<std::filesystem::path> customArchivesFolder() const = 0;
};

// Raised inside the grant when a bookmark resolves but its folder cannot be used.
class SandboxFolderAccessError : public Error {
 public:
  SandboxFolderAccessError();
};

// The folder can be read and written (inside a security scope where the platform has one).
bool isAccessibleFolder(const std::filesystem::path& folder);
// Both name the same folder once "." and ".." are worked out and symbolic links resolved.
bool isSameFolder(const std::filesystem::path& a, const std::filesystem::path& b);

// The identifier ("CFBundleIdentifier") in the Info.plist of the bundle the executable runs
// from; nothing outside a bundle, or when its Info.plist holds none.
std::optional<std::string> bundleIdentifier();
// The bundle's identifier, or the one built into the program when there is no bundle.
std::string applicationIdentifier();

// Access to `folder`, with the bookmark `settings` keep for it. `ui` is the window's panel and
// alerts; without one (the command line) nobody can be asked, so only the first two ways are
// tried. Never throws for a missing grant: the answer is then nothing, with the reason in the log.
std::optional<std::filesystem::path> acquireAccess(const std::filesystem::path& folder, GrantSettings& settings,
                                                   CancelPolicy cancel, const std::string& message, FolderAccessUI* ui);

}  // namespace tw
