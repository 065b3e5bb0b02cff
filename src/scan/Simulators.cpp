
#include <algorithm>
#include <cstdint>

#include "platform/Log.h"
#include "fs/Shell.h"
#include "model/SimulatorRuntimeFileEntry.h"
#include "model/SystemImages.h"
#include "model/XcodeEntries.h"
#include "platform/Host.h"
#include "platform/Text.h"
#include "scan/DevFiles.h"
#include "scan/RuntimeList.h"
#include "scan/Scanners.h"
#include "scan/SimulatorScanners.h"
#include "scan/XcodeScanSupport.h"

namespace tw {
namespace simulators {
namespace {

using xcode::PropertyList;

constexpr std::string_view kRuntimePrefix = "com.apple.CoreSimulator.SimRuntime.";
constexpr const char* kRuntimeVolumes = "/Library/Developer/CoreSimulator/Volumes";
constexpr const char* kDyldItemTooltip =
    "Dyld shared caches generated for simulator runtimes. Recreated when a simulator boots again.";
constexpr const char* kDyldGroupTooltip =
    "Dyld shared caches of simulator runtimes, safe to remove as they are recreated when needed.";

void replaceAll(std::string& text, std::string_view from, std::string_view to) {
  if (from.empty()) return;
  for (size_t position = text.find(from); position != std::string::npos; position = text.find(from, position)) {
    text.replace(position, from.size(), to);
    position += to.size();
  }
}

std::string withoutRuntimePrefix(std::string_view runtimeIdentifier) {
  std::string text(runtimeIdentifier);
  replaceAll(text, kRuntimePrefix, "");
  return text;
}

std::shared_ptr<SimulatorFileEntry> simulatorEntry(const DeviceRecord& record, const std::filesystem::path& folder) {
  auto entry =
      std::make_shared<SimulatorFileEntry>(record.name, record.udid, runtimeDisplayName(record.runtime), false);
  entry->addPath(folder);
  return entry;
}

void sortByLabel(std::vector<CleanupEntryPtr>& entries) {
  std::stable_sort(entries.begin(), entries.end(),
                   [](const CleanupEntryPtr& a, const CleanupEntryPtr& b) { return a->label() < b->label(); });
}

CleanupEntryPtr group(const std::string& label, const std::string& tooltipText, bool tooltip,
                      const std::vector<CleanupEntryPtr>& items) {
  auto entry = std::make_shared<CleanupEntry>(label, "", tooltipText, CleanupEntry::Icon::system(systemImage::folder),
                                              tooltip, false);
  entry->addItems(items);
  return entry;
}

// The record's "path" as a file URL would take it: an absolute path is a system path of the
// host, a relative one is taken from the current folder. An empty text names no file.
std::optional<std::filesystem::path> recordPath(const RuntimeRecord& record) {
  if (!record.path || record.path->empty()) return std::nullopt;
  if (record.path->front() == '/') return Host::current().system(*record.path);
  std::error_code error;
  auto absolute = std::filesystem::absolute(*record.path, error);
  return error ? std::filesystem::path(*record.path) : absolute;
}

// "iOS" from "com.apple.CoreSimulator.SimRuntime.iOS-17-4": the first non-empty part before a "-".
std::string platformOf(std::string_view runtimeIdentifier) {
  std::string rest = withoutRuntimePrefix(runtimeIdentifier);
  size_t start = rest.find_first_not_of('-');
  if (start == std::string::npos) return "";
  return rest.substr(start, rest.find('-', start) - start);
}

std::shared_ptr<SimulatorRuntimeFileEntry> runtimeEntry(const RuntimeRecord& record) {
  const std::string runtimeIdentifier = record.runtimeIdentifier.value_or(record.imageIdentifier);
  const std::string version = record.version.value_or("");
  const std::string build = record.build.value_or("");
  const std::string label = platformOf(runtimeIdentifier) + " " + version;
  auto entry = std::make_shared<SimulatorRuntimeFileEntry>(
      record.imageIdentifier, record.sizeBytes, label, build,
      "Simulator runtime " + label + " (" + build +
          "). Removed using \"simctl runtime delete\", can be downloaded again in Xcode.",
      CleanupEntry::Icon::system(systemImage::multipleDocuments), true, false);
  if (auto path = recordPath(record)) entry->addPath(*path);
  return entry;
}

}  // namespace

std::set<std::string> installedRuntimeIdentifiers() {
  std::set<std::string> identifiers;
  const std::filesystem::path volumesFolder = Host::current().system(kRuntimeVolumes);
  auto volumes = xcode::listFolder(volumesFolder);
  if (!volumes) {
    log::warning("DevFiles: Cannot list CoreSimulator Volumes (path: " + volumesFolder.string() + ")");
    return identifiers;
  }
  for (const auto& volume : *volumes) {
    auto runtimes = xcode::listFolder(volume / "Library/Developer/CoreSimulator/Profiles/Runtimes");
    if (!runtimes) continue;
    for (const auto& runtime : *runtimes) {
      if (runtime.extension() != ".simruntime") continue;
      auto info = xcode::readMetadata(runtime / "Contents" / "Info.plist");
      if (!info) continue;
      if (auto identifier = PropertyList::string(PropertyList::item(info->root(), "CFBundleIdentifier"))) {
        identifiers.insert(*identifier);
      }
    }
  }
  return identifiers;
}

std::string runtimeDisplayName(std::string_view runtimeIdentifier) {
  std::string name = withoutRuntimePrefix(runtimeIdentifier);
  replaceAll(name, "-", ".");
  replaceAll(name, "iOS.", "iOS ");
  replaceAll(name, "watchOS.", "watchOS ");
  replaceAll(name, "tvOS.", "tvOS ");
  replaceAll(name, "xrOS.", "visionOS ");
  replaceAll(name, "visionOS.", "visionOS ");
  return name;
}

std::optional<DeviceRecord> readDeviceRecord(const std::filesystem::path& deviceFolder) {
  auto list = xcode::readMetadata(deviceFolder / "device.plist");
  if (!list) return std::nullopt;
  auto name = PropertyList::string(PropertyList::item(list->root(), "name"));
  auto udid = PropertyList::string(PropertyList::item(list->root(), "UDID"));
  auto runtime = PropertyList::string(PropertyList::item(list->root(), "runtime"));
  if (!name || !udid || !runtime) return std::nullopt;
  bool isDeleted = PropertyList::boolean(PropertyList::item(list->root(), "isDeleted")).value_or(false);
  return DeviceRecord{std::move(*name), std::move(*udid), std::move(*runtime), isDeleted};
}

std::vector<CleanupEntryPtr> unavailableSimulators(const std::filesystem::path& developerFolder) {
  const auto installed = installedRuntimeIdentifiers();
  log::info("DevFiles: Found " + std::to_string(installed.size()) + " installed simulator runtime(s)");
  // Without the installed runtimes every device would look unavailable: better list none.
  if (installed.empty()) {
    log::warning("\u26A0\uFE0F DevFiles: Cannot read CoreSimulator Volumes \u2013 skipping simulator scan");
    return {};
  }
  auto devices = xcode::listFolder(developerFolder / "CoreSimulator" / "Devices");
  if (!devices) {
    log::warning("\u26A0\uFE0F DevFiles: Cannot read CoreSimulator Devices directory");
    return {};
  }
  std::vector<CleanupEntryPtr> found;
  for (const auto& folder : *devices) {
    auto record = readDeviceRecord(folder);
    if (!record || record->isDeleted || installed.count(record->runtime) > 0) continue;
    auto entry = simulatorEntry(*record, folder);
    log::info("DevFiles: Unavailable simulator: " + record->name + " (" + entry->runtime() + ")");
    found.push_back(std::move(entry));
  }
  if (found.empty()) return {};
  sortByLabel(found);
  return {group("Unavailable", "Unavailable", false, found)};
}

std::vector<CleanupEntryPtr> xctestClones(const std::filesystem::path& developerFolder) {
  auto devices = xcode::listFolder(developerFolder / "XCTestDevices");
  if (!devices) return {};
  std::vector<CleanupEntryPtr> found;
  for (const auto& folder : *devices) {
    auto record = readDeviceRecord(folder);
    if (!record || record->isDeleted) continue;
    auto entry = simulatorEntry(*record, folder);
    log::info("DevFiles: XCTest clone: " + record->name + " (" + entry->runtime() + ")");
    found.push_back(std::move(entry));
  }
  if (found.empty()) return {};
  sortByLabel(found);
  return {group("Clones", "Clones", false, found)};
}

std::vector<CleanupEntryPtr> dyldCaches(const std::filesystem::path& developerFolder) {
  auto caches = xcode::listFolder(developerFolder / "CoreSimulator" / "Caches" / "dyld");
  if (!caches || caches->empty()) return {};
  std::vector<CleanupEntryPtr> found;
  for (const auto& cache : *caches) {
    auto entry = std::make_shared<CleanupEntry>(cache.filename().string(), "", kDyldItemTooltip,
                                                CleanupEntry::Icon::system(systemImage::folder), true, false);
    entry->addPath(cache);
    found.push_back(std::move(entry));
  }
  std::stable_sort(found.begin(), found.end(), [](const CleanupEntryPtr& a, const CleanupEntryPtr& b) {
    return localizedStandardCompare(a->label(), b->label()) < 0;
  });
  return {group("Dyld Caches", kDyldGroupTooltip, true, found)};
}

std::vector<CleanupEntryPtr> simulatorRuntimes() {
  auto result = Shell::run("/usr/bin/xcrun", {"simctl", "runtime", "list", "-j"});
  if (result.status != 0) {
    log::warning("\u26A0\uFE0F DevCaches: Cannot list simulator runtimes via simctl");
    return {};
  }
  return runtimesFromList(result.output);
}

std::vector<CleanupEntryPtr> runtimesFromList(const std::string& json) {
  auto records = readRuntimeList(json);
  if (!records) {
    log::warning("\u26A0\uFE0F DevCaches: Unexpected simctl runtime list output");
    return {};
  }
  // In the tool's order; nothing is measured yet, so there is nothing to sort by.
  std::vector<CleanupEntryPtr> runtimes;
  runtimes.reserve(records->size());
  for (const RuntimeRecord& record : *records) {
    if (record.deletable.has_value() && !*record.deletable) continue;  // a missing key keeps the record
    runtimes.push_back(runtimeEntry(record));
  }
  return runtimes;
}

}  // namespace simulators

std::vector<CleanupEntryPtr> scanUnavailableSimulators(const DevFiles& devFiles) {
  return simulators::unavailableSimulators(devFiles.userDeveloperFolderUrl());
}

std::vector<CleanupEntryPtr> scanXCTestClones(const DevFiles& devFiles) {
  return simulators::xctestClones(devFiles.userDeveloperFolderUrl());
}

std::vector<CleanupEntryPtr> scanDyldCaches(const DevFiles& devFiles) {
  return simulators::dyldCaches(devFiles.userDeveloperFolderUrl());
}

std::vector<CleanupEntryPtr> scanSimulatorRuntimes(const DevFiles&) { return simulators::simulatorRuntimes(); }

}  // namespace tw
