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
    test::writeFile(dir_ / "devices.csv", "identifier,name\n\"iPhone15,2\",iPhone 14 Pro\n");
    devices_ = std::make_unique<ScopedAppleDevices>(AppleDevices::fromFile(dir_ / "devices.csv"));
  }
  ScopedTextLocale locale_{"en_US", "UTC"};
  test::TempDir dir_;
  std::unique_ptr<ScopedAppleDevices> devices_;
};

TEST_F(XcodeEntries, VersionedAndDerivedDataEntriesShowTheirFacts) {
  DeviceLogsFileEntry logs(version("17.2"), true);
  EXPECT_EQ(logs.tooltipText(), "Old logs from Xcode 17.2");
  EXPECT_EQ(logs.itemDescription(), "Logs from Xcode 17.2 ");
  DocumentationCacheFileEntry cache(version("15.0.1"), false);
  EXPECT_EQ(cache.tooltipText(), "Documentation cache files from Xcode 15.0.1");
  DerivedDataFileEntry derived("My App", "/Users/me/My App/My App.xcworkspace", false);
  EXPECT_EQ(derived.extraInfo(), "/Users/me/My App/My App.xcworkspace");
  EXPECT_EQ(derived.itemDescription(), "My App /Users/me/My App/My App.xcworkspace");
  SimulatorFileEntry simulator("iPhone 15", "5A1B-UDID", "iOS 17.4", false);
  EXPECT_EQ(simulator.tooltipText(), "iPhone 15 iOS 17.4");
  EXPECT_FALSE(simulator.tooltip());
  // Entry kinds are leaves: they take paths but no children.
  auto leaf = std::make_shared<DeviceLogsFileEntry>(version("16.4"), true);
  leaf->addPath("/logs/a");
  leaf->addItem(std::make_shared<DeviceLogsFileEntry>(version("16.3"), true));
  EXPECT_EQ(leaf->paths().size(), 1u);
  EXPECT_TRUE(leaf->items().empty());
}

TEST_F(XcodeEntries, DeviceSupportLabelsWithAndWithoutDevicesBuildsAndArchitectures) {
  struct Case {
    std::optional<std::string> device;
    OSType type;
    std::string version;
    std::optional<std::string> build, architecture;
    EntryDate date;
    std::string label, tooltip;
  };
  const std::vector<Case> cases = {
      {std::nullopt, OSType::iOS, "17.4", "(21E219)", std::nullopt, kMarch4, "iOS 17.4 (21E219)",
       "iOS 17.4 (21E219) Mar 4, 2024"},
      {"iPhone15,2", OSType::iOS, "17.4", "(21E219)", "arm64e", kMarch4, "iOS 17.4 (21E219) (iPhone 14 Pro)", ""},
      {"iPhone99,9", OSType::watchOS, "10.1.1", std::nullopt, std::nullopt, kMarch4, "watchOS 10.1.1  (iPhone99,9)",
       ""},
      {std::nullopt, OSType::tvOS, "17.0", std::nullopt, std::nullopt, kMarch4, "tvOS 17.0 ", "tvOS 17.0  Mar 4, 2024"},
      {std::nullopt, DeviceSupportFileEntry::osTypeFromName("ios"), "17.4", "21E219", std::nullopt, kMarch4,
       " 17.4 21E219", "17.4 21E219 Mar 4, 2024"},
      {std::nullopt, OSType::macOS, "14.4", std::nullopt, std::nullopt, distantPast(), "macOS 14.4 ",
       "macOS 14.4  Jan 1, 1"},
  };
  for (const auto& c : cases) {
    std::optional<AppleBuild> build;
    if (c.build) build = AppleBuild(*c.build);
    DeviceSupportFileEntry entry(c.device, c.type, version(c.version), build, c.date, c.architecture, false);
    EXPECT_EQ(entry.label(), c.label);
    if (!c.tooltip.empty()) {
      EXPECT_EQ(entry.tooltipText(), c.tooltip) << c.label;
    }
  }
}

TEST_F(XcodeEntries, OSTypesComeFromExactNames) {
  const std::vector<std::pair<std::string, OSType>> cases = {
      {"iOS", OSType::iOS},           {"watchOS", OSType::watchOS}, {"tvOS", OSType::tvOS},  {"macOS", OSType::macOS},
      {"visionOS", OSType::visionOS}, {"ios", OSType::other},       {"xrOS", OSType::other}, {"iOS ", OSType::other},
  };
  for (const auto& [name, type] : cases) EXPECT_EQ(DeviceSupportFileEntry::osTypeFromName(name), type) << name;
}

