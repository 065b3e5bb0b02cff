// The simulator world: devices whose runtime is gone, device clones left behind by UI tests,
// the dyld caches built for simulator runtimes, and the runtime images the simulator tool
// can delete. The driver's entry points (Scanners.h) call these with its Developer folder.
#pragma once

#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "model/CleanupEntry.h"

namespace tw::simulators {

// Bundle identifiers of the runtimes installed on the system runtime volumes
// ("/Library/Developer/CoreSimulator/Volumes/*/Library/Developer/CoreSimulator/Profiles/Runtimes").
std::set<std::string> installedRuntimeIdentifiers();

// "com.apple.CoreSimulator.SimRuntime.xrOS-1-2" → "visionOS 1.2".
std::string runtimeDisplayName(std::string_view runtimeIdentifier);

// What a device folder's "device.plist" says about it.
struct DeviceRecord {
  std::string name;
  std::string udid;
  std::string runtime;  // runtime identifier
  bool isDeleted = false;
};
// Absent when the record cannot be read or lacks "name", "UDID" or "runtime".
std::optional<DeviceRecord> readDeviceRecord(const std::filesystem::path& deviceFolder);

// Each returns at most one group entry.
std::vector<CleanupEntryPtr> unavailableSimulators(const std::filesystem::path& developerFolder);
std::vector<CleanupEntryPtr> xctestClones(const std::filesystem::path& developerFolder);
std::vector<CleanupEntryPtr> dyldCaches(const std::filesystem::path& developerFolder);

// The deletable runtime images from "xcrun simctl runtime list -j", in the tool's order.
std::vector<CleanupEntryPtr> simulatorRuntimes();
// The same from the tool's JSON output; malformed output is logged and gives nothing.
std::vector<CleanupEntryPtr> runtimesFromList(const std::string& json);

}  // namespace tw::simulators
