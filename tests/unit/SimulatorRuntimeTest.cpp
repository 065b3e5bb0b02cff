#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "fs/DirectorySize.h"
#include "fs/Shell.h"
#include "model/SimulatorRuntimeFileEntry.h"
#include "platform/Host.h"
#include "clean/DeletionEngine.h"
#include "scan/DevFiles.h"
#include "scan/SimulatorScanners.h"
#include "support/DeveloperFolderFixture.h"
#include "support/StandInEnvironment.h"
#include "support/StandInTools.h"
#include "support/TempDir.h"

namespace tw {
namespace {

using test::LogCapture;
using test::readCallLog;

constexpr const char* kUnexpectedOutput = "\u26A0\uFE0F \u26A0\uFE0F DevCaches: Unexpected simctl runtime list output";
constexpr const char* kCannotList = "\u26A0\uFE0F \u26A0\uFE0F DevCaches: Cannot list simulator runtimes via simctl";

class SimulatorRuntimes : public ::testing::Test {
 protected:
  test::TempDir root;
  std::filesystem::path callLog = root / "xcrun-calls";
  ScopedHost host{test::hostWithRoot(root.path())};

  // identifier | label | extra info | known size | paths (below the test root), one line per entry.
  std::vector<std::string> describe(const std::vector<CleanupEntryPtr>& entries) {
    std::vector<std::string> lines;
    for (const auto& entry : entries) {
      auto runtime = std::dynamic_pointer_cast<SimulatorRuntimeFileEntry>(entry);
      if (!runtime) return {"not a runtime: " + entry->label()};
      auto size = runtime->knownSizeInBytes();
      std::string line = runtime->imageIdentifier() + " | " + runtime->label() + " | " + runtime->extraInfo() + " | " +
                         (size ? std::to_string(*size) : "-") + " |";
      for (const auto& path : runtime->paths()) {
        const auto relative = path.lexically_relative(root.path());
        line += relative.empty() || *relative.begin() == ".." ? " " + path.string() : " /" + relative.string();
      }
      lines.push_back(line);
    }
    return lines;
  }
};

TEST_F(SimulatorRuntimes, ListOutputVariants) {
  struct Case {
    std::string json;
    std::vector<std::string> entries;
    bool warned;
  };
  const std::vector<Case> cases = {
      {"", {}, true},
      {"[{\"deletable\": true}]", {}, true},
      {R"({"A": {"version": "17.4"}, "B": 1})", {}, true},  // one bad record spoils the list
      {R"({"A": {"version": "17.4"}} trailing)", {}, true},
      {R"({"A": [{"version": "17.4"}]})", {}, true},
      // Values nested inside a record are no fields, however deep.
      {R"({"A": {"version": ["17"], "path": {"p": "/x"}, "more": {"deletable": false, "sizeBytes": 1}, "deep": )" +
           std::string(100'000, '[') + std::string(100'000, ']') + "}}",
       {"A | A  |  | - |"}, false},
      {" { } \n", {}, false},
      // The tool's order, whatever the sizes. A record without "runtimeIdentifier" uses its
      // key; wrong types count as missing; sizes are signed 64-bit integers, fractions cut off.
      {R"({
        "IOS": {"build": "21E213", "deletable": true, "sizeBytes": 7318396928, "version": "17.4",
                "path": "/Library/Developer/CoreSimulator/Volumes/iOS_21E213",
                "runtimeIdentifier": "com.apple.CoreSimulator.SimRuntime.iOS-17-4"},
        "PROTECTED": {"deletable": false, "runtimeIdentifier": "com.apple.CoreSimulator.SimRuntime.iOS-18-0",
                      "version": "18.0", "sizeBytes": 99999999999},
        "NO-DELETABLE-KEY": {"runtimeIdentifier": "com.apple.CoreSimulator.SimRuntime.xrOS-1-2", "version": "1.2",
                             "build": "21O5565d"},
        "STRANGE": {"deletable": "false", "runtimeIdentifier": "com.apple.CoreSimulator.SimRuntime.tvOS-17-0",
                    "version": 17.0, "build": 21, "sizeBytes": -5},
        "com.apple.CoreSimulator.SimRuntime.watchOS-10-2": {"version": "10.2", "sizeBytes": 3.5e9,
                                                           "path": "relative/path"},
        "HUGE": {"runtimeIdentifier": "--visionOS-2-0", "sizeBytes": 18446744073709551615, "path": ""},
        "FRACTIONS": {"version": "1", "sizeBytes": 2.9}, "NEGATIVE-FRACTION": {"sizeBytes": -1.5}
      })",
       {"IOS | iOS 17.4 | 21E213 | 7318396928 | /Library/Developer/CoreSimulator/Volumes/iOS_21E213",
        "NO-DELETABLE-KEY | xrOS 1.2 | 21O5565d | - |", "STRANGE | tvOS  |  | -5 |",
        "com.apple.CoreSimulator.SimRuntime.watchOS-10-2 | watchOS 10.2 |  | 3500000000 | " +
            (std::filesystem::current_path() / "relative/path").string(),
        "HUGE | visionOS  |  | - |", "FRACTIONS | FRACTIONS 1 |  | 2 |", "NEGATIVE-FRACTION | NEGATIVE  |  | -1 |"},
       false},
      // A key given twice is one record, at its first place, with the value given last.
      {R"({"B": {"version": "1"}, "A": {}, "B": {"version": "2"}})", {"B | B 2 |  | - |", "A | A  |  | - |"}, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.json);
    LogCapture log;
    EXPECT_EQ(describe(simulators::runtimesFromList(c.json)), c.entries);
    EXPECT_EQ(log.lines(), c.warned ? std::vector<std::string>{kUnexpectedOutput} : std::vector<std::string>{});
  }
}

TEST_F(SimulatorRuntimes, KnownSizeNeedsNoDiskWalkOtherwiseThePathIsMeasured) {
  test::writeFileOfSize(root / "Volumes/iOS/Runtime.dmg", 3 * 1024 * 1024);
  auto entries = simulators::runtimesFromList(
      R"({"KNOWN": {"sizeBytes": 123, "path": "/Volumes/iOS"}, "MEASURED": {"path": "/Volumes/iOS"}, "NONE": {}})");
  ASSERT_EQ(entries.size(), 3u);
  HardLinkTracker tracker;
  EXPECT_EQ(entries[0]->calculateSize(), CleanupEntry::Size::value(123));
  EXPECT_EQ(entries[1]->calculateSize(), CleanupEntry::Size::value(measurePath(root / "Volumes/iOS", &tracker)));
  EXPECT_EQ(entries[2]->calculateSize(), CleanupEntry::Size::value(0));
}

TEST_F(SimulatorRuntimes, ListComesFromSimctlAndFailuresAreWarnedAbout) {
  test::writeStandInXcrun(root.path(), callLog,
                          {.listOutput = R"({"A1": {"runtimeIdentifier": "com.apple.CoreSimulator.SimRuntime.iOS-17-4",
                                                    "version": "17.4", "build": "21E213"}})"});
  EXPECT_EQ(describe(simulators::simulatorRuntimes()), std::vector<std::string>{"A1 | iOS 17.4 | 21E213 | - |"});
  EXPECT_EQ(readCallLog(callLog), std::vector<std::string>{"simctl runtime list -j"});

