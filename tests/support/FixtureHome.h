// Writes a realistic home folder of a developer's Mac (Xcode's developer folder, tool and browser
// caches, the Trash, projects with build folders) for tests, benches and the demo.
#pragma once

#include <plist/plist.h>

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

namespace tw::test {

enum class PlistFormat { xml, binary };

// Writes `plist` to `path` (parent folders created) and frees it.
void writePlist(const std::filesystem::path& path, plist_t plist, PlistFormat format);
// A plist date `secondsSince1970` after the Unix epoch (plist dates count from 2001).
plist_t plistDate(long long secondsSince1970);

struct FixtureHomeOptions {
  // Multiplies every file size; at 1 (about 50 MB) items meant to be listed still exceed 1 MiB.
  size_t sizeFactor = 1;
  // Tool, editor, browser and app caches outside the developer folder.
  bool caches = true;
  // Projects with build folders, the Trash, user logs.
  bool projects = true;
};

// What was written, for tests that check what a scan finds or a clean removes.
struct FixtureHome {
  std::filesystem::path root;
  std::filesystem::path developerFolder;  // root/Library/Developer
  std::vector<std::filesystem::path> derivedDataProjects;
  std::vector<std::filesystem::path> archives;  // the .xcarchive folders
  // An archive without Info.plist, which no scan can describe and so none lists.
  std::vector<std::filesystem::path> unreadableArchives;
  std::vector<std::filesystem::path> deviceSupport;
  std::vector<std::filesystem::path> documentationCaches;
  std::vector<std::filesystem::path> deviceLogs;
  std::vector<std::filesystem::path> simulatorDevices;
  std::vector<std::filesystem::path> xctestDevices;
  std::vector<std::filesystem::path> dyldCaches;
  std::vector<std::filesystem::path> cacheFolders;
  std::vector<std::filesystem::path> projectBuildFolders;
  // Things a cleaner must never remove: editor settings, project sources, link targets.
  std::vector<std::filesystem::path> keep;

  static FixtureHome write(const std::filesystem::path& root, const FixtureHomeOptions& options = {});
};

}  // namespace tw::test
