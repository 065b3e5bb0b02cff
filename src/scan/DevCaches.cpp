#include "scan/DevCaches.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <map>
#include <utility>

#include "fs/DirectoryListing.h"
#include "fs/DirectorySize.h"
#include "platform/Cancellation.h"
#include "model/SystemImages.h"
#include "platform/Host.h"
#include "platform/ThreadPool.h"

namespace tw::DevCaches {
namespace {

using std::filesystem::path;

std::vector<std::string> splitComponents(std::string_view text) {
  std::vector<std::string> components;
  size_t start = 0;
  while (start <= text.size()) {
    size_t slash = text.find('/', start);
    if (slash == std::string_view::npos) slash = text.size();
    if (slash > start) components.emplace_back(text.substr(start, slash - start));
    start = slash + 1;
  }
  return components;
}

// Follows symbolic links, so "/tmp" reaches "/private/tmp" and a dangling link matches nothing.
bool itemExists(const path& item) {
  struct stat info {};
  return ::stat(item.c_str(), &info) == 0;
}

// Names in `folder` (hidden ones included) that start with `prefix` and end with `suffix`,
// sorted so that a pattern always expands in the same order. A folder that cannot be listed
// simply has no matches.
std::vector<std::string> matchingNames(const path& folder, std::string_view prefix, std::string_view suffix) {
  auto listed = folderItemNames(folder, HiddenItems::included);
  if (!listed) return {};
  std::vector<std::string> names = std::move(*listed);
  std::erase_if(names, [&](const std::string& name) { return !name.starts_with(prefix) || !name.ends_with(suffix); });
  return names;
}

path rootFolder() {
  const path& root = Host::current().root;
  if (root.empty() || root == "/") return "/";
  return root;
}

struct MadeEntry {
  CleanupEntryPtr entry;
  std::string group;
};

CleanupEntryPtr folderEntry(const std::string& label, const std::string& tooltip, bool showsTooltip) {
  return std::make_shared<CleanupEntry>(label, "", tooltip, CleanupEntry::Icon::system(systemImage::folder),
                                        showsTooltip, false);
}

}  // namespace

path realHomeDirectory() { return Host::current().home; }

std::string abbreviatedPath(const path& item) {
  const std::string home = realHomeDirectory().string();
  const std::string text = item.string();
  if (home.empty() || home == "/") return text;
  std::string_view homeView(home);
  if (homeView.ends_with('/')) homeView.remove_suffix(1);
  if (text == homeView) return "~";
  if (text.size() > homeView.size() && text.starts_with(homeView) && text[homeView.size()] == '/') {
    return "~" + text.substr(homeView.size());
  }
  return text;
}

std::vector<path> expandPattern(std::string_view pattern) {
  std::string expanded;
  path start;
  if (pattern.starts_with('~')) {
    const path home = realHomeDirectory();
    if (home.empty()) return {};
    expanded = home.string() + std::string(pattern.substr(1));
    start = "/";
  } else if (pattern.starts_with('/')) {
    // System locations live below the host's root, which is "/" outside tests.
    expanded = std::string(pattern);
    start = rootFolder();
  } else {
    return {};
  }

  std::vector<path> candidates{start};
  for (const std::string& component : splitComponents(expanded)) {
    if (cancellationRequested()) return {};
    std::vector<path> next;
    const size_t star = component.find('*');
    if (star == std::string::npos) {
      for (const path& candidate : candidates) {
        path item = candidate / component;
        if (itemExists(item)) next.push_back(std::move(item));
      }
    } else {
      // Only the first star is a wildcard; the suffix after it is compared literally.
      const std::string_view prefix = std::string_view(component).substr(0, star);
      const std::string_view suffix = std::string_view(component).substr(star + 1);
      for (const path& candidate : candidates) {
        for (const std::string& name : matchingNames(candidate, prefix, suffix)) next.push_back(candidate / name);
      }
    }
    candidates = std::move(next);
    if (candidates.empty()) break;
  }
  // A pattern that names the root folder itself names nothing to clean.
  if (candidates.size() == 1 && candidates.front() == start) return {};
  return candidates;
}

void measureConcurrently(const std::vector<CleanupEntryPtr>& entries) {
  ThreadPool::shared().concurrentPerform(entries.size(), [&](size_t index) {
    HardLinkTracker tracker;
    entries[index]->calculateSize(tracker);
  });
}

bool isLargeEnough(const CleanupEntry& entry) {
  const CleanupEntry::Size size = entry.size();
  return !size.isUnknown() && size.bytesOrZero() >= kMinimumEntrySize;
}

void sortLargestFirst(std::vector<CleanupEntryPtr>& entries) {
  std::stable_sort(entries.begin(), entries.end(),
                   [](const CleanupEntryPtr& a, const CleanupEntryPtr& b) { return a->size() > b->size(); });
}

std::vector<CleanupEntryPtr> measuredLargeEnough(std::vector<CleanupEntryPtr> entries) {
  measureConcurrently(entries);
  std::erase_if(entries, [](const CleanupEntryPtr& entry) { return !isLargeEnough(*entry); });
  sortLargestFirst(entries);
  return entries;
}

std::vector<CleanupEntryPtr> makeEntries(const std::vector<CacheSpec>& specs) {
  std::vector<MadeEntry> made;
  for (const CacheSpec& spec : specs) {
    std::vector<path> matches;
    for (const std::string& pattern : spec.paths) {
      std::vector<path> expanded = expandPattern(pattern);
      matches.insert(matches.end(), expanded.begin(), expanded.end());
    }
    if (matches.empty()) continue;

    CleanupEntryPtr entry = folderEntry(spec.label, spec.tooltip, true);
    if (matches.size() == 1) {
      entry->addPath(matches.front());
    } else {
      for (const path& match : matches) {
        CleanupEntryPtr child = folderEntry(abbreviatedPath(match), spec.tooltip, true);
        child->addPath(match);
        entry->addItem(child);
      }
    }
    made.push_back({std::move(entry), spec.group});
  }

  std::vector<CleanupEntryPtr> rowEntries;
  for (const MadeEntry& item : made) rowEntries.push_back(item.entry);
  measureConcurrently(rowEntries);

  std::erase_if(made, [](const MadeEntry& item) { return !isLargeEnough(*item.entry); });
  std::stable_sort(made.begin(), made.end(),
                   [](const MadeEntry& a, const MadeEntry& b) { return a.entry->size() > b.entry->size(); });

  std::vector<std::string> groupNames;
  for (const MadeEntry& item : made) {
    if (!item.group.empty() && std::find(groupNames.begin(), groupNames.end(), item.group) == groupNames.end()) {
      groupNames.push_back(item.group);
    }
  }

  std::vector<CleanupEntryPtr> result;
  if (groupNames.size() < 2) {
    for (MadeEntry& item : made) result.push_back(std::move(item.entry));
    return result;
  }

  std::map<std::string, std::pair<CleanupEntryPtr, int64_t>> groups;
  for (MadeEntry& item : made) {
    if (item.group.empty()) {
      result.push_back(std::move(item.entry));
      continue;
    }
    auto found = groups.find(item.group);
    if (found == groups.end()) {
      CleanupEntryPtr group = folderEntry(item.group, item.group, false);
      result.push_back(group);
      found = groups.emplace(item.group, std::make_pair(group, int64_t{0})).first;
    }
    found->second.first->addItem(item.entry);
    found->second.second = addSizes(found->second.second, item.entry->size().bytesOrZero());
  }
  for (auto& [name, group] : groups) group.first->setSize(CleanupEntry::Size::value(group.second));

  // Groups now carry their members' total, so one comparison of sizes orders groups and
  // ungrouped entries alike.
  std::stable_sort(result.begin(), result.end(), [](const CleanupEntryPtr& a, const CleanupEntryPtr& b) {
    return a->size().bytesOrZero() > b->size().bytesOrZero();
  });
  return result;
}

}  // namespace tw::DevCaches

namespace tw {

std::vector<CleanupEntryPtr> scanCatalogue(CatalogueList list) {
  return DevCaches::makeEntries(DevCaches::specs(list));
}

}  // namespace tw
