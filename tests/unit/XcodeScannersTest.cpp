#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "model/XcodeEntries.h"
#include "scan/DevFiles.h"
#include "scan/Scanners.h"
#include "support/DeveloperFolderFixture.h"
#include "support/TempDir.h"
#include "support/Unprivileged.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using test::ArchiveDistributions;
using test::ArchiveInfo;
using test::CapturedLog;
using test::DeveloperFolderFixture;
using test::PropertyListFormat;
using test::TempDir;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class XcodeScanners : public ::testing::Test {
 protected:
  XcodeScanners() : fixture(temp / "Library/Developer") {}

  std::shared_ptr<DevFiles> devFiles(std::optional<fs::path> customDerivedData = std::nullopt,
                                     std::optional<fs::path> customArchives = std::nullopt) {
    auto driver = DevFiles::create(fixture.developerFolder(), customDerivedData, customArchives);
    EXPECT_NE(driver, nullptr);
    return driver;
  }

  template <class Kind>
  static std::shared_ptr<Kind> as(const CleanupEntryPtr& entry) {
    auto kind = std::dynamic_pointer_cast<Kind>(entry);
    EXPECT_NE(kind, nullptr) << entry->label();
    return kind;
  }

  static std::vector<std::string> labels(const std::vector<CleanupEntryPtr>& entries) {
    std::vector<std::string> result;
    for (const auto& entry : entries) result.push_back(entry->label());
    return result;
  }

  TempDir temp;
  DeveloperFolderFixture fixture;
};

// --- Device support ------------------------------------------------------------------------------

const CleanupEntryPtr& group(const std::vector<CleanupEntryPtr>& groups, const std::string& label) {
  auto found = std::find_if(groups.begin(), groups.end(), [&](const auto& entry) { return entry->label() == label; });
  EXPECT_NE(found, groups.end()) << label;
  return *found;
}

TEST_F(XcodeScanners, DeviceSupportMergesArchitectureFoldersIntoThePlainOne) {
  const fs::path plain = fixture.addDeviceSupport("iOS", "17.4 (21E219)");
  const fs::path arm = fixture.addDeviceSupport("iOS", "17.4 (21E219) arm64e");
  const fs::path otherBuild = fixture.addDeviceSupport("iOS", "17.4 (21E220) arm64e");

  const auto groups = scanDeviceSupport(*devFiles());
  const auto& items = group(groups, "iOS")->items();
  ASSERT_EQ(items.size(), 2u);
  // 21E220 sorts after 21E219, so it is newer and first; it has no plain twin and stays alone.
  auto newest = as<DeviceSupportFileEntry>(items[0]);
  EXPECT_EQ(newest->architecture(), "arm64e");
  EXPECT_THAT(newest->paths(), ElementsAre(otherBuild));
  auto merged = as<DeviceSupportFileEntry>(items[1]);
  EXPECT_FALSE(merged->architecture().has_value());
  EXPECT_THAT(merged->paths(), ElementsAre(plain, arm));
  EXPECT_EQ(merged->label(), "iOS 17.4 (21E219)");
}

TEST_F(XcodeScanners, DeviceSupportReadsDevicesBuildsAndArchitecturesFromNames) {
  fixture.addDeviceSupport("iOS", "iPhone15,2 17.4 (21E219) arm64e");
  fixture.addDeviceSupport("iOS", "16.4");
  fixture.addDeviceSupport("watchOS", "Watch6,1 10.2");

  const auto groups = scanDeviceSupport(*devFiles());
  const auto& ios = group(groups, "iOS")->items();
  ASSERT_EQ(ios.size(), 2u);
  auto withDevice = as<DeviceSupportFileEntry>(ios[0]);
  EXPECT_EQ(withDevice->device(), "iPhone15,2");
  EXPECT_EQ(withDevice->version().toString(), "17.4");
  ASSERT_TRUE(withDevice->build().has_value());
  EXPECT_EQ(withDevice->build()->toString(), "(21E219)");
  EXPECT_EQ(withDevice->architecture(), "arm64e");
  EXPECT_EQ(withDevice->osType(), DeviceSupportFileEntry::OSType::iOS);

  auto bare = as<DeviceSupportFileEntry>(ios[1]);
  EXPECT_FALSE(bare->device().has_value());
  EXPECT_FALSE(bare->build().has_value());
  EXPECT_FALSE(bare->architecture().has_value());

  const auto& watch = group(groups, "watchOS")->items();
  ASSERT_EQ(watch.size(), 1u);
  EXPECT_EQ(as<DeviceSupportFileEntry>(watch[0])->device(), "Watch6,1");
  EXPECT_EQ(as<DeviceSupportFileEntry>(watch[0])->osType(), DeviceSupportFileEntry::OSType::watchOS);
}

