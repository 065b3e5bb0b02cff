#include "scan/SystemItems.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <optional>

#include "platform/Log.h"
#include "fs/DirectoryListing.h"
#include "fs/DirectorySize.h"
#include "fs/Shell.h"
#include "model/SystemEntries.h"
#include "model/SystemImages.h"
#include "platform/Host.h"
#include "platform/PropertyList.h"
#include "platform/Text.h"
#include "scan/DevCaches.h"
#include "scan/Scanners.h"

namespace tw::SystemItems {
namespace {

using std::filesystem::path;

constexpr std::string_view kSnapshotPrefix = "com.apple.TimeMachine.";
constexpr std::string_view kSnapshotSuffix = ".local";

// Names in `folder` that do not start with a dot, sorted; nothing when it cannot be listed.
std::vector<std::string> visibleNames(const path& folder) {
  return folderItemNames(folder, HiddenItems::skipped).value_or({});
}

// The date stamp of a snapshot name, "YYYY-MM-DD-HHMMSS". The stamp is handed back to tmutil
// as an argument, so anything else ("/", "--help", an empty stamp) would ask it to delete
// something other than one snapshot.
bool isSnapshotDateStamp(std::string_view stamp) {
  constexpr std::string_view kShape = "dddd-dd-dd-dddddd";
  if (stamp.size() != kShape.size()) return false;
  for (size_t i = 0; i < kShape.size(); ++i) {
    const bool digit = stamp[i] >= '0' && stamp[i] <= '9';
    if (kShape[i] == 'd' ? !digit : stamp[i] != kShape[i]) return false;
  }
  return true;
}

CleanupEntryPtr groupEntry(const std::string& label, const char* icon, const std::string& tooltip,
                           const std::vector<CleanupEntryPtr>& items) {
  auto group = std::make_shared<CleanupEntry>(label, "", tooltip, CleanupEntry::Icon::system(icon), true, false);
  group->addItems(items);
  return group;
}

// "Display Name", else "Device Name" of a backup's Info.plist (XML or binary); an empty
// "Display Name" is a name all the same.
std::optional<std::string> backupDeviceName(const path& infoPlist) {
  try {
    const auto info = PropertyList::readDictionary(infoPlist, PropertyList::Kind::deviceBackup);
    for (const char* key : {"Display Name", "Device Name"}) {
      auto name = PropertyList::string(PropertyList::item(info.root(), key));
      if (name) return name;
    }
  } catch (const PropertyListError& error) {
    if (error.reason() != PropertyListError::Reason::missing) log::warning(std::string("DevFiles: ") + error.what());
  }
  return std::nullopt;
}

std::string modificationDateText(const path& item) {
  struct stat info {};
  // The earliest time point is the "distant past", which date texts show as 1 January of year 1.
  if (::lstat(item.c_str(), &info) != 0) return formatMediumDate(TimePoint::min());
  auto since = std::chrono::seconds(info.st_mtim.tv_sec) + std::chrono::nanoseconds(info.st_mtim.tv_nsec);
  return formatMediumDate(TimePoint(std::chrono::duration_cast<TimePoint::duration>(since)));
}

// Follows a symbolic link: a backup moved elsewhere and linked back is still a backup. Its
// measurement never follows the link, so it is shown only once it holds data of its own.
bool isFolder(const path& item) {
  struct stat info {};
  return ::stat(item.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

bool isUpdatePackage(std::string_view name) { return !name.starts_with('.') && name != "index.plist"; }

bool isOSInstaller(std::string_view name) {
  return name.starts_with("Install macOS") && path(name).extension() == ".app";
}

constexpr PrivilegedLocation kPrivilegedLocations[] = {
    {"/Library/Updates", isUpdatePackage,
     "Downloaded macOS update package. Deleting requires admin rights; macOS will re-download the update if still "
     "needed.",
     true},
    {"/Applications", isOSInstaller,
     "Full macOS installer application. Can be re-downloaded from the App Store or with \"softwareupdate\".", false},
};

}  // namespace

std::span<const PrivilegedLocation> privilegedLocations() { return kPrivilegedLocations; }

std::vector<std::string> parseLocalSnapshots(std::string_view listing) {
  std::vector<std::string> dates;
  size_t start = 0;
  while (start < listing.size()) {
    size_t end = listing.find('\n', start);
    if (end == std::string_view::npos) end = listing.size();
    std::string_view line = listing.substr(start, end - start);
    start = end + 1;
    const size_t first = line.find_first_not_of(" \t");
    if (first == std::string_view::npos) continue;
    line = line.substr(first, line.find_last_not_of(" \t") - first + 1);
    if (!line.starts_with(kSnapshotPrefix)) continue;
    std::string_view stamp = line.substr(kSnapshotPrefix.size());
    if (!stamp.ends_with(kSnapshotSuffix) ||
        !isSnapshotDateStamp(stamp.substr(0, stamp.size() - kSnapshotSuffix.size()))) {
      log::warning("SystemItems: Ignoring a snapshot name of unknown form: " + std::string(line));
      continue;
    }
    std::string date(stamp.substr(0, stamp.size() - kSnapshotSuffix.size()));
    dates.push_back(std::move(date));
  }
  return dates;
}

CleanupEntryPtr timeMachineSnapshots() {
  // Where there is no tmutil (any system but macOS) the shell logs that it cannot run it.
  const Shell::Result result = Shell::run("/usr/bin/tmutil", {"listlocalsnapshots", "/"});
  if (result.status != 0) return nullptr;
  std::vector<CleanupEntryPtr> snapshots;
  for (std::string& date : parseLocalSnapshots(result.output)) {
    snapshots.push_back(std::make_shared<TimeMachineSnapshotFileEntry>(std::move(date), false));
  }
  if (snapshots.empty()) return nullptr;
  return groupEntry("Time Machine Local Snapshots", systemImage::computer,
                    "Local APFS snapshots created by Time Machine. Deleted via \"tmutil deletelocalsnapshots\". macOS "
                    "also purges them automatically when space is needed.",
                    snapshots);
}

CleanupEntryPtr trash() {
  const path home = DevCaches::realHomeDirectory();
  if (home.empty()) return nullptr;
  const path trashFolder = home / ".Trash";
  const std::vector<std::string> names = visibleNames(trashFolder);
  if (names.empty()) return nullptr;
  auto entry = std::make_shared<CleanupEntry>(
      "Trash", "", "⚠️ Contents of your Trash. Same as \"Empty Trash\" in Finder – files are gone for good.",
      CleanupEntry::Icon::system(systemImage::trashFull), true, false);
  // The items, not the folder: emptying the Trash keeps the Trash itself.
  for (const std::string& name : names) entry->addPath(trashFolder / name);
  HardLinkTracker tracker;
  const std::optional<CleanupEntry::Size> size = entry->calculateSize(tracker);
  if (!size || size->isUnknown() || size->bytesOrZero() < DevCaches::kMinimumEntrySize) return nullptr;
  return entry;
}

CleanupEntryPtr updatesAndInstallers() {
  const Host& host = Host::current();
  std::vector<CleanupEntryPtr> items;
  for (const PrivilegedLocation& location : privilegedLocations()) {
    const path folder = host.system(location.folder);
    for (const std::string& name : visibleNames(folder)) {
      if (!location.listsItem(name)) continue;
      const path item = folder / name;
      auto entry = std::make_shared<PrivilegedFileEntry>(
          name, location.showsPath ? DevCaches::abbreviatedPath(item) : std::string(), location.tooltip,
          CleanupEntry::Icon::system(systemImage::computer), true, false);
      entry->addPath(item);
      items.push_back(entry);
    }
  }

  items = DevCaches::measuredLargeEnough(std::move(items));
  if (items.empty()) return nullptr;
  return groupEntry("macOS Updates & Installers", systemImage::computer,
                    "Downloaded but not yet installed macOS updates (/Library/Updates) and full installers in "
                    "/Applications. Deleting may require admin rights.",
                    items);
}

std::vector<CleanupEntryPtr> deviceBackupEntries() {
  const path home = DevCaches::realHomeDirectory();
  if (home.empty()) return {};
  const path backups = home / "Library" / "Application Support" / "MobileSync" / "Backup";
  std::vector<CleanupEntryPtr> items;
  for (const std::string& name : visibleNames(backups)) {
    const path folder = backups / name;
    if (!isFolder(folder)) continue;
    const std::string label = backupDeviceName(folder / "Info.plist").value_or(name);
    auto entry =
        std::make_shared<CleanupEntry>(label, modificationDateText(folder),
                                       "⚠️ Backup at " + folder.string() + ". Deleting removes it permanently.",
                                       CleanupEntry::Icon::system(systemImage::computer), true, false);
    entry->addPath(folder);
    items.push_back(entry);
  }
  return items;
}

CleanupEntryPtr deviceBackups() {
  const std::vector<CleanupEntryPtr> items = DevCaches::measuredLargeEnough(deviceBackupEntries());
  if (items.empty()) return nullptr;
  return groupEntry("iOS Device Backups", systemImage::computer,
                    "⚠️ Local backups of iPhones & iPads made by Finder/iTunes. Deleting removes the backup "
                    "permanently – make sure you don't need it!",
                    items);
}

CleanupEntryPtr userLogs() {
  const path home = DevCaches::realHomeDirectory();
  if (home.empty()) return nullptr;
  const path logs = home / "Library" / "Logs";
  std::vector<CleanupEntryPtr> items;
  for (const std::string& name : visibleNames(logs)) {
    const path item = logs / name;
    auto entry = std::make_shared<CleanupEntry>(name, "",
                                                "Logs at " + item.string() + ". Recreated by the app that writes them.",
                                                CleanupEntry::Icon::system(systemImage::folder), true, false);
    entry->addPath(item);
    items.push_back(entry);
  }
  items = DevCaches::measuredLargeEnough(std::move(items));
  if (items.empty()) return nullptr;
  return groupEntry("User Logs", systemImage::folder,
                    "Application & diagnostic logs in ~/Library/Logs. Apps recreate them; delete if you don't need "
                    "them for debugging.",
                    items);
}

}  // namespace tw::SystemItems

namespace tw {

std::vector<CleanupEntryPtr> scanSystemItems() {
  std::vector<CleanupEntryPtr> result;
  for (CleanupEntryPtr entry :
       {SystemItems::timeMachineSnapshots(), SystemItems::trash(), SystemItems::updatesAndInstallers(),
        SystemItems::deviceBackups(), SystemItems::userLogs()}) {
    if (entry) result.push_back(std::move(entry));
  }
  return result;
}

}  // namespace tw
