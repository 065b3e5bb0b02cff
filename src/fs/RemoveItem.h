// Permanent, race-safe removal of a file or a folder tree: works through directory
// descriptors, never follows a symbolic link (a link is removed, never its target) and never
// leaves the given path even when the tree changes underneath.
#pragma once

#include <filesystem>

namespace tw {

// Removes whatever is at `path`. Removes everything it can and then throws a
// tw::FileSystemError describing the first failure, if there was one.
void removeItem(const std::filesystem::path& path);

#if defined(TIDEWELL_TEST_HOOKS)
// Test builds only: called with a folder's name after it was looked at and before it is
// opened, so that tests can change the tree in exactly that window.
extern void (*removeItemBeforeOpeningFolderHook)(const char* name);
#endif

}  // namespace tw