TEST_F(XcodeScanners, DeviceSupportSkipsNamesWithoutVersionAndLogsThem) {
  fixture.addDeviceSupport("iOS", "Latest");
  fixture.addDeviceSupport("iOS", "iPhone15,2 latest (21E219)");
  fixture.addDeviceSupport("iOS", "17.0 (21A329)\nsecond line");
  fixture.addDeviceSupport("iOS", "17.1 \xF0\x9F\x93\xB1 arm64e");
  fs::create_directories(fixture.xcode() / "iOS DeviceSupport" / "   ");
  CapturedLog log;

  const auto groups = scanDeviceSupport(*devFiles());
  const auto noVersion = log.linesStartingWith("DevFiles: No version for device support: ");
  ASSERT_EQ(noVersion.size(), 2u);
  EXPECT_THAT(noVersion[0].text, HasSubstr("No version for device support: Latest, skipping"));
  EXPECT_THAT(noVersion[1].text, HasSubstr("iPhone15,2 latest (21E219), skipping"));
  EXPECT_EQ(noVersion[0].level, Logger::Level::warning);
  // Odd but versioned names still make entries: the new line stays inside the build word.
  const auto& items = group(groups, "iOS")->items();
  ASSERT_EQ(items.size(), 2u);
  EXPECT_EQ(as<DeviceSupportFileEntry>(items[0])->version().toString(), "17.1");
  EXPECT_EQ(as<DeviceSupportFileEntry>(items[0])->build()->toString(), "\xF0\x9F\x93\xB1");
  EXPECT_EQ(as<DeviceSupportFileEntry>(items[1])->build()->toString(), "(21A329)\nsecond");
}

TEST_F(XcodeScanners, DeviceSupportAlwaysReturnsFiveGroupsAndWarnsForEachMissingFolder) {
  for (const char* os : {"iOS", "watchOS", "visionOS", "macOS"})
    fs::create_directories(fixture.xcode() / (std::string(os) + " DeviceSupport"));
  CapturedLog log;

  const auto groups = scanDeviceSupport(*devFiles());
  EXPECT_THAT(labels(groups), ElementsAre("iOS", "watchOS", "tvOS", "visionOS", "macOS"));
  for (const auto& entry : groups) {
    EXPECT_TRUE(entry->items().empty());
    EXPECT_EQ(entry->selection(), CleanupEntry::Selection::on);
    EXPECT_EQ(entry->tooltipText(), entry->label());
  }
  EXPECT_EQ(group(groups, "tvOS")->icon(), CleanupEntry::Icon::image("Devices/AppleTVIcon"));
  const auto warnings = log.linesStartingWith("DevFiles: Cannot check contents of '");
  ASSERT_EQ(warnings.size(), 1u);
  EXPECT_THAT(warnings[0].text, HasSubstr("'" + (fixture.xcode() / "tvOS DeviceSupport").string() + "', skipping"));
}

TEST_F(XcodeScanners, DeviceSupportSortsNewestFirstByVersionThenBuild) {
  fixture.addDeviceSupport("iOS", "16.4 (20E247)");
  fixture.addDeviceSupport("iOS", "17.0 (21A329)");
  fixture.addDeviceSupport("iOS", "17.0.1 (21A340)");
  fixture.addDeviceSupport("iOS", "17.0 (21A5248p)");
  fixture.addDeviceSupport("iOS", "17.0.0");

  const auto groups = scanDeviceSupport(*devFiles());
  std::vector<std::string> order;
  for (const auto& entry : group(groups, "iOS")->items()) order.push_back(entry->paths().front().filename().string());
  // 17.0 and 17.0.0 are one release; the build breaks the tie (no build counts as the empty one).
  EXPECT_THAT(order, ElementsAre("17.0.1 (21A340)", "17.0 (21A5248p)", "17.0 (21A329)", "17.0.0", "16.4 (20E247)"));
  for (const auto& entry : group(groups, "iOS")->items()) EXPECT_EQ(entry->selection(), CleanupEntry::Selection::off);
}

