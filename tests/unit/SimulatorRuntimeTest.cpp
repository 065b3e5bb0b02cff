#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "fs/DirectorySize.h"
#include "fs/Shell.h"
#include "model/SimulatorRuntimeFileEntry.h"
#include "model/SystemImages.h"
#include "platform/Host.h"
#include "scan/DevFiles.h"
#include "scan/SimulatorScanners.h"
#include "support/StandInEnvironment.h"
#include "support/StandInTools.h"
#include "support/TempDir.h"

namespace tw {
namespace {

using test::hostWithRoot;
using test::LogCapture;
using test::readCallLog;
using test::TempDir;
using test::writeFile;

constexpr const char* kUnexpectedOutput = "\u26A0\uFE0F \u26A0\uFE0F DevCaches: Unexpected simctl runtime list output";
constexpr const char* kCannotList = "\u26A0\uFE0F \u26A0\uFE0F DevCaches: Cannot list simulator runtimes via simctl";

std::shared_ptr<SimulatorRuntimeFileEntry> asRuntime(const CleanupEntryPtr& entry) {
  auto runtime = std::dynamic_pointer_cast<SimulatorRuntimeFileEntry>(entry);
  EXPECT_NE(runtime, nullptr) << entry->label();
  return runtime;
}

class SimulatorRuntimes : public ::testing::Test {
 protected:
  TempDir root;
  std::filesystem::path callLog = root / "xcrun-calls";
  ScopedHost host{hostWithRoot(root.path())};
};

TEST_F(SimulatorRuntimes, MalformedListsGiveNothingAndOneWarning) {
  for (const char* output :
       {"", "{", "not json", "[]", "[{\"deletable\": true}]", "\"text\"", "17", "null",
        R"({"A": {"version": "17.4"}, "B": 1})", R"({"A": [], "B": {}})", R"({"A": {"version": "17.4"}} trailing)"}) {
    SCOPED_TRACE(output);
    LogCapture log;
    EXPECT_TRUE(simulators::runtimesFromList(output).empty());
    EXPECT_EQ(log.lines(), std::vector<std::string>{kUnexpectedOutput});
  }
  LogCapture log;
  EXPECT_TRUE(simulators::runtimesFromList("{}").empty());
  EXPECT_TRUE(simulators::runtimesFromList(" { } \n").empty());
  EXPECT_EQ(log.lines(), std::vector<std::string>{});
}

TEST_F(SimulatorRuntimes, RecordsBecomeEntriesWithTheToolsFacts) {
  const std::string list = R"({
    "5A3B-IOS": {
      "build": "21E213", "deletable": true, "identifier": "5A3B-IOS", "kind": "Disk Image",
      "path": "/Library/Developer/CoreSimulator/Volumes/iOS_21E213",
      "runtimeIdentifier": "com.apple.CoreSimulator.SimRuntime.iOS-17-4", "sizeBytes": 7318396928,
      "state": "Ready", "version": "17.4"
    },
    "PROTECTED": {"deletable": false, "runtimeIdentifier": "com.apple.CoreSimulator.SimRuntime.iOS-18-0",
                  "version": "18.0", "sizeBytes": 99999999999},
    "NO-DELETABLE-KEY": {"runtimeIdentifier": "com.apple.CoreSimulator.SimRuntime.xrOS-1-2", "version": "1.2",
                         "build": "21O5565d"},
    "STRANGE-DELETABLE": {"deletable": "false", "runtimeIdentifier": "com.apple.CoreSimulator.SimRuntime.tvOS-17-0",
                          "version": 17.0, "build": 21, "sizeBytes": -5},
    "com.apple.CoreSimulator.SimRuntime.watchOS-10-2": {"version": "10.2", "build": "21S364",
                                                       "sizeBytes": 3.5e9, "path": "relative/path"},
    "HUGE": {"runtimeIdentifier": "--visionOS-2-0", "sizeBytes": 18446744073709551615, "path": ""}
  })";
  LogCapture log;
  auto entries = simulators::runtimesFromList(list);
  EXPECT_EQ(log.lines(), std::vector<std::string>{});
  ASSERT_EQ(entries.size(), 5u);

