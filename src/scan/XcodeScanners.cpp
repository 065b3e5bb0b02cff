// The scanners of Xcode's version-named folders: device-support symbols, documentation caches,
// device logs, and the regenerable part of Xcode's user data.
#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <utility>

#include "platform/Log.h"
#include "model/SystemImages.h"
#include "model/XcodeEntries.h"
#include "platform/Text.h"
#include "scan/DevFiles.h"
#include "scan/Scanners.h"
#include "scan/XcodeScanSupport.h"

namespace tw {
namespace {

using xcode::listFolder;

// Splits at `separator` into at most `maximumWords` non-empty words; the last word keeps the
// rest of the text (separators included) the way a bounded split does.
std::vector<std::string> splitWords(std::string_view text, char separator, size_t maximumWords) {
  std::vector<std::string> words;
  size_t position = 0;
  while (position < text.size()) {
    while (position < text.size() && text[position] == separator) ++position;
    if (position >= text.size()) break;
    if (words.size() + 1 == maximumWords) {
      words.emplace_back(text.substr(position));
      break;
    }
    size_t end = text.find(separator, position);
    if (end == std::string_view::npos) end = text.size();
    words.emplace_back(text.substr(position, end - position));
    position = end;
  }
  return words;
}

// Two versions name the same release when major, minor and patch agree (no patch = .0).
bool sameRelease(const Version& a, const Version& b) {
  return a.major == b.major && a.minor == b.minor && a.patch.value_or(0) == b.patch.value_or(0);
}

bool sameBuild(const std::optional<AppleBuild>& a, const std::optional<AppleBuild>& b) {
  if (a.has_value() != b.has_value()) return false;
  return !a || *a == *b;
}

// --- Device support -------------------------------------------------------------------------

struct DeviceSupportGroup {
  std::string_view label;
  std::string_view icon;
  std::string_view folder;
};

constexpr std::array<DeviceSupportGroup, 5> kDeviceSupportGroups{{
    {"iOS", "Devices/iPadIcon", "iOS DeviceSupport"},
    {"watchOS", "Devices/WatchIcon", "watchOS DeviceSupport"},
    {"tvOS", "Devices/AppleTVIcon", "tvOS DeviceSupport"},
    {"visionOS", "Devices/VisionProIcon", "visionOS DeviceSupport"},
    {"macOS", "Devices/MacBookIcon", "macOS DeviceSupport"},
}};

using DeviceSupportPtr = std::shared_ptr<DeviceSupportFileEntry>;

// "17.4 (21E219) arm64e" or "iPhone15,2 17.4 (21E219) arm64e".
DeviceSupportPtr parseDeviceSupportFolder(const std::filesystem::path& folder, DeviceSupportFileEntry::OSType osType) {
  const std::string name = folder.filename().string();
  const std::vector<std::string> words = splitWords(name, ' ', 5);
  if (words.empty()) return nullptr;

  std::optional<std::string> device;
  std::optional<Version> version = Version::parse(words[0]);
  size_t next = 1;
  if (!version) {
    if (words.size() == 1 || !(version = Version::parse(words[1]))) {
      log::warning("DevFiles: No version for device support: " + name + ", skipping");
      return nullptr;
    }
    device = words[0];
    next = 2;
  }
  std::optional<AppleBuild> build;
  if (words.size() > next) build.emplace(words[next]);
  std::optional<std::string> architecture;
  if (words.size() > next + 1) architecture = words[next + 1];

  auto entry = std::make_shared<DeviceSupportFileEntry>(std::move(device), osType, *version, std::move(build),
                                                        xcode::creationDate(folder), std::move(architecture),
                                                        /*selected=*/false);
  entry->addPath(folder);
  return entry;
}

// Newest first: by version, then by build, an absent build counting as the empty one.
bool newerDeviceSupport(const DeviceSupportPtr& a, const DeviceSupportPtr& b) {
  const auto versionOrder = a->version() <=> b->version();
  if (versionOrder != 0) return versionOrder > 0;
  static const AppleBuild kEmptyBuild{std::string()};
  const AppleBuild& buildA = a->build() ? *a->build() : kEmptyBuild;
  const AppleBuild& buildB = b->build() ? *b->build() : kEmptyBuild;
  return buildB < buildA;
}

// Xcode keeps one folder per device architecture next to the plain one of the same OS build;
// the plain entry takes their paths so that the build shows (and deletes) as one row.
std::vector<DeviceSupportPtr> mergeArchitectureDuplicates(std::vector<DeviceSupportPtr> sorted) {
  std::vector<DeviceSupportPtr> withArchitecture;
  std::vector<DeviceSupportPtr> withoutArchitecture;
  for (const auto& entry : sorted) (entry->architecture() ? withArchitecture : withoutArchitecture).push_back(entry);

  std::vector<DeviceSupportPtr> merged;
  for (const auto& plain : withoutArchitecture) {
    for (const auto& specific : withArchitecture) {
      if (!sameRelease(plain->version(), specific->version()) || !sameBuild(plain->build(), specific->build()))
        continue;
      plain->addPaths(specific->paths());
      merged.push_back(specific);
    }
  }
  std::erase_if(sorted, [&](const DeviceSupportPtr& entry) {
    return std::any_of(merged.begin(), merged.end(), [&](const DeviceSupportPtr& gone) { return *entry == *gone; });
  });
  return sorted;
}

// --- Device logs ----------------------------------------------------------------------------

struct LogEntry {
  std::filesystem::path path;
  Version version;
};

}  // namespace

std::vector<CleanupEntryPtr> scanDeviceSupport(const DevFiles& devFiles) {
  const std::filesystem::path xcodeFolder = devFiles.userDeveloperFolderUrl() / "Xcode";
  std::vector<CleanupEntryPtr> groups;
  for (const DeviceSupportGroup& groupInfo : kDeviceSupportGroups) {
    const std::string label(groupInfo.label);
    auto group =
        std::make_shared<CleanupEntry>(label, "", label, CleanupEntry::Icon::image(std::string(groupInfo.icon)),
                                       /*tooltip=*/true, /*selected=*/true);
    groups.push_back(group);

    const std::filesystem::path folder = xcodeFolder / groupInfo.folder;
    const auto items = listFolder(folder);
    if (!items) {
      log::warning("DevFiles: Cannot check contents of '" + folder.string() + "', skipping");
      continue;
    }
    const auto osType = DeviceSupportFileEntry::osTypeFromName(groupInfo.label);
    std::vector<DeviceSupportPtr> entries;
    for (const auto& item : *items) {
      if (auto entry = parseDeviceSupportFolder(item, osType)) entries.push_back(std::move(entry));
    }
    std::stable_sort(entries.begin(), entries.end(), newerDeviceSupport);
    for (const auto& entry : mergeArchitectureDuplicates(std::move(entries))) group->addItem(entry);
  }
  return groups;
}

std::vector<CleanupEntryPtr> scanDocumentationCache(const DevFiles& devFiles) {
  std::vector<std::shared_ptr<DocumentationCacheFileEntry>> entries;
  const auto containers = listFolder(devFiles.userDeveloperFolderUrl() / "Xcode" / "DocumentationCache");
  for (const auto& container : containers.value_or(std::vector<std::filesystem::path>{})) {
    for (const auto& cacheFolder : listFolder(container).value_or(std::vector<std::filesystem::path>{})) {
      const std::string name = cacheFolder.filename().string();
      const std::optional<Version> version = Version::parse(name);
      if (!version) {
        log::warning("DevFiles: Invalid Xcode version while searching for documentation caches: " + name);
        continue;
      }
      auto existing = std::find_if(entries.begin(), entries.end(),
                                   [&](const auto& entry) { return sameRelease(entry->version(), *version); });
      if (existing != entries.end()) {
        (*existing)->addPath(cacheFolder);
      } else {
        auto entry = std::make_shared<DocumentationCacheFileEntry>(*version, /*selected=*/false);
        entry->addPath(cacheFolder);
        entries.push_back(std::move(entry));
      }
    }
  }
  std::stable_sort(entries.begin(), entries.end(),
                   [](const auto& a, const auto& b) { return (a->version() <=> b->version()) > 0; });
  return {entries.begin(), entries.end()};
}

std::vector<CleanupEntryPtr> scanUserDataCache(const DevFiles& devFiles) {
  struct Row {
    std::string_view label;
    std::string_view folder;
    std::string_view tooltipText;
  };
  static constexpr std::array<Row, 3> kRows{{
      {"SwiftUI Previews", "Xcode/UserData/Previews",
       "Preview simulator data recreated by Xcode when previews run again."},
      {"IB Support Simulator Devices", "Xcode/UserData/IB Support/Simulator Devices",
       "Interface Builder preview simulator data recreated by Xcode when needed."},
      {"Capabilities Cache", "Xcode/UserData/Capabilities",
       "Downloaded capabilities metadata cache recreated by Xcode when needed."},
  }};

  std::vector<CleanupEntryPtr> entries;
  for (const Row& row : kRows) {
    const std::filesystem::path folder = devFiles.userDeveloperFolderUrl() / row.folder;
    if (!xcode::itemExists(folder)) continue;
    auto entry = std::make_shared<CleanupEntry>(std::string(row.label), "", std::string(row.tooltipText),
                                                CleanupEntry::Icon::system(systemImage::folder), /*tooltip=*/true,
                                                /*selected=*/false);
    entry->addPath(folder);
    entry->calculateSize();
    entries.push_back(std::move(entry));
  }
  std::stable_sort(entries.begin(), entries.end(), [](const CleanupEntryPtr& a, const CleanupEntryPtr& b) {
    if (a->size() != b->size()) return a->size() > b->size();
    return localizedStandardCompare(a->label(), b->label()) < 0;
  });
  return entries;
}

std::vector<CleanupEntryPtr> scanDeviceLogs(const DevFiles& devFiles) {
  const auto items = listFolder(devFiles.userDeveloperFolderUrl() / "Xcode" / "iOS Device Logs");
  if (!items) return {};

  std::vector<LogEntry> logs;
  for (const auto& item : *items) {
    const std::string name = item.stem().string();
    std::optional<Version> version;
    for (const auto& word : splitWords(name, ' ', std::string::npos)) {
      if ((version = Version::parse(word))) break;
    }
    if (!version) {
      log::warning("DevFiles: Wrong log entry? Version not found (path: " + name);
      continue;
    }
    logs.push_back({item, *version});
  }
  std::stable_sort(logs.begin(), logs.end(),
                   [](const LogEntry& a, const LogEntry& b) { return (a.version <=> b.version) > 0; });

  // Older logs are duplicated in newer ones, so all but the newest version start ticked.
  std::vector<CleanupEntryPtr> entries;
  std::shared_ptr<DeviceLogsFileEntry> current;
  for (const LogEntry& log : logs) {
    if (!current || !sameRelease(current->version(), log.version)) {
      current = std::make_shared<DeviceLogsFileEntry>(log.version, /*selected=*/true);
      entries.push_back(current);
    }
    current->addPath(log.path);
  }
  if (!entries.empty()) entries.front()->deselect();
  return entries;
}

}  // namespace tw