// --- Archives ------------------------------------------------------------------------------------

ArchiveInfo archive(std::string name, std::string version, std::string build,
                    ArchiveDistributions distributions = ArchiveDistributions::missing) {
  ArchiveInfo info;
  info.name = std::move(name);
  info.shortVersion = std::move(version);
  info.bundleVersion = std::move(build);
  info.distributions = distributions;
  return info;
}

TEST_F(XcodeScanners, ArchivesReadEverySubmissionStateFromXmlAndBinaryLists) {
  struct Case {
    ArchiveDistributions distributions;
    ArchiveFileEntry::SubmissionStatus status;
  };
  const std::vector<Case> cases{
      {ArchiveDistributions::missing, ArchiveFileEntry::SubmissionStatus::undefined},
      {ArchiveDistributions::notAnArray, ArchiveFileEntry::SubmissionStatus::undefined},
      {ArchiveDistributions::notDictionaries, ArchiveFileEntry::SubmissionStatus::undefined},
      {ArchiveDistributions::empty, ArchiveFileEntry::SubmissionStatus::failure},
      {ArchiveDistributions::allFailed, ArchiveFileEntry::SubmissionStatus::failure},
      {ArchiveDistributions::oneSucceeded, ArchiveFileEntry::SubmissionStatus::success},
  };
  for (auto format : {PropertyListFormat::xml, PropertyListFormat::binary}) {
    for (size_t index = 0; index < cases.size(); ++index) {
      const std::string name = "App" + std::to_string(index) + (format == PropertyListFormat::xml ? "x" : "b");
      fixture.addArchive("2024-01-01", name, archive(name, "1.0", "1", cases[index].distributions), format);
    }
  }

  const auto groups = scanArchives(*devFiles());
  ASSERT_EQ(groups.size(), 2 * cases.size());
  for (const auto& projectGroup : groups) {
    ASSERT_EQ(projectGroup->items().size(), 1u);
    auto entry = as<ArchiveFileEntry>(projectGroup->items()[0]);
    const size_t index = static_cast<size_t>(projectGroup->label()[3] - '0');
    EXPECT_EQ(entry->submissionStatus(), cases[index].status) << projectGroup->label();
    EXPECT_EQ(entry->projectName(), projectGroup->label());
    EXPECT_EQ(entry->bundleName(), "com.example.app");
    EXPECT_EQ(std::chrono::system_clock::to_time_t(entry->date()), 1700000000);
    EXPECT_EQ(entry->selection(), CleanupEntry::Selection::off);
    EXPECT_EQ(projectGroup->icon(), CleanupEntry::Icon::image("Files/XCArchive"));
  }
  // The marks in the labels: the failed case shows a cross, the never-submitted case nothing.
  EXPECT_EQ(group(groups, "App4x")->items()[0]->label(), "1.0 (1) \u274C");
  EXPECT_EQ(group(groups, "App0b")->items()[0]->label(), "1.0 (1) ");
  EXPECT_EQ(group(groups, "App5b")->items()[0]->label(), "1.0 (1) \u2705");
}

