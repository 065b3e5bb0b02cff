#include <gtest/gtest.h>
#include <plist/plist.h>
#include <sys/stat.h>
#include <unistd.h>

#include <optional>
#include <string>
#include <vector>

#include "model/SystemImages.h"
#include "model/XcodeEntries.h"
#include "platform/Host.h"
#include "scan/SimulatorScanners.h"
#include "support/StandInEnvironment.h"
#include "support/TempDir.h"

namespace tw {
namespace {

using test::hostWithRoot;
using test::LogCapture;
using test::TempDir;
using test::writeFile;

constexpr const char* kIOS17 = "com.apple.CoreSimulator.SimRuntime.iOS-17-4";
constexpr const char* kIOS16 = "com.apple.CoreSimulator.SimRuntime.iOS-16-4";
constexpr const char* kWatch10 = "com.apple.CoreSimulator.SimRuntime.watchOS-10-2";

enum class Format { xml, binary };

void writePlist(const std::filesystem::path& path, plist_t dictionary, Format format) {
  char* data = nullptr;
  uint32_t length = 0;
  if (format == Format::xml) {
    plist_to_xml(dictionary, &data, &length);
  } else {
    plist_to_bin(dictionary, &data, &length);
  }
  writeFile(path, std::string(data, length));
  free(data);
  plist_free(dictionary);
}

struct Device {
  std::optional<std::string> name;
  std::optional<std::string> udid;
  std::optional<std::string> runtime;
  std::optional<bool> isDeleted;
  Format format = Format::xml;
};

class SimulatorScan : public ::testing::Test {
 protected:
  TempDir root;
  std::filesystem::path home = root / "home";
  std::filesystem::path developer = home / "Library" / "Developer";
  std::filesystem::path volumes = root / "Library/Developer/CoreSimulator/Volumes";
  ScopedHost host{hostWithRoot(root.path())};

  std::filesystem::path runtimesFolder(const std::string& volume) {
    return volumes / volume / "Library/Developer/CoreSimulator/Profiles/Runtimes";
  }

  void installRuntime(const std::string& volume, const std::string& bundle, const std::string& identifier,
                      Format format = Format::xml) {
    plist_t info = plist_new_dict();
    plist_dict_set_item(info, "CFBundleIdentifier", plist_new_string(identifier.c_str()));
    plist_dict_set_item(info, "CFBundleName", plist_new_string(bundle.c_str()));
    writePlist(runtimesFolder(volume) / (bundle + ".simruntime") / "Contents" / "Info.plist", info, format);
  }

