// A realistic home of a developer's Mac (developer folder, caches, Trash, projects) for tests and the demo.
#pragma once

#include <plist/plist.h>

#include <filesystem>
#include <vector>

namespace tw::test {

enum class PlistFormat { xml, binary };

// Writes `plist` to `path` (parent folders created) and frees it.
void writePlist(const std::filesystem::path& path, plist_t plist, PlistFormat format);
// A plist date `secondsSince1970` after the Unix epoch (plist dates count from 2001).
plist_t plistDate(long long secondsSince1970);

struct FixtureHomeOptions {
  bool caches = true;    // tool, editor, browser and app caches outside the developer folder
  bool projects = true;  // projects with build folders, the Trash, user logs
};

// What was written, for tests that check what a scan finds or a clean removes.
struct FixtureHome {
  std::filesystem::path root, developerFolder;  // developerFolder is root/Library/Developer
  std::vector<std::filesystem::path> derivedDataProjects, archives, deviceSupport, projectBuildFolders;
  std::vector<std::filesystem::path> keep;  // never to be removed: editor settings, project sources, link targets

  static FixtureHome write(const std::filesystem::path& root, const FixtureHomeOptions& options = {});
};

}  // namespace tw::test