TEST_F(XcodeScanners, ArchivesWithIncompleteInfoAreSkippedWithTheirOwnLine) {
  struct Case {
    std::string name;
    ArchiveInfo info;
    std::string message;
    Logger::Level level = Logger::Level::warning;
  };
  std::vector<Case> cases;
  auto add = [&](std::string name, auto change, std::string message, Logger::Level level = Logger::Level::warning) {
    ArchiveInfo info = archive("Broken", "1.0", "1");
    change(info);
    cases.push_back({std::move(name), info, std::move(message), level});
  };
  add(
      "NoName", [](ArchiveInfo& info) { info.name.reset(); }, "DevFiles: Cannot get project name from archive: ");
  add(
      "NumberName", [](ArchiveInfo& info) { info.nameAsNumber = true; },
      "DevFiles: Cannot get project name from archive: ");
  add(
      "NoDate", [](ArchiveInfo& info) { info.creationDate.reset(); },
      "DevFiles: Cannot get archive date from archive: ");
  add(
      "NoProperties", [](ArchiveInfo& info) { info.applicationProperties = false; },
      "DevFiles: Cannot get 'ApplicationProperties' from archive Info.plist file: ");
  add(
      "NoBundle", [](ArchiveInfo& info) { info.bundleIdentifier.reset(); },
      "DevFiles: Cannot get bundle name from archive: ");
  add(
      "NoVersion", [](ArchiveInfo& info) { info.shortVersion.reset(); },
      "DevFiles: Cannot get bundle version from archive: ", Logger::Level::info);
  add(
      "NoBuild", [](ArchiveInfo& info) { info.bundleVersion.reset(); },
      "DevFiles: Cannot get bundle build from archive: ");
  std::vector<fs::path> paths;
  for (const auto& broken : cases) paths.push_back(fixture.addArchive("2024-02-02", broken.name, broken.info));
  const fs::path corrupt = fixture.addArchive("2024-02-02", "Corrupt", archive("Broken", "1.0", "1"));
  test::writeFile(corrupt / "Info.plist", "<?xml version=\"1.0\"?><plist><dict><key>Name</key><string>Half");
  const fs::path missing = fs::path(fixture.xcode() / "Archives/2024-02-02/Missing.xcarchive");
  fs::create_directories(missing);
  const fs::path notADictionary = fixture.addArchive("2024-02-02", "Array", archive("Broken", "1.0", "1"));
  test::writeFile(notADictionary / "Info.plist",
                  "<?xml version=\"1.0\"?><plist version=\"1.0\"><array><string>x</string></array></plist>");
  fixture.addArchive("2024-02-02", "Good", archive("Fine", "1.0", "1"));
  CapturedLog log;

  const auto groups = scanArchives(*devFiles());
  EXPECT_THAT(labels(groups), ElementsAre("Fine"));
  for (size_t index = 0; index < cases.size(); ++index) {
    const auto lines = log.linesStartingWith(cases[index].message + paths[index].string());
    ASSERT_EQ(lines.size(), 1u) << cases[index].name;
    EXPECT_EQ(lines[0].level, cases[index].level) << cases[index].name;
  }
  for (const fs::path& unreadable : {corrupt, missing, notADictionary}) {
    EXPECT_EQ(
        log.linesStartingWith("DevFiles: Cannot open Info.plist file from archive: " + unreadable.string()).size(), 1u)
        << unreadable;
  }
}

TEST_F(XcodeScanners, ArchivesAreGroupedByProjectAndSortedNewestFirst) {
  fixture.addArchive("2024-01-01", "A 1.9", archive("Alpha", "1.9", "90"));
  fixture.addArchive("2024-01-02", "A 1.10", archive("Alpha", "1.10", "100"));
  fixture.addArchive("2024-01-02", "B beta", archive("Beta", "2.0 beta", "1"), PropertyListFormat::binary);
  fixture.addArchive("2024-01-03", "A 1.10 b", archive("Alpha", "1.10", "99"));
  fixture.addArchive("2024-01-03", "A 1.10.0 c", archive("Alpha", "1.10.0", "101"));
  fixture.addArchive("2024-01-03", "B rc", archive("Beta", "2.0 rc 10", "2"));
  fixture.addArchive("2024-01-03", "B rc9", archive("Beta", "2.0 rc 9", "3"));
  // Not archives: another extension, and an archive lying directly in the root.
  test::writeFileOfSize(fixture.xcode() / "Archives/2024-01-03/notes.txt", 10);
  fixture.addArchive(".", "Stray", archive("Stray", "1.0", "1"));

  const auto groups = scanArchives(*devFiles());
  ASSERT_THAT(labels(groups), ElementsAre("Alpha", "Beta"));
  std::vector<std::string> alpha;
  for (const auto& entry : groups[0]->items()) alpha.push_back(as<ArchiveFileEntry>(entry)->build());
  // 1.10 and 1.10.0 are the same version: builds decide, compared as numbers.
  EXPECT_THAT(alpha, ElementsAre("101", "100", "99", "90"));
  std::vector<std::string> beta;
  for (const auto& entry : groups[1]->items()) beta.push_back(as<ArchiveFileEntry>(entry)->versionString());
  EXPECT_THAT(beta, ElementsAre("2.0 rc 10", "2.0 rc 9", "2.0 beta"));
}