  std::filesystem::path writeDevice(const std::filesystem::path& folder, const Device& device) {
    plist_t record = plist_new_dict();
    if (device.name) plist_dict_set_item(record, "name", plist_new_string(device.name->c_str()));
    if (device.udid) plist_dict_set_item(record, "UDID", plist_new_string(device.udid->c_str()));
    if (device.runtime) plist_dict_set_item(record, "runtime", plist_new_string(device.runtime->c_str()));
    if (device.isDeleted) plist_dict_set_item(record, "isDeleted", plist_new_bool(*device.isDeleted ? 1 : 0));
    plist_dict_set_item(record, "state", plist_new_uint(1));
    writePlist(folder / "device.plist", record, device.format);
    writeFile(folder / "data" / "Library" / "file", "contents");
    return folder;
  }
  std::filesystem::path coreSimulatorDevice(const std::string& udid, Device device) {
    device.udid = device.udid.value_or(udid);
    return writeDevice(developer / "CoreSimulator" / "Devices" / udid, device);
  }
  std::filesystem::path xctestDevice(const std::string& udid, Device device) {
    device.udid = device.udid.value_or(udid);
    return writeDevice(developer / "XCTestDevices" / udid, device);
  }
};

void expectGroup(const CleanupEntryPtr& group, const std::string& label, const std::string& tooltipText, bool tooltip) {
  EXPECT_EQ(group->label(), label);
  EXPECT_EQ(group->extraInfo(), "");
  EXPECT_EQ(group->tooltipText(), tooltipText);
  EXPECT_EQ(group->tooltip(), tooltip);
  EXPECT_EQ(group->icon(), CleanupEntry::Icon::system(systemImage::folder));
  EXPECT_EQ(group->selection(), CleanupEntry::Selection::off);
  EXPECT_TRUE(group->paths().empty());
}

// label | udid | runtime | path, one line per simulator entry of a group.
std::vector<std::string> describeSimulators(const CleanupEntryPtr& group) {
  std::vector<std::string> lines;
  for (const auto& item : group->items()) {
    auto simulator = std::dynamic_pointer_cast<SimulatorFileEntry>(item);
    if (!simulator) {
      lines.push_back("not a simulator entry: " + item->label());
      continue;
    }
    EXPECT_EQ(simulator->selection(), CleanupEntry::Selection::off);
    EXPECT_EQ(simulator->parent(), group);
    std::string paths;
    for (const auto& path : simulator->paths()) paths += path.filename().string() + ";";
    lines.push_back(simulator->label() + " | " + simulator->udid() + " | " + simulator->runtime() + " | " + paths);
  }
  return lines;
}

TEST(RuntimeDisplayName, TurnsIdentifiersIntoPlatformAndVersion) {
  EXPECT_EQ(simulators::runtimeDisplayName(kIOS17), "iOS 17.4");
  EXPECT_EQ(simulators::runtimeDisplayName(kWatch10), "watchOS 10.2");
  EXPECT_EQ(simulators::runtimeDisplayName("com.apple.CoreSimulator.SimRuntime.tvOS-18-0"), "tvOS 18.0");
  EXPECT_EQ(simulators::runtimeDisplayName("com.apple.CoreSimulator.SimRuntime.xrOS-1-2"), "visionOS 1.2");
  EXPECT_EQ(simulators::runtimeDisplayName("com.apple.CoreSimulator.SimRuntime.visionOS-2-0"), "visionOS 2.0");
  EXPECT_EQ(simulators::runtimeDisplayName("com.apple.CoreSimulator.SimRuntime.iOS-26-0-1"), "iOS 26.0.1");
  // Unknown platforms keep their dots; foreign identifiers pass through with "-" as ".".
  EXPECT_EQ(simulators::runtimeDisplayName("com.apple.CoreSimulator.SimRuntime.macOS-15-0"), "macOS.15.0");
  EXPECT_EQ(simulators::runtimeDisplayName("org.example.runtime-1"), "org.example.runtime.1");
  EXPECT_EQ(simulators::runtimeDisplayName(""), "");
}

TEST_F(SimulatorScan, InstalledRuntimesComeFromEveryVolumesRuntimeBundles) {
  installRuntime("iOS_21E213", "iOS 17.4", kIOS17, Format::xml);
  installRuntime("watchOS_21S364", "watchOS 10.2", kWatch10, Format::binary);
  installRuntime("watchOS_21S364", "Second", "com.example.Second");
  // Not a runtime bundle, a bundle without Info.plist, one without a text identifier, a
  // hidden volume and a volume without runtimes: none adds anything.
  installRuntime("iOS_21E213", "Notes.bundle", "com.example.not-a-runtime");
  std::filesystem::rename(runtimesFolder("iOS_21E213") / "Notes.bundle.simruntime",
                          runtimesFolder("iOS_21E213") / "Notes.bundle");
  std::filesystem::create_directories(runtimesFolder("iOS_21E213") / "Empty.simruntime" / "Contents");
  plist_t numeric = plist_new_dict();
  plist_dict_set_item(numeric, "CFBundleIdentifier", plist_new_uint(17));
  writePlist(runtimesFolder("iOS_21E213") / "Numeric.simruntime/Contents/Info.plist", numeric, Format::xml);
  writeFile(runtimesFolder("iOS_21E213") / "Corrupt.simruntime/Contents/Info.plist", "<?xml garbage");
  installRuntime(".Hidden", "tvOS 17.0", "com.apple.CoreSimulator.SimRuntime.tvOS-17-0");
  std::filesystem::create_directories(volumes / "EmptyVolume");

  LogCapture log;
  EXPECT_EQ(simulators::installedRuntimeIdentifiers(), (std::set<std::string>{kIOS17, kWatch10, "com.example.Second"}));
  EXPECT_EQ(log.lines(), std::vector<std::string>{});
}

TEST_F(SimulatorScan, WithoutReadableVolumesNoDeviceIsUnavailableButClonesAndCachesStay) {
  coreSimulatorDevice("AAAA", {.name = "iPhone 15", .runtime = kIOS16});
  xctestDevice("CLONE", {.name = "Clone 1 of iPhone 15", .runtime = kIOS16});
  writeFile(developer / "CoreSimulator/Caches/dyld/21E213/dyld_sim_shared_cache_arm64e", "cache");

  {
    LogCapture log;
    EXPECT_TRUE(simulators::unavailableSimulators(developer).empty());
    EXPECT_EQ(
        log.lines(),
        (std::vector<std::string>{
            "\u26A0\uFE0F DevFiles: Cannot list CoreSimulator Volumes (path: " + volumes.string() + ")",
            "\u2755 DevFiles: Found 0 installed simulator runtime(s)",
            "\u26A0\uFE0F \u26A0\uFE0F DevFiles: Cannot read CoreSimulator Volumes \u2013 skipping simulator scan",
        }));
  }
  {
    // Volumes that list but hold no runtime: the same outcome, without the listing warning.
    std::filesystem::create_directories(volumes / "iOS_21E213");
    ::chmod(volumes.c_str(), 0755);
    LogCapture log;
    EXPECT_TRUE(simulators::unavailableSimulators(developer).empty());
    EXPECT_EQ(log.lines().size(), 2u);
  }
  {
    // An unreadable volumes folder is the same as a missing one.
    std::filesystem::remove_all(volumes / "iOS_21E213");
    installRuntime("iOS_21E213", "iOS 17.4", kIOS17);
    ::chmod(volumes.c_str(), 0);
    if (::access(volumes.c_str(), R_OK) != 0) {  // root reads everything
      LogCapture log;
      EXPECT_TRUE(simulators::unavailableSimulators(developer).empty());
      ASSERT_FALSE(log.lines().empty());
      EXPECT_EQ(log.lines().front(),
                "\u26A0\uFE0F DevFiles: Cannot list CoreSimulator Volumes (path: " + volumes.string() + ")");
    }
    ::chmod(volumes.c_str(), 0755);
  }
  EXPECT_EQ(simulators::xctestClones(developer).size(), 1u);
  EXPECT_EQ(simulators::dyldCaches(developer).size(), 1u);
}

TEST_F(SimulatorScan, UnavailableDevicesAreThoseWhoseRuntimeIsGone) {
  installRuntime("iOS_21E213", "iOS 17.4", kIOS17);
  installRuntime("watchOS_21S364", "watchOS 10.2", kWatch10, Format::binary);

  coreSimulatorDevice("0001", {.name = "iPhone 15 Pro", .runtime = kIOS17});  // installed: never listed
  coreSimulatorDevice("0002", {.name = "iPhone 14", .runtime = kIOS16});
  coreSimulatorDevice("0003", {.name = "Apple Watch", .runtime = kWatch10, .format = Format::binary});
  coreSimulatorDevice("0004", {.name = "iPad mini", .runtime = kIOS16, .format = Format::binary});
  coreSimulatorDevice("0005", {.name = "Deleted iPhone", .runtime = kIOS16, .isDeleted = true});
  coreSimulatorDevice(
      "0006",
      {.name = "Apple Vision Pro", .runtime = "com.apple.CoreSimulator.SimRuntime.xrOS-1-2", .isDeleted = false});
  coreSimulatorDevice("0007", {.name = "iPhone 14", .runtime = "com.apple.CoreSimulator.SimRuntime.iOS-15-5"});
  coreSimulatorDevice("0008", {.runtime = kIOS16});     // no name
  coreSimulatorDevice("0009", {.name = "No runtime"});  // no runtime
  writeDevice(developer / "CoreSimulator/Devices/0010", {.name = "No UDID", .runtime = kIOS16});
  writeFile(developer / "CoreSimulator/Devices/0011/device.plist", "bplist00 truncated");
  std::filesystem::create_directories(developer / "CoreSimulator/Devices/0012");  // no record at all
  coreSimulatorDevice(".0013", {.name = "Hidden", .runtime = kIOS16});
  writeFile(developer / "CoreSimulator/Devices/device_set.plist", "<plist/>");
  plist_t array = plist_new_array();
  writePlist(developer / "CoreSimulator/Devices/0014/device.plist", array, Format::xml);

  LogCapture log;
  auto result = simulators::unavailableSimulators(developer);
  ASSERT_EQ(result.size(), 1u);
  expectGroup(result[0], "Unavailable", "Unavailable", false);
  EXPECT_EQ(describeSimulators(result[0]), (std::vector<std::string>{
                                               "Apple Vision Pro | 0006 | visionOS 1.2 | 0006;",
                                               "iPad mini | 0004 | iOS 16.4 | 0004;",
                                               "iPhone 14 | 0002 | iOS 16.4 | 0002;",
                                               "iPhone 14 | 0007 | iOS 15.5 | 0007;",
                                           }));
  EXPECT_EQ(log.lines(), (std::vector<std::string>{
                             "\u2755 DevFiles: Found 2 installed simulator runtime(s)",
                             "\u2755 DevFiles: Unavailable simulator: iPhone 14 (iOS 16.4)",
                             "\u2755 DevFiles: Unavailable simulator: iPad mini (iOS 16.4)",
                             "\u2755 DevFiles: Unavailable simulator: Apple Vision Pro (visionOS 1.2)",
                             "\u2755 DevFiles: Unavailable simulator: iPhone 14 (iOS 15.5)",
                         }));
}

TEST_F(SimulatorScan, DevicesFolderProblemsGiveNothing) {
  installRuntime("iOS_21E213", "iOS 17.4", kIOS17);
  {
    LogCapture log;
    EXPECT_TRUE(simulators::unavailableSimulators(developer).empty());
    EXPECT_EQ(log.lines(), (std::vector<std::string>{
                               "\u2755 DevFiles: Found 1 installed simulator runtime(s)",
                               "\u26A0\uFE0F \u26A0\uFE0F DevFiles: Cannot read CoreSimulator Devices directory",
                           }));
  }
  // Every device uses an installed runtime: no group at all.
  coreSimulatorDevice("0001", {.name = "iPhone 15 Pro", .runtime = kIOS17});
  EXPECT_TRUE(simulators::unavailableSimulators(developer).empty());
}

TEST_F(SimulatorScan, ClonesAreListedWhateverTheirRuntime) {
  installRuntime("iOS_21E213", "iOS 17.4", kIOS17);
  xctestDevice("C3", {.name = "Clone 2 of iPhone 15", .runtime = kIOS17});
  xctestDevice("C1", {.name = "Clone 1 of iPhone 15", .runtime = kIOS16, .format = Format::binary});
  xctestDevice("C2", {.name = "Clone 1 of Apple Watch", .runtime = kWatch10});
  xctestDevice("C4", {.name = "Deleted clone", .runtime = kIOS17, .isDeleted = true});
  xctestDevice("C5", {.runtime = kIOS17});
  writeFile(developer / "XCTestDevices/C6/device.plist", "not a property list");

  LogCapture log;
  auto result = simulators::xctestClones(developer);
  ASSERT_EQ(result.size(), 1u);
  expectGroup(result[0], "Clones", "Clones", false);
  EXPECT_EQ(describeSimulators(result[0]), (std::vector<std::string>{
                                               "Clone 1 of Apple Watch | C2 | watchOS 10.2 | C2;",
                                               "Clone 1 of iPhone 15 | C1 | iOS 16.4 | C1;",
                                               "Clone 2 of iPhone 15 | C3 | iOS 17.4 | C3;",
                                           }));
  EXPECT_EQ(log.lines(), (std::vector<std::string>{
                             "\u2755 DevFiles: XCTest clone: Clone 1 of iPhone 15 (iOS 16.4)",
                             "\u2755 DevFiles: XCTest clone: Clone 1 of Apple Watch (watchOS 10.2)",
                             "\u2755 DevFiles: XCTest clone: Clone 2 of iPhone 15 (iOS 17.4)",
                         }));

  std::filesystem::remove_all(developer / "XCTestDevices");
  LogCapture quiet;
  EXPECT_TRUE(simulators::xctestClones(developer).empty());
  EXPECT_EQ(quiet.lines(), std::vector<std::string>{});
}

TEST_F(SimulatorScan, DyldCachesAreListedInFinderOrder) {
  const auto dyld = developer / "CoreSimulator/Caches/dyld";
  EXPECT_TRUE(simulators::dyldCaches(developer).empty());  // no folder
  std::filesystem::create_directories(dyld);
  EXPECT_TRUE(simulators::dyldCaches(developer).empty());  // empty folder

  for (const char* name : {"iOS 10", "iOS 9", "b-cache", "A-cache"}) writeFile(dyld / name / "cache", "x");
  writeFile(dyld / "loose-file", "x");
  writeFile(dyld / ".DS_Store", "x");

  auto result = simulators::dyldCaches(developer);
  ASSERT_EQ(result.size(), 1u);
  expectGroup(result[0], "Dyld Caches",
              "Dyld shared caches of simulator runtimes, safe to remove as they are recreated when needed.", true);
  std::vector<std::string> labels;
  for (const auto& item : result[0]->items()) {
    labels.push_back(item->label());
    EXPECT_EQ(item->paths(), std::vector<std::filesystem::path>{dyld / item->label()});
    EXPECT_EQ(item->tooltipText(),
              "Dyld shared caches generated for simulator runtimes. Recreated when a simulator boots again.");
    EXPECT_EQ(item->icon(), CleanupEntry::Icon::system(systemImage::folder));
    EXPECT_EQ(item->selection(), CleanupEntry::Selection::off);
  }
  EXPECT_EQ(labels, (std::vector<std::string>{"A-cache", "b-cache", "iOS 9", "iOS 10", "loose-file"}));
}

}  // namespace
}  // namespace tw
