#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "model/XcodeEntries.h"
#include "platform/Host.h"
#include "scan/SimulatorScanners.h"
#include "support/FixtureHome.h"
#include "support/StandInEnvironment.h"
#include "support/TempDir.h"
#include "support/Unprivileged.h"

namespace tw {
namespace {

using test::LogCapture;
using test::writeFile;

constexpr const char* kIOS17 = "com.apple.CoreSimulator.SimRuntime.iOS-17-4";
constexpr const char* kIOS16 = "com.apple.CoreSimulator.SimRuntime.iOS-16-4";
constexpr const char* kWatch10 = "com.apple.CoreSimulator.SimRuntime.watchOS-10-2";

struct Device {
  std::optional<std::string> name;
  std::optional<std::string> runtime;
  std::optional<bool> isDeleted;
  bool binary = false;
};

class SimulatorScan : public ::testing::Test {
 protected:
  test::TempDir root;
  std::filesystem::path developer = root / "home/Library/Developer";
  std::filesystem::path volumes = root / "Library/Developer/CoreSimulator/Volumes";
  ScopedHost host{test::hostWithRoot(root.path())};

  void installRuntime(const std::string& volume, const std::string& identifier, bool binary = false) {
    plist_t info = plist_new_dict();
    plist_dict_set_item(info, "CFBundleIdentifier", plist_new_string(identifier.c_str()));
    test::writePlist(volumes / volume / "Library/Developer/CoreSimulator/Profiles/Runtimes" /
                         (identifier + ".simruntime/Contents/Info.plist"),
                     info, binary ? test::PlistFormat::binary : test::PlistFormat::xml);
  }
  void writeDevice(const std::string& set, const std::string& udid, const Device& device) {
    plist_t record = plist_new_dict();
    if (device.name) plist_dict_set_item(record, "name", plist_new_string(device.name->c_str()));
    plist_dict_set_item(record, "UDID", plist_new_string(udid.c_str()));
    if (device.runtime) plist_dict_set_item(record, "runtime", plist_new_string(device.runtime->c_str()));
    if (device.isDeleted) plist_dict_set_item(record, "isDeleted", plist_new_bool(*device.isDeleted));
    test::writePlist(developer / set / udid / "device.plist", record,
                     device.binary ? test::PlistFormat::binary : test::PlistFormat::xml);
    writeFile(developer / set / udid / "data/file", "contents");
  }
};

// label | udid | runtime | folder, one line per simulator of a group labelled `label`.
std::vector<std::string> describe(const std::vector<CleanupEntryPtr>& groups, const std::string& label) {
  if (groups.size() != 1 || groups[0]->label() != label) return {"not one group " + label};
  std::vector<std::string> lines;
  for (const auto& item : groups[0]->items()) {
    auto simulator = std::dynamic_pointer_cast<SimulatorFileEntry>(item);
    if (!simulator || simulator->paths().size() != 1) return {"unexpected entry " + item->label()};
    lines.push_back(simulator->label() + " | " + simulator->udid() + " | " + simulator->runtime() + " | " +
                    simulator->paths()[0].filename().string());
  }
  return lines;
}

TEST_F(SimulatorScan, WithoutAReadableVolumeNoDeviceIsUnavailableButClonesAndCachesStay) {
  writeDevice("CoreSimulator/Devices", "AAAA", {.name = "iPhone 15", .runtime = kIOS16});
  writeDevice("XCTestDevices", "CLONE", {.name = "Clone 1 of iPhone 15", .runtime = kIOS16});
  writeFile(developer / "CoreSimulator/Caches/dyld/21E213/dyld_sim_shared_cache_arm64e", "cache");
  {
    LogCapture log;
    EXPECT_TRUE(simulators::unavailableSimulators(developer).empty());
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{
                  "\u26A0\uFE0F DevFiles: Cannot list CoreSimulator Volumes (path: " + volumes.string() + ")",
                  "\u2755 DevFiles: Found 0 installed simulator runtime(s)",
                  "\u26A0\uFE0F \u26A0\uFE0F DevFiles: Cannot read CoreSimulator Volumes \u2013 skipping simulator scan",
              }));
  }
  std::filesystem::create_directories(volumes / "Empty");  // volumes without any runtime
  EXPECT_TRUE(simulators::unavailableSimulators(developer).empty());

  installRuntime("iOS_21E213", kIOS17);  // a runtime that cannot be read
  ::chmod(volumes.c_str(), 0);
  auto failures = test::runUnprivileged(root.path(), [&]() -> std::string {
    return simulators::unavailableSimulators(developer).empty() ? "" : "devices listed as unavailable";
  });
  ::chmod(volumes.c_str(), 0755);
  EXPECT_EQ(failures.value_or(""), "");

