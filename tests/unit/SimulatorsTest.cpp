// Simulator devices, XCTest clones, dyld caches and platform runtimes listed through a stand-in simctl.
#include <gtest/gtest.h>

#include "clean/DeletionEngine.h"
#include "fs/DirectorySize.h"
#include "model/SimulatorRuntimeFileEntry.h"
#include "model/XcodeEntries.h"
#include "scan/SimulatorScanners.h"
#include "support/DeveloperFolderFixture.h"
#include "support/StandInEnvironment.h"
#include "support/StandInTools.h"
#include "support/TempDir.h"
#include "support/Unprivileged.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using test::LogCapture, test::readCallLog, test::writeFile;
using Lines = std::vector<std::string>;

constexpr const char* kIOS17 = "com.apple.CoreSimulator.SimRuntime.iOS-17-4";
constexpr const char* kIOS16 = "com.apple.CoreSimulator.SimRuntime.iOS-16-4";
constexpr const char* kWatch10 = "com.apple.CoreSimulator.SimRuntime.watchOS-10-2";

struct Device {
  std::optional<std::string> name, runtime;
  std::optional<bool> isDeleted;
  bool binary = false;
};

class Simulators : public ::testing::Test {
 protected:
  test::TempDir root;
  fs::path developer = root / "home/Library/Developer";
  fs::path volumes = root / "Library/Developer/CoreSimulator/Volumes";
  fs::path callLog = root / "xcrun-calls";
  ScopedHost host{test::hostWithRoot(root.path())};

  void installRuntime(const std::string& volume, const std::string& identifier, bool binary = false) {
    test::writePlist(volumes / volume / "Library/Developer/CoreSimulator/Profiles/Runtimes" /
                         (identifier + ".simruntime/Contents/Info.plist"),
                     test::textDictionary({{"CFBundleIdentifier", identifier}}),
                     binary ? test::PlistFormat::binary : test::PlistFormat::xml);
  }
  void writeDevice(const std::string& set, const std::string& udid, const Device& device) {
    plist_t record = test::textDictionary({{"UDID", udid}});
    if (device.name) plist_dict_set_item(record, "name", plist_new_string(device.name->c_str()));
    if (device.runtime) plist_dict_set_item(record, "runtime", plist_new_string(device.runtime->c_str()));
    if (device.isDeleted) plist_dict_set_item(record, "isDeleted", plist_new_bool(*device.isDeleted));
    test::writePlist(developer / set / udid / "device.plist", record,
                     device.binary ? test::PlistFormat::binary : test::PlistFormat::xml);
    writeFile(developer / set / udid / "data/file", "contents");
  }
  // One line per entry: identifier (runtimes) | label | extra info | UDID or known size | paths (below the root).
  Lines describe(const std::vector<CleanupEntryPtr>& entries) {
    Lines lines;
    const std::string base = root.path().string();
    for (const auto& entry : entries) {
      auto runtime = std::dynamic_pointer_cast<SimulatorRuntimeFileEntry>(entry);
      auto simulator = std::dynamic_pointer_cast<SimulatorFileEntry>(entry);
      const auto size = runtime ? runtime->knownSizeInBytes() : std::nullopt;
      const std::string id = simulator ? simulator->udid() : size ? std::to_string(*size) : "-";
      std::string& line = lines.emplace_back((runtime ? runtime->imageIdentifier() + " | " : "") + entry->label() +
                                             " | " + entry->extraInfo() + " | " + id + " |");
      for (const auto& path : entry->paths())
        line += " " + (path.string().starts_with(base) ? path.string().substr(base.size()) : path.string());
    }
    return lines;
  }
};