  // Largest known size first; records without one keep the tool's order after them.
  std::vector<std::string> identifiers;
  for (const auto& entry : entries) identifiers.push_back(asRuntime(entry)->imageIdentifier());
  EXPECT_EQ(identifiers, (std::vector<std::string>{"5A3B-IOS", "com.apple.CoreSimulator.SimRuntime.watchOS-10-2",
                                                   "NO-DELETABLE-KEY", "STRANGE-DELETABLE", "HUGE"}));

  auto iOS = asRuntime(entries[0]);
  EXPECT_EQ(iOS->label(), "iOS 17.4");
  EXPECT_EQ(iOS->extraInfo(), "21E213");
  EXPECT_EQ(iOS->tooltipText(),
            "Simulator runtime iOS 17.4 (21E213). Removed using \"simctl runtime delete\", can be downloaded again "
            "in Xcode.");
  EXPECT_TRUE(iOS->tooltip());
  EXPECT_EQ(iOS->icon(), CleanupEntry::Icon::system(systemImage::multipleDocuments));
  EXPECT_EQ(iOS->selection(), CleanupEntry::Selection::off);
  EXPECT_EQ(iOS->knownSizeInBytes(), 7318396928);
  EXPECT_EQ(iOS->paths(),
            std::vector<std::filesystem::path>{root / "Library/Developer/CoreSimulator/Volumes/iOS_21E213"});
  EXPECT_TRUE(iOS->size().isUnknown());

  auto watch = asRuntime(entries[1]);  // no runtimeIdentifier: the key stands in
  EXPECT_EQ(watch->label(), "watchOS 10.2");
  EXPECT_EQ(watch->knownSizeInBytes(), 3500000000);
  EXPECT_TRUE(watch->paths().empty());

  auto vision = asRuntime(entries[2]);
  EXPECT_EQ(vision->label(), "xrOS 1.2");
  EXPECT_EQ(vision->extraInfo(), "21O5565d");
  EXPECT_EQ(vision->knownSizeInBytes(), std::nullopt);

  auto tv = asRuntime(entries[3]);  // wrong types count as missing
  EXPECT_EQ(tv->label(), "tvOS ");
  EXPECT_EQ(tv->extraInfo(), "");
  EXPECT_EQ(tv->tooltipText(),
            "Simulator runtime tvOS  (). Removed using \"simctl runtime delete\", can be downloaded again in Xcode.");
  EXPECT_EQ(tv->knownSizeInBytes(), std::nullopt);

  auto huge = asRuntime(entries[4]);
  EXPECT_EQ(huge->label(), "visionOS ");
  EXPECT_EQ(huge->knownSizeInBytes(), std::nullopt);
  EXPECT_TRUE(huge->paths().empty());
}

TEST_F(SimulatorRuntimes, KnownSizeNeedsNoDiskWalkOtherwiseThePathIsMeasured) {
  const auto volume = root / "Library/Developer/CoreSimulator/Volumes/iOS_21E213";
  test::writeFileOfSize(volume / "Runtime.dmg", 3 * 1024 * 1024);
  test::writeFileOfSize(volume / "nested/more", 200 * 1024);

  auto entries = simulators::runtimesFromList(R"({
    "KNOWN": {"runtimeIdentifier": "com.apple.CoreSimulator.SimRuntime.iOS-17-4", "version": "17.4",
              "sizeBytes": 123, "path": "/Library/Developer/CoreSimulator/Volumes/iOS_21E213"},
    "KNOWN-GONE": {"sizeBytes": 456, "path": "/Library/Developer/CoreSimulator/Volumes/gone"},
    "MEASURED": {"version": "17.4", "path": "/Library/Developer/CoreSimulator/Volumes/iOS_21E213"},
    "NOTHING": {"version": "1.0"}
  })");
  ASSERT_EQ(entries.size(), 4u);
  EXPECT_EQ(entries[0]->calculateSize(), CleanupEntry::Size::value(456));
  EXPECT_EQ(entries[1]->calculateSize(), CleanupEntry::Size::value(123));
  HardLinkTracker tracker;
  const int64_t onDisk = measurePath(volume, &tracker);
  EXPECT_GE(onDisk, 3 * 1024 * 1024);
  EXPECT_EQ(entries[2]->calculateSize(), CleanupEntry::Size::value(onDisk));
  EXPECT_EQ(entries[3]->calculateSize(), CleanupEntry::Size::value(0));

  // What the driver does after a scan: a parent's update asks each runtime for its size.
  auto location = std::make_shared<CleanupEntry>("Platform Runtimes", "");
  location->addItems(entries);
  for (const auto& entry : entries) entry->setSize(CleanupEntry::Size::unknown());
  EXPECT_EQ(location->updateSize(), CleanupEntry::Size::value(123 + 456 + onDisk));

  // A runtime without a path still has something to clean: the tool deletes it.
  EXPECT_FALSE(entries[3]->isEmpty());
  EXPECT_TRUE(entries[3]->hasPaths());
  entries[3]->select();
  EXPECT_EQ(entries[3]->updateSelection(), CleanupEntry::Selection::on);
}

