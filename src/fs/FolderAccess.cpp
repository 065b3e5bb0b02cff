#include "fs/FolderAccess.h"

#include <unistd.h>

#include <cstdlib>
#include <memory>

#include "platform/Log.h"
#include "platform/Bookmark.h"
#include "platform/Host.h"
#include "platform/PropertyList.h"
#include "platform/SecurityScope.h"

namespace tw {
namespace {

// Bounds the refreshing of a bookmark that keeps turning stale (its folder being replaced
// again and again while it is resolved); a well-behaved folder needs one refresh.
constexpr int kMaxStaleRefreshes = 3;

std::string containerAdvice() {
  return "Access was denied even after selecting the folder. Make sure the folder exists (launching Xcode once creates "
         "it) and that you have read & write permissions to it. Resetting the app container may also help: delete "
         "~/Library/Containers/" +
         applicationIdentifier() + " and restart the app.";
}

std::string cannotAccessMessage(const std::filesystem::path& folder) {
  return "Can't get access to " + folder.string() + " folder";
}

std::filesystem::path standardized(const std::filesystem::path& path) {
  std::error_code error;
  std::filesystem::path result = std::filesystem::weakly_canonical(path, error);
  if (error) result = std::filesystem::absolute(path, error).lexically_normal();
  if (result.has_relative_path() && result.filename().empty()) result = result.parent_path();
  return result;
}

// The folder the stored bookmark leads to, refreshing a stale bookmark on the way; nothing when
// it gives no access (and then the reason is in the log).
std::optional<std::filesystem::path> folderFromBookmark(const std::filesystem::path& folder,
                                                        std::vector<uint8_t> bookmark, GrantSettings& settings) {
  try {
    for (int refreshes = 0;; ++refreshes) {
      const Bookmark::Resolved resolved = Bookmark::resolve(bookmark);
      if (!resolved.isStale) {
        if (isAccessibleFolder(resolved.path)) return resolved.path;
        log::warning("URL+AcquireAccessFromSandbox: Access denied after using bookmark but bookmark is not stale!");
        throw SandboxFolderAccessError();
      }
      if (refreshes == kMaxStaleRefreshes) throw SandboxFolderAccessError();
      bookmark = Bookmark::create(resolved.path);
      settings.setFolderBookmark(folder, bookmark);
      // Starting again: the folder may have become accessible by itself meanwhile.
      if (isAccessibleFolder(folder)) return folder;
    }
  } catch (const std::exception& error) {
    log::warning(std::string("URL+AcquireAccessFromSandbox: Failed to resolve bookmark: ") + error.what());
    return std::nullopt;
  }
}

std::optional<std::filesystem::path> folderFromPanel(const std::filesystem::path& folder, CancelPolicy cancel,
                                                     const std::string& message, FolderAccessUI& ui,
                                                     GrantSettings& settings) {
  for (;;) {
    long response = 0;
    const std::optional<std::filesystem::path> picked = ui.runOpenPanel(folder, message, response);
    if (!picked) {
      log::warning("URL+AcquireAccessFromSandbox: Didn't get folder from Open panel! Modal response: " +
                   std::to_string(response));
      if (cancel == CancelPolicy::allowed) return std::nullopt;
      continue;
    }
    if (!isSameFolder(*picked, folder)) {
      ui.showInformationalAlert(cannotAccessMessage(folder), "Did you choose the right folder?", "Repeat");
      continue;
    }
    if (!isAccessibleFolder(*picked)) {
      log::error("URL+AcquireAccessFromSandbox: Can't access folder after selecting it from Open panel, no access: " +
                 picked->string());
      settings.removeFolderBookmark(folder);
      ui.showInformationalAlert(cannotAccessMessage(folder), containerAdvice(), "OK");
      return std::nullopt;
    }
    try {
      settings.setFolderBookmark(folder, Bookmark::create(*picked));
      return picked;
    } catch (const std::exception&) {
      // The folder vanished between the pick and the bookmark: ask again.
    }
  }
}

}  // namespace

SandboxFolderAccessError::SandboxFolderAccessError()
    : Error("The operation couldn\u2019t be completed. (Tidewell.SandboxFolderAccessError error 1.)") {}

bool isAccessibleFolder(const std::filesystem::path& folder) {
  const bool scoped = startAccessingSecurityScope(folder);
  const bool accessible = ::access(folder.c_str(), R_OK | W_OK) == 0;
  if (scoped) stopAccessingSecurityScope(folder);
  return accessible;
}

bool isSameFolder(const std::filesystem::path& a, const std::filesystem::path& b) {
  return standardized(a) == standardized(b);
}

std::optional<std::string> bundleIdentifier() {
  const std::filesystem::path bundle = Host::current().bundle;
  if (!bundle.empty()) {
    try {
      const auto info = PropertyList::readDictionary(bundle / "Contents" / "Info.plist", PropertyList::Kind::metadata);
      auto identifier = PropertyList::string(PropertyList::item(info.root(), "CFBundleIdentifier"));
      if (identifier && !identifier->empty()) return *identifier;
    } catch (const PropertyListError& error) {
      if (error.reason() != PropertyListError::Reason::missing)
        log::warning(std::string("FolderAccess: ") + error.what());
    }
  }
  return std::nullopt;
}

std::string applicationIdentifier() { return bundleIdentifier().value_or(TIDEWELL_BUNDLE_IDENTIFIER); }

std::optional<std::filesystem::path> acquireAccess(const std::filesystem::path& folder, GrantSettings& settings,
                                                   CancelPolicy cancel, const std::string& message,
                                                   FolderAccessUI* ui) {
  if (isAccessibleFolder(folder)) return folder;
  if (auto bookmark = settings.folderBookmark(folder)) {
    if (auto granted = folderFromBookmark(folder, std::move(*bookmark), settings)) return granted;
  }
  if (!ui) return std::nullopt;
  return folderFromPanel(folder, cancel, message, *ui, settings);
}

}  // namespace tw
