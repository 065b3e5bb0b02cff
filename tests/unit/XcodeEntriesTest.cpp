#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "model/AppleDevices.h"
#include "model/SystemImages.h"
#include "model/XcodeEntries.h"
#include "platform/FileDates.h"
#include "platform/TextLocale.h"
#include "support/TempDir.h"

namespace tw {
namespace {

using namespace std::chrono;
using OSType = DeviceSupportFileEntry::OSType;
using Icon = CleanupEntry::Icon;

const EntryDate kMarch4 = sys_days{year{2024} / March / 4} + hours{9} + minutes{41};

Version version(std::string_view text) { return *Version::fromString(text); }

class XcodeEntries : public ::testing::Test {
 protected:
  void SetUp() override {
    writeTable();
    devices_ = std::make_unique<ScopedAppleDevices>(AppleDevices::fromFile(dir_ / "devices.csv"));
  }

  void writeTable() { test::writeFile(dir_ / "devices.csv", "identifier,name\n\"iPhone15,2\",iPhone 14 Pro\n"); }

  ScopedTextLocale locale_{"en_US", "UTC"};
  test::TempDir dir_;
  std::unique_ptr<ScopedAppleDevices> devices_;
};

TEST_F(XcodeEntries, VersionedEntriesShowTheirVersion) {
  DeviceLogsFileEntry logs(version("17.2"), true);
  EXPECT_EQ(logs.label(), "Logs from Xcode 17.2");
  EXPECT_EQ(logs.extraInfo(), "");
  EXPECT_EQ(logs.tooltipText(), "Old logs from Xcode 17.2");
  EXPECT_EQ(logs.icon(), Icon::system(systemImage::multipleDocuments));
  EXPECT_TRUE(logs.tooltip());
  EXPECT_EQ(logs.selection(), CleanupEntry::Selection::on);
  EXPECT_TRUE(logs.size().isUnknown());
  EXPECT_EQ(logs.itemDescription(), "Logs from Xcode 17.2 ");

  DocumentationCacheFileEntry cache(version("15.0.1"), false);
  EXPECT_EQ(cache.label(), "Cache from Xcode 15.0.1");
  EXPECT_EQ(cache.tooltipText(), "Documentation cache files from Xcode 15.0.1");
  EXPECT_EQ(cache.icon(), Icon::system(systemImage::multipleDocuments));
  EXPECT_EQ(cache.selection(), CleanupEntry::Selection::off);
  EXPECT_EQ(cache.version(), version("15.0.1"));

  OldDocumentationFileEntry old(false);
  EXPECT_EQ(old.label(), "Old Documentation Downloads");
  EXPECT_EQ(old.tooltipText(), "Old offline documentations, not used anymore in modern Xcodes");
  EXPECT_FALSE(old.icon().has_value());
  EXPECT_EQ(old.itemDescription(), "");
}

TEST_F(XcodeEntries, DerivedDataShowsItsWorkspacePath) {
  DerivedDataFileEntry entry("My App", "/Users/me/Projects/My App/My App.xcworkspace", false);
  EXPECT_EQ(entry.label(), "My App");
  EXPECT_EQ(entry.extraInfo(), "/Users/me/Projects/My App/My App.xcworkspace");
  EXPECT_EQ(entry.tooltipText(), "My App /Users/me/Projects/My App/My App.xcworkspace");
  EXPECT_EQ(entry.icon(), Icon::system(systemImage::folder));
  EXPECT_EQ(entry.itemDescription(), "My App /Users/me/Projects/My App/My App.xcworkspace");
  EXPECT_TRUE(entry.paths().empty());
}

TEST_F(XcodeEntries, DeviceSupportLabelsWithAndWithoutBuildAndDevice) {
  DeviceSupportFileEntry plain(std::nullopt, OSType::iOS, version("17.4"), AppleBuild("(21E219)"), kMarch4,
                               std::nullopt, false);
  EXPECT_EQ(plain.label(), "iOS 17.4 (21E219)");
  EXPECT_EQ(plain.extraInfo(), "");
  EXPECT_EQ(plain.tooltipText(), "iOS 17.4 (21E219) Mar 4, 2024");
  EXPECT_TRUE(plain.tooltip());

  DeviceSupportFileEntry withDevice("iPhone15,2", OSType::iOS, version("17.4"), AppleBuild("(21E219)"), kMarch4,
                                    "arm64e", false);
  EXPECT_EQ(withDevice.label(), "iOS 17.4 (21E219) (iPhone 14 Pro)");

  DeviceSupportFileEntry unknownDevice("iPhone99,9", OSType::watchOS, version("10.1.1"), std::nullopt, kMarch4,
                                       std::nullopt, false);
  EXPECT_EQ(unknownDevice.label(), "watchOS 10.1.1  (iPhone99,9)");

  DeviceSupportFileEntry bare(std::nullopt, OSType::tvOS, version("17.0"), std::nullopt, kMarch4, std::nullopt, true);
  EXPECT_EQ(bare.label(), "tvOS 17.0 ");  // the space before the missing build stays
  EXPECT_EQ(bare.tooltipText(), "tvOS 17.0  Mar 4, 2024");
  EXPECT_EQ(bare.selection(), CleanupEntry::Selection::on);

  DeviceSupportFileEntry other(std::nullopt, DeviceSupportFileEntry::osTypeFromName("ios"), version("17.4"),
                               AppleBuild("21E219"), kMarch4, std::nullopt, false);
  EXPECT_EQ(other.osType(), OSType::other);
  EXPECT_EQ(other.label(), " 17.4 21E219");
  EXPECT_EQ(other.tooltipText(), "17.4 21E219 Mar 4, 2024");

  DeviceSupportFileEntry undated(std::nullopt, OSType::macOS, version("14.4"), std::nullopt, distantPast(),
                                 std::nullopt, false);
  EXPECT_EQ(undated.tooltipText(), "macOS 14.4  Jan 1, 1");
}

TEST_F(XcodeEntries, OSTypesComeFromExactNames) {
  const std::vector<std::pair<std::string, OSType>> cases = {
      {"iOS", OSType::iOS},           {"watchOS", OSType::watchOS}, {"tvOS", OSType::tvOS},  {"macOS", OSType::macOS},
      {"visionOS", OSType::visionOS}, {"ios", OSType::other},       {"xrOS", OSType::other}, {"", OSType::other},
      {"iOS ", OSType::other},
  };
  for (const auto& [name, type] : cases) {
    EXPECT_EQ(DeviceSupportFileEntry::osTypeFromName(name), type) << name;
    EXPECT_EQ(DeviceSupportFileEntry::osTypeDisplayName(type),
              type == OSType::other ? "" : name.substr(0, name.find(' ')));
  }
}

TEST_F(XcodeEntries, DeviceSupportIconsCoverTheVersionsWithTheirOwnPicture) {
  struct Case {
    OSType type;
    std::string version;
    std::string image;
  };
  const std::vector<Case> cases = {
      {OSType::iOS, "2.0", "OS/iOS/2"},
      {OSType::iOS, "18.3", "OS/iOS/18"},
      {OSType::iOS, "19.0", "OS/iOS/Generic"},
      {OSType::iOS, "26.0", "OS/iOS/26"},
      {OSType::iOS, "1.0", "OS/iOS/Generic"},
      {OSType::iOS, "27.0", "OS/iOS/Generic"},
      {OSType::watchOS, "11.2", "OS/watchOS/11"},
      {OSType::watchOS, "12.0", "OS/watchOS/Generic"},
      {OSType::watchOS, "26.0", "OS/watchOS/26"},
      {OSType::tvOS, "8.0", "OS/tvOS/Generic"},
      {OSType::tvOS, "9.0", "OS/tvOS/9"},
      {OSType::tvOS, "26.1", "OS/tvOS/26"},
      {OSType::macOS, "11.7", "OS/macOS/Generic"},
      {OSType::macOS, "12.0", "OS/macOS/12"},
      {OSType::macOS, "15.4", "OS/macOS/15"},
      {OSType::macOS, "16.0", "OS/macOS/Generic"},
      {OSType::visionOS, "1.2", "OS/visionOS/Generic"},
      {OSType::visionOS, "2.4", "OS/visionOS/2"},
      {OSType::visionOS, "26.0", "OS/visionOS/26"},
      {OSType::other, "17.4", "OS/iOS/Generic"},
      {OSType::other, "26.0", "OS/iOS/Generic"},
  };
  for (const auto& c : cases) {
    DeviceSupportFileEntry entry(std::nullopt, c.type, version(c.version), std::nullopt, kMarch4, std::nullopt, false);
    EXPECT_EQ(entry.icon(), Icon::image(c.image))
        << c.version << " " << DeviceSupportFileEntry::osTypeDisplayName(c.type);
  }
}

TEST_F(XcodeEntries, DeviceSupportEntriesAreTheSameItemByTheirFacts) {
  auto make = [](std::optional<std::string> device, std::string_view versionText, std::optional<AppleBuild> build,
                 std::optional<std::string> architecture, EntryDate date = kMarch4) {
    return std::make_shared<DeviceSupportFileEntry>(std::move(device), OSType::iOS, version(versionText),
                                                    std::move(build), date, std::move(architecture), false);
  };
  auto base = make(std::nullopt, "17.4", AppleBuild("(21E219)"), std::nullopt);
  EXPECT_TRUE(*base == *make(std::nullopt, "17.4.0", AppleBuild("(21E219)"), std::nullopt));
  EXPECT_TRUE(*base == *make(std::nullopt, "17.4", AppleBuild("(21E219)"), std::nullopt, distantPast()));
  EXPECT_FALSE(*base == *make(std::nullopt, "17.4.1", AppleBuild("(21E219)"), std::nullopt));
  EXPECT_FALSE(*base == *make(std::nullopt, "17.4", std::nullopt, std::nullopt));
  EXPECT_FALSE(*base == *make(std::nullopt, "17.4", AppleBuild("(21E220)"), std::nullopt));
  EXPECT_FALSE(*base == *make(std::nullopt, "17.4", AppleBuild("(21E219)"), "arm64e"));
  EXPECT_FALSE(*base == *make("iPhone15,2", "17.4", AppleBuild("(21E219)"), std::nullopt));
  EXPECT_TRUE(*make("iPhone15,2", "17.4", std::nullopt, "arm64e") ==
              *make("iPhone15,2", "17.4", std::nullopt, "arm64e"));
  EXPECT_FALSE(*make("iPhone15,2", "17.4", std::nullopt, "arm64e") ==
               *make("iPhone15,3", "17.4", std::nullopt, "arm64e"));
}

TEST_F(XcodeEntries, ArchivesShowVersionBuildStatusAndDate) {
  using Status = ArchiveFileEntry::SubmissionStatus;
  ArchiveFileEntry shipped("Tidewell", "dev.tidewell.Tidewell", "2.1", "42", kMarch4, Status::success, false,
                           "/archives/2024-03-04/Tidewell 04.03.24, 09.41.xcarchive");
  EXPECT_EQ(shipped.label(), "2.1 (42) ✅");
  std::string date = shipped.extraInfo();
  EXPECT_EQ(date.substr(0, 12), "3/4/24, 9:41") << date;
  EXPECT_EQ(shipped.tooltipText(), "2.1 (42) ✅ " + date);
  EXPECT_EQ(shipped.itemDescription(), "Tidewell 2.1 (42) (" + date + ")");
  EXPECT_FALSE(shipped.icon().has_value());
  ASSERT_EQ(shipped.paths().size(), 1u);
  EXPECT_EQ(shipped.paths()[0], "/archives/2024-03-04/Tidewell 04.03.24, 09.41.xcarchive");
  EXPECT_EQ(shipped.version(), version("2.1"));
  EXPECT_EQ(shipped.bundleName(), "dev.tidewell.Tidewell");

  ArchiveFileEntry failed("App", "b", "1.0.1", "7", kMarch4, Status::failure, true, "/a.xcarchive");
  EXPECT_EQ(failed.label(), "1.0.1 (7) ❌");
  EXPECT_EQ(failed.selection(), CleanupEntry::Selection::on);

  ArchiveFileEntry unsubmitted("App", "b", "1.0 beta", "7", kMarch4, Status::undefined, false, "/a.xcarchive");
  EXPECT_EQ(unsubmitted.label(), "1.0 beta (7) ");  // ends with the space after the parenthesis
  EXPECT_FALSE(unsubmitted.version().has_value());  // not a version
  EXPECT_EQ(unsubmitted.tooltipText(), "1.0 beta (7)  " + date);
}

TEST_F(XcodeEntries, SimulatorsShowTheirRuntimeButNoTooltip) {
  SimulatorFileEntry simulator("iPhone 15", "5A1B-UDID", "iOS 17.4", false);
  EXPECT_EQ(simulator.label(), "iPhone 15");
  EXPECT_EQ(simulator.extraInfo(), "iOS 17.4");
  EXPECT_EQ(simulator.tooltipText(), "iPhone 15 iOS 17.4");
  EXPECT_FALSE(simulator.tooltip());
  EXPECT_EQ(simulator.icon(), Icon::system(systemImage::computer));
  EXPECT_EQ(simulator.udid(), "5A1B-UDID");
  EXPECT_EQ(simulator.runtime(), "iOS 17.4");
}

TEST_F(XcodeEntries, EntryKindsAreLeavesThatTakePaths) {
  auto entry = std::make_shared<DeviceLogsFileEntry>(version("16.4"), true);
  entry->addPath("/logs/a");
  entry->addItem(std::make_shared<DeviceLogsFileEntry>(version("16.3"), true));
  EXPECT_EQ(entry->paths().size(), 1u);
  EXPECT_TRUE(entry->items().empty());
}

TEST(FileDates, CreationDateOfRealItemsAndMissingOnes) {
  test::TempDir dir;
  auto before = system_clock::now() - seconds(5);
  test::writeFile(dir / "folder/file", "x");
  auto created = fileCreationDate(dir / "folder");
  ASSERT_TRUE(created.has_value());
  EXPECT_GE(*created, before);
  EXPECT_LE(*created, system_clock::now() + seconds(5));
  // A link is examined itself, not its target: a dangling one still has a date.
  std::filesystem::create_symlink(dir / "nowhere", dir / "dangling");
  EXPECT_TRUE(fileCreationDate(dir / "dangling").has_value());
  EXPECT_FALSE(fileCreationDate(dir / "missing").has_value());
  EXPECT_EQ(distantPast(), EntryDate::min());
}

}  // namespace
}  // namespace tw