TEST_F(XcodeScanners, ArchivesIncludeACustomFolderOnce) {
  TempDir custom;
  fixture.addArchive("2024-01-01", "Std", archive("Standard", "1.0", "1"));
  fixture.addArchive("2024-05-05", "Own", archive("Custom", "3.0", "3"), PropertyListFormat::binary, custom.path());

  EXPECT_THAT(labels(scanArchives(*devFiles(std::nullopt, custom.path()))), ElementsAre("Standard", "Custom"));
  // The standard folder named again (with a trailing separator) is not scanned twice.
  const fs::path standardAgain = fixture.xcode() / "Archives" / "";
  const auto groups = scanArchives(*devFiles(std::nullopt, standardAgain));
  ASSERT_THAT(labels(groups), ElementsAre("Standard"));
  EXPECT_EQ(groups[0]->items().size(), 1u);
}

// --- Derived data --------------------------------------------------------------------------------

TEST_F(XcodeScanners, DerivedDataNamesProjectsAndPointsAtTheirWorkspaces) {
  const fs::path xml = fixture.addDerivedData("Sea_Lion-abcdefghij", "/Users/dev/Sea Lion/Sea Lion.xcodeproj",
                                              3 * 1024 * 1024, PropertyListFormat::xml);
  const fs::path binary = fixture.addDerivedData("my-great-app-klmnopqrst", "/Users/dev/great/App.xcworkspace",
                                                 1024 * 1024, PropertyListFormat::binary);
  fixture.addDerivedData("ModuleCache", std::nullopt, 1024);
  const fs::path odd = fixture.addDerivedData("Caf\u00e9_\u00dcber\nZweite-hash", "/Users/d\u00e9v/Caf\u00e9.xcodeproj",
                                              4096, PropertyListFormat::binary);

  const auto entries = scanDerivedData(*devFiles());
  ASSERT_EQ(entries.size(), 3u);
  auto unicode = as<DerivedDataFileEntry>(entries[2]);
  EXPECT_EQ(unicode->projectName(), "Caf\u00e9 \u00dcber\nZweite");
  EXPECT_EQ(unicode->pathUrl(), fs::path("/Users/d\u00e9v/Caf\u00e9.xcodeproj"));
  EXPECT_THAT(unicode->paths(), ElementsAre(odd));
  auto first = as<DerivedDataFileEntry>(entries[0]);
  EXPECT_EQ(first->projectName(), "Sea Lion");
  EXPECT_EQ(first->pathUrl(), fs::path("/Users/dev/Sea Lion/Sea Lion.xcodeproj"));
  EXPECT_THAT(first->paths(), ElementsAre(xml));
  auto second = as<DerivedDataFileEntry>(entries[1]);
  EXPECT_EQ(second->projectName(), "my-great-app");
  EXPECT_THAT(second->paths(), ElementsAre(binary));
  // Measured while scanning, larger first.
  EXPECT_FALSE(first->size().isUnknown());
  EXPECT_GT(first->size(), second->size());
  EXPECT_GE(second->size().bytesOrZero(), 1024 * 1024);
}