TEST_F(SimulatorRuntimes, ListComesFromSimctlAndFailuresAreWarnedAbout) {
  test::writeStandInXcrun(root.path(), callLog,
                          {.listOutput = R"({"A1": {"runtimeIdentifier": "com.apple.CoreSimulator.SimRuntime.iOS-17-4",
                                                    "version": "17.4", "build": "21E213"}})"});
  {
    LogCapture log;
    auto entries = simulators::simulatorRuntimes();
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0]->label(), "iOS 17.4");
    EXPECT_EQ(readCallLog(callLog), std::vector<std::string>{"simctl runtime list -j"});
    EXPECT_EQ(log.lines(), std::vector<std::string>{});
  }
  {
    test::writeStandInXcrun(root.path(), callLog,
                            {.listOutput = "xcrun: error: unable to find utility", .listStatus = 72});
    LogCapture log;
    EXPECT_TRUE(simulators::simulatorRuntimes().empty());
    EXPECT_EQ(log.lines(), std::vector<std::string>{kCannotList});
  }
  {
    test::writeStandInXcrun(root.path(), callLog, {.listOutput = "Usage: simctl runtime list"});
    LogCapture log;
    EXPECT_TRUE(simulators::simulatorRuntimes().empty());
    EXPECT_EQ(log.lines(), std::vector<std::string>{kUnexpectedOutput});
  }
  {
    std::filesystem::remove(root / "usr/bin/xcrun");
    LogCapture log;
    EXPECT_TRUE(simulators::simulatorRuntimes().empty());
    EXPECT_EQ(log.lines(), (std::vector<std::string>{
                               "\u274C Shell: Cannot run /usr/bin/xcrun: No such file or directory",
                               kCannotList,
                           }));
  }
}

TEST_F(SimulatorRuntimes, DeletingRunsSimctlAndReportsItsFailure) {
  SimulatorRuntimeFileEntry entry("5A3B-IOS", 100, "iOS 17.4", "21E213");
  entry.addPath(root / "volume");
  test::writeFileOfSize(root / "volume/Runtime.dmg", 1000);

  test::writeStandInXcrun(root.path(), callLog, {});
  EXPECT_NO_THROW(entry.deleteItem(root / "volume"));
  EXPECT_NO_THROW(entry.deleteItem(std::nullopt));
  EXPECT_EQ(readCallLog(callLog),
            (std::vector<std::string>{"simctl runtime delete 5A3B-IOS", "simctl runtime delete 5A3B-IOS"}));
  EXPECT_TRUE(std::filesystem::exists(root / "volume/Runtime.dmg"));  // the tool deletes, never we

  test::writeStandInXcrun(
      root.path(), callLog,
      {.deleteOutput = "An error was encountered processing the command (code=1):\nNot found\n", .deleteStatus = 1});
  try {
    entry.deleteItem(std::nullopt);
    ADD_FAILURE() << "no error";
  } catch (const Shell::CommandError& error) {
    EXPECT_EQ(error.command(), "simctl runtime delete 5A3B-IOS");
    EXPECT_EQ(error.output(), "An error was encountered processing the command (code=1):\nNot found\n");
    EXPECT_STREQ(error.what(),
                 "Command failed: simctl runtime delete 5A3B-IOS\nAn error was encountered processing the command "
                 "(code=1):\nNot found\n");
  }
}