  test::writeStandInXcrun(root.path(), callLog,
                          {.listOutput = "xcrun: error: unable to find utility", .listStatus = 72});
  LogCapture log;
  EXPECT_TRUE(simulators::simulatorRuntimes().empty());
  EXPECT_EQ(log.lines(), std::vector<std::string>{kCannotList});
}

TEST_F(SimulatorRuntimes, DeletingLeavesTheFilesToTheToolAndReportsItsFailure) {
  SimulatorRuntimeFileEntry entry("5A3B-IOS", 100, "iOS 17.4", "21E213");
  test::writeFileOfSize(root / "volume/Runtime.dmg", 1000);
  test::writeStandInXcrun(root.path(), callLog, {.deleteOutput = "Not found\n", .deleteStatus = 1});
  try {
    entry.deleteItem(root / "volume");
    ADD_FAILURE() << "no error";
  } catch (const Shell::CommandError& error) {
    EXPECT_STREQ(error.what(), "Command failed: simctl runtime delete 5A3B-IOS\nNot found\n");
  }
  EXPECT_EQ(readCallLog(callLog), std::vector<std::string>{"simctl runtime delete 5A3B-IOS"});
  EXPECT_TRUE(std::filesystem::exists(root / "volume/Runtime.dmg"));
}

struct RecordingDeleteDelegate : DevFilesDeleteDelegate {
  void deleteStarted(DevFiles&) override {}
  void deletingItem(DevFiles&, const std::string& location, const std::string& item,
                    const std::optional<std::filesystem::path>& url, size_t index, size_t count) override {
    units.push_back(location + ": " + item + " (" + (url ? url->filename().string() : "-") + ") " +
                    std::to_string(index) + "/" + std::to_string(count));
  }
  void deleteFailed(DevFiles&, const std::exception& error, const std::string&, const std::string&,
                    const std::optional<std::filesystem::path>&) override {
    units.push_back(std::string("failed: ") + error.what());
  }
  void deleteFinished(DevFiles&) override {}
  std::vector<std::string> units;
};

