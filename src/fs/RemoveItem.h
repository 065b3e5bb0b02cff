// Permanent, race-safe removal of a file or a folder tree: works through directory
// descriptors, never follows a symbolic link (a link is removed, never its target) and never
// leaves the given path even when the tree changes underneath.
#pragma once

#include <filesystem>

namespace tw {

// Removes whatever is at `path`. Removes everything it can and then throws a
// tw::FileSystemError describing the first failure, if there was one.
void removeItem(const std::filesystem::path& path);

}  // namespace tw