TEST_F(Simulators, UnavailableDevicesAreThoseWhoseRuntimeIsGoneAndNoneWithoutReadableVolumes) {
  LogCapture log;
  EXPECT_TRUE(simulators::unavailableSimulators(developer).empty());
  EXPECT_EQ(
      log.lines(),
      (Lines{"\u26A0\uFE0F DevFiles: Cannot list CoreSimulator Volumes (path: " + volumes.string() + ")",
             "\u2755 DevFiles: Found 0 installed simulator runtime(s)",
             "\u26A0\uFE0F \u26A0\uFE0F DevFiles: Cannot read CoreSimulator Volumes \u2013 skipping simulator scan"}));
  fs::create_directories(volumes / "Empty");  // volumes without any runtime
  EXPECT_TRUE(simulators::unavailableSimulators(developer).empty());
  installRuntime("iOS_21E213", kIOS17);
  installRuntime("watchOS_21S364", kWatch10, true);
  installRuntime(".Hidden", kIOS16);  // hidden volumes hold no runtime
  writeFile(volumes / "iOS_21E213/Library/Developer/CoreSimulator/Profiles/Runtimes/Bad.simruntime/Contents/Info.plist",
            "<?xml garbage");
  EXPECT_TRUE(simulators::unavailableSimulators(developer).empty());
  EXPECT_EQ(log.lines().back(), "\u26A0\uFE0F \u26A0\uFE0F DevFiles: Cannot read CoreSimulator Devices directory");
  const std::string devices = "CoreSimulator/Devices";
  writeDevice(devices, "0001", {.name = "iPhone 15 Pro", .runtime = kIOS17});  // installed: never listed
  writeDevice(devices, "0003", {.name = "Apple Watch", .runtime = kWatch10, .binary = true});
  EXPECT_TRUE(simulators::unavailableSimulators(developer).empty());
  writeDevice(devices, "0002", {.name = "iPhone 14", .runtime = kIOS16});
  ::chmod(volumes.c_str(), 0);  // runtimes that cannot be read are not known to be gone
  auto failures = test::runUnprivileged(root.path(), [&]() -> std::string {
    return simulators::unavailableSimulators(developer).empty() ? "" : "devices listed as unavailable";
  });
  ::chmod(volumes.c_str(), 0755);
  EXPECT_EQ(failures.value_or(""), "");

  writeDevice(devices, "0004", {.name = "iPad mini", .runtime = kIOS16, .binary = true});
  writeDevice(devices, "0005", {.name = "Deleted iPhone", .runtime = kIOS16, .isDeleted = true});
  writeDevice(devices, "0006",
              {.name = "Apple Vision", .runtime = "com.apple.CoreSimulator.SimRuntime.xrOS-1-2", .isDeleted = false});
  writeDevice(devices, "0008", {.runtime = kIOS16});     // no name
  writeDevice(devices, "0009", {.name = "No runtime"});  // no runtime
  writeFile(developer / devices / "0011/device.plist", "bplist00 truncated");
  const auto unavailable = simulators::unavailableSimulators(developer);
  ASSERT_EQ(test::labelsOf(unavailable), Lines{"Unavailable"});
  EXPECT_EQ(describe(unavailable[0]->items()),
            (Lines{"Apple Vision | visionOS 1.2 | 0006 | /home/Library/Developer/CoreSimulator/Devices/0006",
                   "iPad mini | iOS 16.4 | 0004 | /home/Library/Developer/CoreSimulator/Devices/0004",
                   "iPhone 14 | iOS 16.4 | 0002 | /home/Library/Developer/CoreSimulator/Devices/0002"}));
  EXPECT_EQ(log.lines().back(), "\u26A0\uFE0F DevFiles: The property list " +
                                    (developer / devices / "0011/device.plist").string() +
                                    " is unusable: it is not a property list");
}