  EXPECT_EQ(simulators::xctestClones(developer).size(), 1u);
  EXPECT_EQ(simulators::dyldCaches(developer).size(), 1u);
}

TEST_F(SimulatorScan, UnavailableDevicesAreThoseWhoseRuntimeIsGone) {
  installRuntime("iOS_21E213", kIOS17);
  installRuntime("watchOS_21S364", kWatch10, true);
  installRuntime(".Hidden", kIOS16);  // hidden volumes hold no runtime
  writeFile(volumes / "iOS_21E213/Library/Developer/CoreSimulator/Profiles/Runtimes/Bad.simruntime/Contents/Info.plist",
            "<?xml garbage");
  {
    LogCapture log;
    EXPECT_TRUE(simulators::unavailableSimulators(developer).empty());
    EXPECT_EQ(log.lines().back(), "\u26A0\uFE0F \u26A0\uFE0F DevFiles: Cannot read CoreSimulator Devices directory");
  }
  const std::string devices = "CoreSimulator/Devices";
  writeDevice(devices, "0001", {.name = "iPhone 15 Pro", .runtime = kIOS17});  // installed: never listed
  writeDevice(devices, "0003", {.name = "Apple Watch", .runtime = kWatch10, .binary = true});
  EXPECT_TRUE(simulators::unavailableSimulators(developer).empty());

  writeDevice(devices, "0002", {.name = "iPhone 14", .runtime = kIOS16});
  writeDevice(devices, "0004", {.name = "iPad mini", .runtime = kIOS16, .binary = true});
  writeDevice(devices, "0005", {.name = "Deleted iPhone", .runtime = kIOS16, .isDeleted = true});
  writeDevice(devices, "0006",
              {.name = "Apple Vision Pro", .runtime = "com.apple.CoreSimulator.SimRuntime.xrOS-1-2", .isDeleted = false});
  writeDevice(devices, "0008", {.runtime = kIOS16});     // no name
  writeDevice(devices, "0009", {.name = "No runtime"});  // no runtime
  writeFile(developer / devices / "0011/device.plist", "bplist00 truncated");

  LogCapture log;
  EXPECT_EQ(describe(simulators::unavailableSimulators(developer), "Unavailable"),
            (std::vector<std::string>{
                "Apple Vision Pro | 0006 | visionOS 1.2 | 0006",
                "iPad mini | 0004 | iOS 16.4 | 0004",
                "iPhone 14 | 0002 | iOS 16.4 | 0002",
            }));
  const auto lines = log.lines();
  const std::string visionPro = "\u2755 DevFiles: Unavailable simulator: Apple Vision Pro (visionOS 1.2)";
  EXPECT_NE(std::find(lines.begin(), lines.end(), visionPro), lines.end());
  // A record that is no property list is dropped with a line that names it.
  EXPECT_EQ(lines.back(), "\u26A0\uFE0F DevFiles: The property list " +
                              (developer / devices / "0011/device.plist").string() +
                              " is unusable: it is not a property list");
}

TEST_F(SimulatorScan, ClonesAreListedWhateverTheirRuntime) {
  installRuntime("iOS_21E213", kIOS17);
  writeDevice("XCTestDevices", "C3", {.name = "Clone 2 of iPhone 15", .runtime = kIOS17});
  writeDevice("XCTestDevices", "C1", {.name = "Clone 1 of iPhone 15", .runtime = kIOS16, .binary = true});
  writeDevice("XCTestDevices", "C4", {.name = "Deleted clone", .runtime = kIOS17, .isDeleted = true});
  writeFile(developer / "XCTestDevices/C6/device.plist", "not a property list");
  EXPECT_EQ(describe(simulators::xctestClones(developer), "Clones"),
            (std::vector<std::string>{"Clone 1 of iPhone 15 | C1 | iOS 16.4 | C1",
                                      "Clone 2 of iPhone 15 | C3 | iOS 17.4 | C3"}));
}

TEST_F(SimulatorScan, DyldCachesAreListedInFinderOrder) {
  const auto dyld = developer / "CoreSimulator/Caches/dyld";
  for (const char* name : {"iOS 10", "iOS 9", "b-cache", "A-cache"}) writeFile(dyld / name / "cache", "x");
  writeFile(dyld / ".DS_Store", "x");

  auto result = simulators::dyldCaches(developer);
  ASSERT_EQ(result.size(), 1u);
  std::vector<std::filesystem::path> paths;
  for (const auto& item : result[0]->items()) paths.insert(paths.end(), item->paths().begin(), item->paths().end());
  EXPECT_EQ(paths, (std::vector<std::filesystem::path>{dyld / "A-cache", dyld / "b-cache", dyld / "iOS 9", dyld / "iOS 10"}));
}

}  // namespace
}  // namespace tw