TEST_F(XcodeScanners, DerivedDataWithoutWorkspaceGoesUnderOther) {
  const fs::path noInfo = fixture.addDerivedData("Lost_Project-hashhashhash", std::nullopt, 2 * 1024 * 1024);
  const fs::path wrongType = fixture.addDerivedData("Typed-hash", std::nullopt, 4096);
  test::writeFile(wrongType / "info.plist",
                  "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>WorkspacePath</key><integer>4</integer>"
                  "</dict></plist>");
  const fs::path garbage = fixture.addDerivedData("single", std::nullopt, 4096);
  test::writeFile(garbage / "info.plist", std::string("bplist00\x01\x02\x03", 11));
  const fs::path dashes = fixture.addDerivedData("-odd-", std::nullopt, 4096);
  fixture.addDerivedData("Known-hash", "/w/Known.xcodeproj", 4096);

  const auto entries = scanDerivedData(*devFiles());
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0]->label(), "Known");
  const auto& other = entries[1];
  EXPECT_EQ(other->label(), "Other");
  EXPECT_EQ(other->tooltipText(), "Other");
  EXPECT_FALSE(other->size().isUnknown());
  std::vector<std::string> names;
  for (const auto& entry : other->items()) {
    auto derived = as<DerivedDataFileEntry>(entry);
    names.push_back(derived->projectName());
    EXPECT_EQ(derived->pathUrl(), derived->paths().front());
  }
  EXPECT_THAT(names, ElementsAre("-odd-", "Lost Project", "Typed", "single"));
}

TEST_F(XcodeScanners, DerivedDataReadsACustomFolderToo) {
  TempDir custom;
  fixture.addDerivedData("Std-hash", "/w/Std.xcodeproj", 1024 * 1024);
  const fs::path own = fixture.addDerivedData("Own-hash", "/w/Own.xcodeproj", 2 * 1024 * 1024,
                                              PropertyListFormat::binary, custom.path());
  const auto entries = scanDerivedData(*devFiles(custom.path()));
  ASSERT_EQ(labels(entries), (std::vector<std::string>{"Own", "Std"}));
  EXPECT_THAT(entries[0]->paths(), ElementsAre(own));
}

// --- Documentation caches, user data, device logs ------------------------------------------------

TEST_F(XcodeScanners, DocumentationCachesOfOneVersionBecomeOneEntry) {
  const fs::path first = fixture.addDocumentationCache("v238", "15.2");
  const fs::path second = fixture.addDocumentationCache("v239", "15.2.0");
  fixture.addDocumentationCache("v239", "16.0");
  fixture.addDocumentationCache("v239", "latest");
  CapturedLog log;

  const auto entries = scanDocumentationCache(*devFiles());
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(as<DocumentationCacheFileEntry>(entries[0])->version().toString(), "16.0");
  EXPECT_THAT(entries[1]->paths(), ElementsAre(first, second));
  EXPECT_EQ(entries[1]->selection(), CleanupEntry::Selection::off);
  EXPECT_EQ(
      log.linesStartingWith("DevFiles: Invalid Xcode version while searching for documentation caches: latest").size(),
      1u);
}

TEST_F(XcodeScanners, UserDataListsExistingFoldersLargestFirst) {
  fixture.addUserData("Previews", 64 * 1024);
  fixture.addUserData("Capabilities", 256 * 1024);

  const auto entries = scanUserDataCache(*devFiles());
  ASSERT_THAT(labels(entries), ElementsAre("Capabilities Cache", "SwiftUI Previews"));
  EXPECT_EQ(entries[0]->tooltipText(), "Downloaded capabilities metadata cache recreated by Xcode when needed.");
  EXPECT_THAT(entries[0]->paths(), ElementsAre(fixture.xcode() / "UserData/Capabilities"));
  EXPECT_GT(entries[0]->size(), entries[1]->size());

  // Equal sizes fall back to the labels.
  fixture.addUserData("IB Support/Simulator Devices", 256 * 1024);
  fs::remove_all(fixture.xcode() / "UserData/Previews");
  EXPECT_THAT(labels(scanUserDataCache(*devFiles())),
              ElementsAre("Capabilities Cache", "IB Support Simulator Devices"));
}

