
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <nlohmann/json.hpp>

#include "app/Logger.h"
#include "fs/Shell.h"
#include "model/SimulatorRuntimeFileEntry.h"
#include "model/SystemImages.h"
#include "model/XcodeEntries.h"
#include "platform/Host.h"
#include "platform/Text.h"
#include "scan/DevFiles.h"
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

// A JSON text value, or nothing when the key is missing or holds something else.
std::optional<std::string> text(const nlohmann::ordered_json& record, const char* key) {
  auto found = record.find(key);
  if (found == record.end() || !found->is_string()) return std::nullopt;
  return found->get<std::string>();
}

// A byte count: a non-negative number that fits a signed 64-bit integer. Anything else is
// treated as unknown, so that the entry is measured on disk instead of showing nonsense.
std::optional<int64_t> byteCount(const nlohmann::ordered_json& record, const char* key) {
  auto found = record.find(key);
  if (found == record.end()) return std::nullopt;
  if (found->is_number_unsigned()) {
    auto value = found->get<uint64_t>();
    if (value > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) return std::nullopt;
    return static_cast<int64_t>(value);
  }
  if (found->is_number_integer()) {
    auto value = found->get<int64_t>();
    return value >= 0 ? std::optional<int64_t>(value) : std::nullopt;
  }
  if (found->is_number_float()) {
    double value = found->get<double>();
    // 2^63 is the first double beyond the range.
    if (!std::isfinite(value) || value < 0 || value >= 9223372036854775808.0) return std::nullopt;
    return static_cast<int64_t>(value);
  }
  return std::nullopt;
}

// "iOS" from "com.apple.CoreSimulator.SimRuntime.iOS-17-4": the first non-empty part before a "-".
std::string platformOf(std::string_view runtimeIdentifier) {
  std::string rest = withoutRuntimePrefix(runtimeIdentifier);
  size_t start = rest.find_first_not_of('-');
  if (start == std::string::npos) return "";
  return rest.substr(start, rest.find('-', start) - start);
}

std::shared_ptr<SimulatorRuntimeFileEntry> runtimeEntry(const std::string& imageIdentifier,
                                                        const nlohmann::ordered_json& record) {
  const std::string runtimeIdentifier = text(record, "runtimeIdentifier").value_or(imageIdentifier);
  const std::string version = text(record, "version").value_or("");
  const std::string build = text(record, "build").value_or("");
  const std::string label = platformOf(runtimeIdentifier) + " " + version;
  auto entry = std::make_shared<SimulatorRuntimeFileEntry>(
      imageIdentifier, byteCount(record, "sizeBytes"), label, build,
      "Simulator runtime " + label + " (" + build +
          "). Removed using \"simctl runtime delete\", can be downloaded again in Xcode.",
      CleanupEntry::Icon::system(systemImage::multipleDocuments), true, false);
  // The tool names system paths; they are found through the host like every other one.
  if (auto path = text(record, "path"); path && !path->empty() && path->front() == '/') {
    entry->addPath(Host::current().system(*path));
  }
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
  // ordered_json keeps the tool's own order for records of equal (or unknown) size.
  auto list = nlohmann::ordered_json::parse(json, nullptr, false);
  const bool wellFormed = !list.is_discarded() && list.is_object() &&
                          std::all_of(list.begin(), list.end(), [](const auto& record) { return record.is_object(); });
  if (!wellFormed) {
    log::warning("\u26A0\uFE0F DevCaches: Unexpected simctl runtime list output");
    return {};
  }

  std::vector<std::shared_ptr<SimulatorRuntimeFileEntry>> runtimes;
  for (const auto& [imageIdentifier, record] : list.items()) {
    auto deletable = record.find("deletable");
    if (deletable != record.end() && deletable->is_boolean() && !deletable->get<bool>()) continue;
    runtimes.push_back(runtimeEntry(imageIdentifier, record));
  }
  // Largest first by the tool's own figures (nothing is measured yet); unknown sizes last.
  std::stable_sort(runtimes.begin(), runtimes.end(), [](const auto& a, const auto& b) {
    const auto& left = a->knownSizeInBytes();
    const auto& right = b->knownSizeInBytes();
    if (left && right) return *left > *right;
    return left.has_value() && !right.has_value();
  });
  return {runtimes.begin(), runtimes.end()};
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