TEST_F(Simulators, ClonesAreListedWhateverTheirRuntimeAndDyldCachesInFinderOrder) {
  writeDevice("XCTestDevices", "C3", {.name = "Clone 2 of iPhone 15", .runtime = kIOS17});
  writeDevice("XCTestDevices", "C1", {.name = "Clone 1 of iPhone 15", .runtime = kIOS16, .binary = true});
  writeDevice("XCTestDevices", "C4", {.name = "Deleted clone", .runtime = kIOS17, .isDeleted = true});
  writeFile(developer / "XCTestDevices/C6/device.plist", "not a property list");
  const auto dyld = developer / "CoreSimulator/Caches/dyld";
  for (const char* name : {"iOS 10", "iOS 9", "b-cache", "A-cache"}) writeFile(dyld / name / "cache", "x");
  writeFile(dyld / ".DS_Store", "x");

  // Only the dyld caches' group explains itself.
  const auto clones = simulators::xctestClones(developer);
  ASSERT_EQ(test::labelsOf(clones), Lines{"Clones"});
  EXPECT_EQ(describe(clones[0]->items()),
            (Lines{"Clone 1 of iPhone 15 | iOS 16.4 | C1 | /home/Library/Developer/XCTestDevices/C1",
                   "Clone 2 of iPhone 15 | iOS 17.4 | C3 | /home/Library/Developer/XCTestDevices/C3"}));
  EXPECT_FALSE(clones.at(0)->tooltip());
  const auto caches = simulators::dyldCaches(developer);
  ASSERT_EQ(caches.size(), 1u);
  EXPECT_TRUE(caches[0]->tooltip());
  std::vector<fs::path> paths;
  for (const auto& item : caches[0]->items()) paths.insert(paths.end(), item->paths().begin(), item->paths().end());
  EXPECT_EQ(paths, (std::vector<fs::path>{dyld / "A-cache", dyld / "b-cache", dyld / "iOS 9", dyld / "iOS 10"}));
}

TEST_F(Simulators, RuntimeListOutputVariants) {
  const std::string warned = "\u26A0\uFE0F \u26A0\uFE0F DevCaches: Unexpected simctl runtime list output";
  const std::vector<std::pair<std::string, Lines>> cases = {
      // JSON; the entries, then the lines logged
      {"", {warned}},
      {"[{\"deletable\": true}]", {warned}},
      {R"({"A": {"version": "17.4"}, "B": 1})", {warned}},  // one bad record spoils the list
      {R"({"A": {"version": "17.4"}} trailing)", {warned}},
      {R"({"A": [{"version": "17.4"}]})", {warned}},
      // Values nested inside a record are no fields, however deep.
      {R"({"A": {"version": ["17"], "path": {"p": "/x"}, "more": {"deletable": false, "sizeBytes": 1}, "deep": )" +
           std::string(100'000, '[') + std::string(100'000, ']') + "}}",
       {"A | A  |  | - |"}},
      {" { } \n", {}},
      // The tool's order; no "runtimeIdentifier": the key; wrong types count as missing; sizes: int64, truncated.
      {R"({"IOS": {"build": "21E213", "deletable": true, "sizeBytes": 7318396928, "version": "17.4",
        "path": "/Library/Developer/CoreSimulator/Volumes/iOS_21E213",
        "runtimeIdentifier": "com.apple.CoreSimulator.SimRuntime.iOS-17-4"},
        "PROTECTED": {"deletable": false, "version": "18.0", "sizeBytes": 99999999999},
        "NO-DELETABLE-KEY": {"runtimeIdentifier": "com.apple.CoreSimulator.SimRuntime.xrOS-1-2", "version": "1.2",
                             "build": "21O5565d"},
        "STRANGE": {"deletable": "false", "runtimeIdentifier": "com.apple.CoreSimulator.SimRuntime.tvOS-17-0",
                    "version": 17.0, "build": 21, "sizeBytes": -5},
        "com.apple.CoreSimulator.SimRuntime.watchOS-10-2": {"version": "10.2", "sizeBytes": 3.5e9,
                                                           "path": "relative/path"},
        "HUGE": {"runtimeIdentifier": "--visionOS-2-0", "sizeBytes": 18446744073709551615, "path": ""},
        "FRACTIONS": {"version": "1", "sizeBytes": 2.9}, "NEGATIVE-FRACTION": {"sizeBytes": -1.5},
        "TWO-TO-THE-63": {"sizeBytes": 9223372036854775808.0}})",
       {"IOS | iOS 17.4 | 21E213 | 7318396928 | /Library/Developer/CoreSimulator/Volumes/iOS_21E213",
        "NO-DELETABLE-KEY | xrOS 1.2 | 21O5565d | - |", "STRANGE | tvOS  |  | -5 |",
        "com.apple.CoreSimulator.SimRuntime.watchOS-10-2 | watchOS 10.2 |  | 3500000000 | " +
            (fs::current_path() / "relative/path").string(),
        "HUGE | visionOS  |  | - |", "FRACTIONS | FRACTIONS 1 |  | 2 |", "NEGATIVE-FRACTION | NEGATIVE  |  | -1 |",
        "TWO-TO-THE-63 | TWO  |  | - |"}},
      // A key given twice is one record, at its first place, with the value given last.
      {R"({"B": {"version": "1"}, "A": {}, "B": {"version": "2"}})", {"B | B 2 |  | - |", "A | A  |  | - |"}},
  };
  for (const auto& [json, expected] : cases) {
    LogCapture log;
    Lines result = describe(simulators::runtimesFromList(json));
    for (const std::string& line : log.lines()) result.push_back(line);
    EXPECT_EQ(result, expected) << json.substr(0, 100);
  }
}