TEST_F(XcodeScanners, DeviceLogsPreselectEveryVersionButTheNewest) {
  const fs::path a = fixture.addDeviceLog("iOS Device Logs 17.2.db");
  const fs::path b = fixture.addDeviceLog("Logs from 17.2.0 backup.db");
  const fs::path c = fixture.addDeviceLog("iOS Device Logs 16.4.db");
  fixture.addDeviceLog("Crash Reports.db");
  CapturedLog log;

  const auto entries = scanDeviceLogs(*devFiles());
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0]->label(), "Logs from Xcode 17.2.0");
  EXPECT_THAT(entries[0]->paths(), ElementsAre(b, a));
  EXPECT_EQ(entries[0]->selection(), CleanupEntry::Selection::off);
  EXPECT_THAT(entries[1]->paths(), ElementsAre(c));
  EXPECT_EQ(entries[1]->selection(), CleanupEntry::Selection::on);
  const auto lines = log.linesStartingWith("DevFiles: Wrong log entry? Version not found (path: ");
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].text.substr(lines[0].text.find(' ') + 1),
            "DevFiles: Wrong log entry? Version not found (path: Crash Reports");
}

TEST_F(XcodeScanners, MissingFoldersGiveEmptyResultsWithoutCrashing) {
  EXPECT_THAT(scanArchives(*devFiles()), IsEmpty());
  EXPECT_THAT(scanDerivedData(*devFiles()), IsEmpty());
  EXPECT_THAT(scanDocumentationCache(*devFiles()), IsEmpty());
  EXPECT_THAT(scanUserDataCache(*devFiles()), IsEmpty());
  EXPECT_THAT(scanDeviceLogs(*devFiles()), IsEmpty());
  // A file where a folder belongs cannot be listed either.
  test::writeFile(fixture.xcode() / "DerivedData", "not a folder");
  test::writeFile(fixture.xcode() / "iOS Device Logs", "not a folder");
  CapturedLog log;
  EXPECT_THAT(scanDerivedData(*devFiles()), IsEmpty());
  EXPECT_THAT(scanDeviceLogs(*devFiles()), IsEmpty());
  EXPECT_EQ(
      log.linesStartingWith("DevFiles: Cannot check contents of '" + (fixture.xcode() / "DerivedData").string()).size(),
      1u);
}

TEST_F(XcodeScanners, UnreadableFoldersAndFilesAreSkippedWithALine) {
  fixture.addDeviceSupport("iOS", "17.4 (21E219)");
  fixture.addDeviceSupport("tvOS", "17.4 (21L227)");
  const fs::path locked = fixture.xcode() / "iOS DeviceSupport";
  const fs::path lockedArchive = fixture.addArchive("2024-01-01", "Locked", archive("Locked", "1.0", "1"));
  const fs::path lockedProject = fixture.addDerivedData("Locked-hash", "/w/Locked.xcodeproj", 4096);
  ASSERT_TRUE(test::handOverTree(temp.path()));
  fs::permissions(locked, fs::perms::none);
  fs::permissions(lockedArchive / "Info.plist", fs::perms::none);
  fs::permissions(lockedProject / "info.plist", fs::perms::none);

  auto failures = test::runUnprivileged(temp.path(), [&]() -> std::string {
    CapturedLog log;
    const auto groups = scanDeviceSupport(*devFiles());
    const auto archives = scanArchives(*devFiles());
    const auto derivedData = scanDerivedData(*devFiles());
    std::string problems;
    auto check = [&](bool ok, const char* what) {
      if (!ok) problems += std::string(what) + "\n";
    };
    check(group(groups, "iOS")->items().empty(), "the unreadable iOS folder gave items");
    check(group(groups, "tvOS")->items().size() == 1, "tvOS lost its item");
    check(log.linesStartingWith("DevFiles: Cannot check contents of '" + locked.string() + "', skipping").size() == 1,
          "no line for the unreadable folder");
    check(archives.empty(), "an archive with an unreadable Info.plist was listed");
    check(
        log.linesStartingWith("DevFiles: Cannot open Info.plist file from archive: " + lockedArchive.string()).size() ==
            1,
        "no line for the unreadable archive");
    // A project whose info.plist cannot be read is still listed, under "Other".
    check(derivedData.size() == 1 && derivedData[0]->label() == "Other", "the unreadable project is not under Other");
    return problems;
  });
  fs::permissions(locked, fs::perms::owner_all);
  if (!failures) GTEST_SKIP() << "no unprivileged user to run as";
  EXPECT_EQ(*failures, "");
}

}  // namespace
}  // namespace tw