TEST_F(XcodeEntries, DeviceSupportIconsCoverTheVersionsWithTheirOwnPicture) {
  const std::vector<std::tuple<OSType, std::string, std::string>> cases = {
      {OSType::iOS, "2.0", "OS/iOS/2"},          {OSType::iOS, "1.0", "OS/iOS/Generic"},
      {OSType::iOS, "19.0", "OS/iOS/Generic"},   {OSType::iOS, "26.0", "OS/iOS/26"},
      {OSType::iOS, "27.0", "OS/iOS/Generic"},   {OSType::watchOS, "12.0", "OS/watchOS/Generic"},
      {OSType::tvOS, "8.0", "OS/tvOS/Generic"},  {OSType::tvOS, "9.0", "OS/tvOS/9"},
      {OSType::macOS, "11.7", "OS/macOS/Generic"}, {OSType::macOS, "15.4", "OS/macOS/15"},
      {OSType::macOS, "16.0", "OS/macOS/Generic"}, {OSType::visionOS, "1.2", "OS/visionOS/Generic"},
      {OSType::visionOS, "2.4", "OS/visionOS/2"}, {OSType::other, "26.0", "OS/iOS/Generic"},
  };
  for (const auto& [type, text, image] : cases) {
    DeviceSupportFileEntry entry(std::nullopt, type, version(text), std::nullopt, kMarch4, std::nullopt, false);
    EXPECT_EQ(entry.icon(), Icon::image(image)) << text << " " << DeviceSupportFileEntry::osTypeDisplayName(type);
  }
}

TEST_F(XcodeEntries, DeviceSupportEntriesAreTheSameItemByTheirFacts) {
  auto make = [](std::optional<std::string> device, std::string_view versionText, std::optional<AppleBuild> build,
                 std::optional<std::string> architecture, EntryDate date = kMarch4) {
    return DeviceSupportFileEntry(std::move(device), OSType::iOS, version(versionText), std::move(build), date,
                                  std::move(architecture), false);
  };
  const auto base = make(std::nullopt, "17.4", AppleBuild("(21E219)"), std::nullopt);
  EXPECT_TRUE(base == make(std::nullopt, "17.4.0", AppleBuild("(21E219)"), std::nullopt));
  EXPECT_TRUE(base == make(std::nullopt, "17.4", AppleBuild("(21E219)"), std::nullopt, distantPast()));
  EXPECT_FALSE(base == make(std::nullopt, "17.4.1", AppleBuild("(21E219)"), std::nullopt));
  EXPECT_FALSE(base == make(std::nullopt, "17.4", std::nullopt, std::nullopt));
  EXPECT_FALSE(base == make(std::nullopt, "17.4", AppleBuild("(21E219)"), "arm64e"));
  EXPECT_FALSE(base == make("iPhone15,2", "17.4", AppleBuild("(21E219)"), std::nullopt));
}

TEST_F(XcodeEntries, ArchivesShowVersionBuildStatusAndDate) {
  using Status = ArchiveFileEntry::SubmissionStatus;
  ArchiveFileEntry shipped("Tidewell", "dev.tidewell.Tidewell", "2.1", "42", kMarch4, Status::success, false,
                           "/archives/Tidewell.xcarchive");
  EXPECT_EQ(shipped.label(), "2.1 (42) ✅");
  const std::string date = shipped.extraInfo();
  EXPECT_EQ(date.substr(0, 12), "3/4/24, 9:41") << date;
  EXPECT_EQ(shipped.itemDescription(), "Tidewell 2.1 (42) (" + date + ")");
  EXPECT_EQ(ArchiveFileEntry("App", "b", "1.0.1", "7", kMarch4, Status::failure, true, "/a").label(), "1.0.1 (7) ❌");
  ArchiveFileEntry unsubmitted("App", "b", "1.0 beta", "7", kMarch4, Status::undefined, false, "/a.xcarchive");
  EXPECT_EQ(unsubmitted.label(), "1.0 beta (7) ");  // ends with the space after the parenthesis
  EXPECT_FALSE(unsubmitted.version().has_value());  // not a version
}

TEST(FileDates, CreationDateOfRealItemsAndMissingOnes) {
  test::TempDir dir;
  const auto before = system_clock::now() - seconds(5);
  test::writeFile(dir / "folder/file", "x");
  const auto created = fileCreationDate(dir / "folder");
  ASSERT_TRUE(created.has_value());
  EXPECT_GE(*created, before);
  EXPECT_LE(*created, system_clock::now() + seconds(5));
  // A link is examined itself, not its target: a dangling one still has a date.
  std::filesystem::create_symlink(dir / "nowhere", dir / "dangling");
  EXPECT_TRUE(fileCreationDate(dir / "dangling").has_value());
  EXPECT_FALSE(fileCreationDate(dir / "missing").has_value());
}

}  // namespace
}  // namespace tw