TEST_F(Simulators, RuntimesAreListedMeasuredAndDeletedOnePerUnitBySimctlWhoseFailuresAreReported) {
  const test::DeveloperFolderFixture folders{developer};
  const fs::path volume = volumes / "iOS_21E213";
  test::writeFileOfSize(volume / "Runtime.dmg", 3 << 20);
  test::writeStandInXcrun(root.path(), callLog, {.listOutput = R"({
    "WITH-PATH": {"runtimeIdentifier": "com.apple.CoreSimulator.SimRuntime.iOS-17-4", "version": "17.4",
                  "sizeBytes": 2000, "path": "/Library/Developer/CoreSimulator/Volumes/iOS_21E213"},
    "WITHOUT-PATH": {"runtimeIdentifier": "com.apple.CoreSimulator.SimRuntime.watchOS-10-2", "version": "10.2",
                     "sizeBytes": 1000},
    "MEASURED": {"path": "/Library/Developer/CoreSimulator/Volumes/iOS_21E213"}, "NONE": {}
  })"});
  auto devFiles = folders.devFiles();
  devFiles->scan({DevFiles::Location::simulatorRuntimes});
  EXPECT_EQ(readCallLog(callLog), Lines{"simctl runtime list -j"});
  const auto& runtimes = devFiles->entry(DevFiles::Location::simulatorRuntimes)->items();
  ASSERT_EQ(describe(runtimes),
            (Lines{"WITH-PATH | iOS 17.4 |  | 2000 | /Library/Developer/CoreSimulator/Volumes/iOS_21E213",
                   "WITHOUT-PATH | watchOS 10.2 |  | 1000 |",
                   "MEASURED | MEASURED  |  | - | /Library/Developer/CoreSimulator/Volumes/iOS_21E213",
                   "NONE | NONE  |  | - |"}));
  // A known size needs no walk of the disk (which would leave nothing for the next item of that path).
  EXPECT_EQ(runtimes[0]->size(), CleanupEntry::Size::value(2000));
  EXPECT_EQ(runtimes[2]->size(), CleanupEntry::Size::value(measurePath(volume, nullptr)));
  EXPECT_EQ(runtimes[3]->size(), CleanupEntry::Size::value(0));

  for (const auto& runtime : {runtimes[0], runtimes[1]}) runtime->select();
  for (const auto& top : devFiles->rootEntries()) top->updateSelection();
  fs::remove(callLog);
  deleteSelected(*devFiles, true);  // dry run: the tool is never asked
  EXPECT_EQ(readCallLog(callLog), Lines{});
  LogCapture log;
  deleteSelected(*devFiles, false);
  // The last child first; the units themselves are the deletion engine's (CleanupEntryTest).
  EXPECT_EQ(readCallLog(callLog), (Lines{"simctl runtime delete WITHOUT-PATH", "simctl runtime delete WITH-PATH"}));

  // A failing tool: the files stay for it to remove, and the listing is empty with a warning.
  test::writeStandInXcrun(
      root.path(), callLog,
      {.listOutput = "xcrun: error", .listStatus = 72, .deleteOutput = "Not found\n", .deleteStatus = 1});
  EXPECT_EQ(test::failureOf([&] { runtimes[0]->deleteItem(volume); }),
            "Command failed: simctl runtime delete WITH-PATH\nNot found\n");
  EXPECT_TRUE(fs::exists(volume / "Runtime.dmg"));
  EXPECT_TRUE(simulators::simulatorRuntimes().empty());
  EXPECT_EQ(log.lines().back(), "\u26A0\uFE0F \u26A0\uFE0F DevCaches: Cannot list simulator runtimes via simctl");
}

}  // namespace
}  // namespace tw