TEST_F(SimulatorRuntimes, DeletingSelectedRuntimesRunsOneSimctlDeletePerUnit) {
  const test::DeveloperFolderFixture developer{root / "home/Library/Developer"};
  std::filesystem::create_directories(root / "Library/Developer/CoreSimulator/Volumes/iOS_21E213");
  test::writeStandInXcrun(root.path(), callLog, {.listOutput = R"({
    "WITH-PATH": {"runtimeIdentifier": "com.apple.CoreSimulator.SimRuntime.iOS-17-4", "version": "17.4",
                  "sizeBytes": 2000, "path": "/Library/Developer/CoreSimulator/Volumes/iOS_21E213"},
    "WITHOUT-PATH": {"runtimeIdentifier": "com.apple.CoreSimulator.SimRuntime.watchOS-10-2", "version": "10.2",
                     "sizeBytes": 1000},
    "NOT-TICKED": {"sizeBytes": 500}
  })"});

  auto devFiles = DevFiles::create(developer.developerFolder(), std::nullopt, std::nullopt).value_or(nullptr);
  devFiles->scan({DevFiles::Location::simulatorRuntimes});
  const auto& location = devFiles->entry(DevFiles::Location::simulatorRuntimes);
  ASSERT_EQ(location->items().size(), 3u);
  location->items()[0]->select();
  location->items()[1]->select();
  for (const auto& top : devFiles->rootEntries()) top->updateSelection();
  EXPECT_EQ(devFiles->selectedSize(), 2000);  // an entry's own size counts only when it holds a path

  auto delegate = std::make_shared<RecordingDeleteDelegate>();
  devFiles->setDeleteDelegate(delegate);
  std::filesystem::remove(callLog);
  deleteSelected(*devFiles, true);  // dry run: the tool is never asked
  EXPECT_EQ(readCallLog(callLog), std::vector<std::string>{});

  delegate->units.clear();
  deleteSelected(*devFiles, false);
  // One unit per path, one without a path for a runtime that has none; the last child first.
  EXPECT_EQ(delegate->units, (std::vector<std::string>{"Platform Runtimes: watchOS 10.2  (-) 1/2",
                                                       "Platform Runtimes: iOS 17.4  (iOS_21E213) 2/2"}));
  EXPECT_EQ(readCallLog(callLog),
            (std::vector<std::string>{"simctl runtime delete WITHOUT-PATH", "simctl runtime delete WITH-PATH"}));
}

}  // namespace
}  // namespace tw