// Counts what the deletion engine reports.
class RecordingDeleteDelegate : public DevFilesDeleteDelegate {
 public:
  void deleteStarted(DevFiles&) override {}
  void deletingItem(DevFiles&, const std::string& locationLabel, const std::string& itemDescription,
                    const std::optional<std::filesystem::path>& url, size_t index, size_t count) override {
    units.push_back(locationLabel + ": " + itemDescription + " (" + (url ? url->filename().string() : "-") + ") " +
                    std::to_string(index) + "/" + std::to_string(count));
  }
  void deleteFailed(DevFiles&, const std::exception& error, const std::string&, const std::string&,
                    const std::optional<std::filesystem::path>&) override {
    failures.push_back(error.what());
  }
  void deleteFinished(DevFiles&) override {}
  std::vector<std::string> units;
  std::vector<std::string> failures;
};

TEST_F(SimulatorRuntimes, DeletingSelectedRuntimesRunsOneSimctlDeletePerUnit) {
  const auto developer = root / "home/Library/Developer";
  std::filesystem::create_directories(developer / "Xcode");
  std::filesystem::create_directories(developer / "CoreSimulator");
  std::filesystem::create_directories(root / "Library/Developer/CoreSimulator/Volumes/iOS_21E213");
  test::writeStandInXcrun(root.path(), callLog, {.listOutput = R"({
    "WITH-PATH": {"runtimeIdentifier": "com.apple.CoreSimulator.SimRuntime.iOS-17-4", "version": "17.4",
                  "build": "21E213", "sizeBytes": 2000,
                  "path": "/Library/Developer/CoreSimulator/Volumes/iOS_21E213"},
    "WITHOUT-PATH": {"runtimeIdentifier": "com.apple.CoreSimulator.SimRuntime.watchOS-10-2", "version": "10.2",
                     "build": "21S364", "sizeBytes": 1000},
    "NOT-TICKED": {"runtimeIdentifier": "com.apple.CoreSimulator.SimRuntime.tvOS-17-0", "version": "17.0",
                   "build": "21J351", "sizeBytes": 500}
  })"});

  auto devFiles = DevFiles::create(developer, std::nullopt, std::nullopt);
  ASSERT_NE(devFiles, nullptr);
  devFiles->scan({DevFiles::Location::simulatorRuntimes});
  const auto& location = devFiles->entry(DevFiles::Location::simulatorRuntimes);
  ASSERT_EQ(location->items().size(), 3u);
  EXPECT_EQ(location->size(), CleanupEntry::Size::value(3500));
  location->items()[0]->select();
  location->items()[1]->select();
  for (const auto& top : devFiles->rootEntries()) top->updateSelection();
  // An entry's own size counts only when it holds a path.
  EXPECT_EQ(devFiles->selectedSize(), 2000);

  auto delegate = std::make_shared<RecordingDeleteDelegate>();
  devFiles->setDeleteDelegate(delegate);
  std::filesystem::remove(callLog);
  devFiles->deleteSelected(true);  // dry run: the tool is never asked
  EXPECT_EQ(readCallLog(callLog), std::vector<std::string>{});

  delegate->units.clear();
  devFiles->deleteSelected(false);
  EXPECT_EQ(delegate->failures, std::vector<std::string>{});
  // One unit per path, one without a path for a runtime that has none; the last child first.
  EXPECT_EQ(delegate->units, (std::vector<std::string>{"Platform Runtimes: watchOS 10.2 21S364 (-) 1/2",
                                                       "Platform Runtimes: iOS 17.4 21E213 (iOS_21E213) 2/2"}));
  EXPECT_EQ(readCallLog(callLog),
            (std::vector<std::string>{"simctl runtime delete WITHOUT-PATH", "simctl runtime delete WITH-PATH"}));
}

}  // namespace
}  // namespace tw
