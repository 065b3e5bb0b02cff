// Folder bookmarks: a byte blob that remembers a folder the user granted, so that the grant can
// be found again at a later launch. On macOS the blob is a security-scoped bookmark of the
// platform (its resolution also re-opens the sandbox's door to the folder). Here, where no
// sandbox guards folders, the blob records the folder's absolute path and the identity of the
// object that path named (device, inode and, where the file system keeps it, creation time),
// which is what tells a bookmark that still names its folder from a stale one.
#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

namespace tw::Bookmark {

struct Resolved {
  std::filesystem::path path;
  // The path now names another object than the one bookmarked (the folder was removed and
  // made again, or another one was moved into its place): make a fresh bookmark.
  bool isStale = false;
};

// A bookmark of `folder` (made absolute). Throws tw::FileSystemError when it cannot be looked at.
std::vector<uint8_t> create(const std::filesystem::path& folder);

// Throws tw::Error when the blob is not a bookmark (damaged, truncated, of another format) and
// tw::FileSystemError when the bookmarked path no longer names anything.
Resolved resolve(const std::vector<uint8_t>& blob);

}  // namespace tw::Bookmark
