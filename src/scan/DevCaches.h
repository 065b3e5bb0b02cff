// The built-in catalogue of places where tools and applications outside Xcode keep
// regenerable data (package managers, toolchains, editors, AI models, browsers, messengers,
// cloud clients), the expansion of its "~" and "*" path patterns against the disk, and the
// turning of one list into measured, filtered, grouped cleanup entries.
//
// The measuring helpers at the end are shared with the system-item and cloud-folder scanners,
// which follow the same rules: one fresh hard-link tracker per entry, nothing below 1 MiB.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "model/CleanupEntry.h"
#include "scan/Scanners.h"

namespace tw::DevCaches {

// One catalogue row.
struct CacheSpec {
  std::string group;  // empty for rows that are never grouped
  std::string label;
  std::string tooltip;
  std::vector<std::string> paths;  // patterns: "~/..." or absolute, "*" inside one component
};

// The seven lists, built once on first use.
const std::vector<CacheSpec>& packageManagers();
const std::vector<CacheSpec>& devTools();
const std::vector<CacheSpec>& ides();
const std::vector<CacheSpec>& aiTools();
const std::vector<CacheSpec>& browsers();
const std::vector<CacheSpec>& apps();
const std::vector<CacheSpec>& cloudClients();
const std::vector<CacheSpec>& specs(CatalogueList list);

// Entries are dropped below this many bytes (and when their size is unknown).
inline constexpr int64_t kMinimumEntrySize = 1'048'576;

// The existing items one pattern names, in pattern order and, per wildcard, in name order.
// "~" is the home folder from the user database; other absolute paths are system paths of
// the host. Wildcards list one folder level each; literal components follow symbolic links.
std::vector<std::filesystem::path> expandPattern(std::string_view pattern);

// The current user's home folder as the user database records it (never $HOME); empty when
// the user has none, in which case "~" patterns match nothing.
std::filesystem::path realHomeDirectory();

// `path` with a leading home folder replaced by "~" ("~/.cargo/git"); other paths unchanged.
std::string abbreviatedPath(const std::filesystem::path& path);

// The top-level entries of one list's location: matching rows, measured, at least 1 MiB,
// largest first, and grouped by their group names when more than one group is left.
std::vector<CleanupEntryPtr> makeEntries(const std::vector<CacheSpec>& specs);

// Measures every entry in parallel, each with a fresh hard-link tracker, so that a file is
// counted once inside one entry but may count again in another.
void measureConcurrently(const std::vector<CleanupEntryPtr>& entries);

// True when the entry's size is known and at least kMinimumEntrySize.
bool isLargeEnough(const CleanupEntry& entry);

// Stable sort by size, largest first; unknown sizes go last.
void sortLargestFirst(std::vector<CleanupEntryPtr>& entries);

// measureConcurrently, drop what is not large enough, sortLargestFirst.
std::vector<CleanupEntryPtr> measuredLargeEnough(std::vector<CleanupEntryPtr> entries);

}  // namespace tw::DevCaches
