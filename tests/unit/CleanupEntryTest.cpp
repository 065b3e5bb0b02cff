// The model: the cleanup tree (selection, sizes, deletion) and the engine that deletes what is ticked, and the values
// it shows (Apple builds, versions, the device table, Xcode entries, text, dates and sizes).
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>

#include "clean/DeletionEngine.h"
#include "fs/DirectorySize.h"
#include "model/AppleBuild.h"
#include "model/AppleDevices.h"
#include "model/CleanupEntry.h"
#include "model/Version.h"
#include "model/XcodeEntries.h"
#include "platform/ByteCountFormatter.h"
#include "platform/CsvReader.h"
#include "platform/FileDates.h"
#include "platform/Text.h"
#include "platform/TextLocale.h"
#include "scan/DevFiles.h"
#include "support/DeveloperFolderFixture.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"
#include "support/Unprivileged.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using Location = DevFiles::Location;
using Selection = CleanupEntry::Selection;
using enum CleanupEntry::Selection;
using Size = CleanupEntry::Size;
using namespace test;
using namespace ::testing;
using namespace std::chrono;
using OSType = DeviceSupportFileEntry::OSType;
using Icon = CleanupEntry::Icon;

// Items are added before paths, so an entry given both keeps only its items.
CleanupEntryPtr entry(std::string label, bool selected = false, const std::vector<CleanupEntryPtr>& items = {},
                      const std::vector<fs::path>& paths = {}) {
  auto node = std::make_shared<CleanupEntry>(std::move(label), "", std::nullopt, std::nullopt, true, selected);
  node->addItems(items);
  node->addPaths(paths);
  return node;
}

// A leaf with one (not necessarily existing) path, so that it is not empty.
CleanupEntryPtr leaf(const std::string& label, Selection selection, std::optional<int64_t> bytes = std::nullopt) {
  auto node = entry(label, false, {}, {"/nonexistent/" + label});
  node->setSelection(selection);
  if (bytes) node->setSize(Size::value(*bytes));
  return node;
}

TEST(CleanupEntry, TooltipsAreTrimmedAndEntriesHoldPathsOrItemsNeverBoth) {
  CleanupEntry given(" Label", "extra\n", std::string("\n\t tip \xC2\xA0\r\n"), std::nullopt, false, true);
  EXPECT_EQ(given.tooltipText(), "tip");  // trimmed, the no-break space included
  EXPECT_EQ(CleanupEntry(" Label", "extra\n", std::nullopt, std::nullopt, true, false).tooltipText(), "Label extra");

  auto withPaths = entry("paths", false, {}, {"/a"});
  withPaths->addItems({entry("c1"), entry("c2")});
  EXPECT_TRUE(withPaths->items().empty());
  EXPECT_TRUE(entry("group", false, {entry("child")}, {"/c", "/d"})->paths().empty());
  // The parent link is weak: it goes with the parent.
  auto orphan = entry("orphan");
  entry("short-lived", false, {orphan});
  EXPECT_FALSE(orphan->parent());
  EXPECT_NO_THROW(orphan->deleteItem(std::nullopt));  // nothing to delete without a path
}

TEST(CleanupEntry, RecomputesTriStateSelectionsFromTheChildrenWhereEmptyOnesDoNotCount) {
  const std::pair<std::vector<Selection>, Selection> cases[] = {
      {{on, on, mixed}, mixed}, {{on, on}, on}, {{off, off}, off}, {{on, off}, mixed}};
  for (const auto& [children, expected] : cases) {
    for (bool start : {true, false}) {
      auto group = entry("group", start);
      for (Selection selection : children)  // a mixed child: one selected and one unselected leaf
        group->addItem(selection != mixed ? leaf("child", selection)
                                          : entry("mixed", false, {leaf("a", on), leaf("b", off)}));
      EXPECT_EQ(group->updateSelection(), expected);
    }
  }
  EXPECT_EQ(entry("empty", true)->updateSelection(), off);
  for (bool selected : {true, false}) {  // a group whose only child is empty keeps its own selection
    auto child = entry("empty child", true);
    EXPECT_EQ(entry("group", selected, {child})->updateSelection(), selected ? on : off);
    EXPECT_EQ(child->selection(), off);
  }
  // Empty children count neither as selected nor as unselected.
  EXPECT_EQ(entry("group", false, {leaf("full", on), entry("empty")})->updateSelection(), on);
}

TEST(CleanupEntry, SelectsTheWholeSubtreeAndCountsTheSelectedSize) {
  auto a = leaf("a", off, 1000), b = leaf("b", off, 20);
  auto group = entry("group", true, {a, b, leaf("unknown", on)});  // an unknown size adds 0
  group->setSize(Size::value(999999));                             // a group counts only through its children
  auto root = entry("root", true, {group});
  EXPECT_EQ(root->selectedSize(), 0);
  root->select();
  EXPECT_TRUE(a->isSelected() && b->isSelected() && group->isSelected());
  EXPECT_EQ(root->selectedSize(), 1020);
  a->setSelection(mixed);  // only "on" counts for the entry itself
  EXPECT_EQ(root->selectedSize(), 20);
  group->deselect();
  EXPECT_EQ(std::pair(a->selection(), root->selection()), std::pair(off, on));
  EXPECT_EQ(root->updateSelection(), off);
  EXPECT_EQ(root->selectedSize(), 0);
}

TEST(CleanupEntry, ATickChangesTheSubtreeAndTheAncestorsAndReportsExactlyWhatChanged) {
  // root > {group > {a, b}, other > {c}}
  auto a = leaf("a", off), b = leaf("b", off), c = leaf("c", on);
  auto group = entry("group", false, {a, b});
  auto root = entry("root", false, {group, entry("other", false, {c})});
  ASSERT_EQ(root->updateSelection(), mixed);

  EXPECT_EQ(a->changeSelection(on), (std::vector<CleanupEntry*>{group.get(), a.get()}));
  EXPECT_EQ(std::pair(group->selection(), root->selection()), std::pair(mixed, mixed));

  // Mixed ticks, as a click on a mixed box does.
  EXPECT_THAT(group->changeSelection(mixed), UnorderedElementsAre(root.get(), group.get(), b.get()));
  EXPECT_EQ(root->selection(), on);

  EXPECT_EQ(root->changeSelection(off).size(), 6u);
  EXPECT_EQ(root->selectedSize(), 0);
  EXPECT_TRUE(a->changeSelection(off).empty());
  EXPECT_TRUE(a->isCheckable() && !entry("empty")->isCheckable());  // nothing to clean, nothing to tick
}

TEST(CleanupEntry, SizesOrderUnknownFirstAndTreesAreMeasuredCountingHardLinksOnceAndDescribed) {
  std::vector<Size> sizes = {Size::value(5), Size::unknown(), Size::value(-1), Size::value(0), Size::unknown()};
  std::stable_sort(sizes.begin(), sizes.end());
  EXPECT_EQ(sizes,
            (std::vector<Size>{Size::unknown(), Size::unknown(), Size::value(-1), Size::value(0), Size::value(5)}));
  EXPECT_NE(Size::unknown(), Size::value(0));
  TempDir dir;
  writeFileOfSize(dir / "a/big", 300000);
  writeFileOfSize(dir / "b/own", 100000);
  fs::create_hard_link(dir / "a/big", dir / "b/link-to-big");
  auto makeTree = [&] {
    return entry("root", false,
                 {entry("a", false, {}, {dir / "a"}), entry("b", false, {}, {dir / "b", dir / "missing"})});
  };
  const auto total = Size::value(measurePath(dir / "a", nullptr) + measurePath(dir / "b", nullptr) -
                                 allocatedSizeOfFile(dir / "a/big"));
  EXPECT_EQ(makeTree()->calculateSize(), total);
  EXPECT_EQ(makeTree()->updateSize(), total);
  // updateSize keeps what children already know; a known size is not measured again.
  auto known = makeTree();
  known->items()[0]->setSize(Size::value(7));
  known->items()[1]->setSize(Size::value(8));
  EXPECT_EQ(known->updateSize(), Size::value(15));
  EXPECT_EQ(known->sizeOrCalculate(), Size::value(15));
  EXPECT_EQ(known->description(1), "\t root: 15 bytes\n\t\t a: 7 bytes\n\t\t b: 8 bytes\n");
  EXPECT_EQ(entry("unmeasured", false, {known})->description(0), " unmeasured\n" + known->description(1));
}

TEST(CleanupEntryDeathTest, ASumBeyondSixtyFourBitsStopsWithAMessage) {
  EXPECT_EQ(addSizes(INT64_MAX - 1, 1), INT64_MAX);
  EXPECT_DEATH(addSizes(INT64_MAX, 1), "size sum overflows");
  auto group = entry("group", false, {leaf("a", on, INT64_MAX), leaf("b", on, 1)});
  EXPECT_DEATH(group->selectedSize(), "overflows");
}

// Each call as one line; a unit as "location: description <file name> index/count". Stops when reaching unit 3.
struct RecordingDeleteDelegate : DevFilesDeleteDelegate {
  std::vector<std::string> events;
  std::stop_source stop;
  static std::string shown(const std::optional<fs::path>& url) { return url.value_or("-").filename().string(); }
  void deleteStarted(DevFiles&) override { events.push_back("started"); }
  void deletingItem(DevFiles&, const std::string& location, const std::string& description,
                    const std::optional<fs::path>& url, size_t index, size_t count) override {
    events.push_back(location + ": " + description + " <" + shown(url) + "> " + std::to_string(index) + "/" +
                     std::to_string(count));
    if (index == 3) stop.request_stop();
  }
  void deleteFailed(DevFiles&, const std::exception& error, const std::string&, const std::string&,
                    const std::optional<fs::path>& url) override {
    events.push_back("failed <" + shown(url) + ">" + (*error.what() ? "" : " without a message"));
  }
  void deleteFinished(DevFiles&) override { events.push_back("finished"); }
};

class DeletionEngine : public ::testing::Test {
 protected:
  DeletionEngine() { devFiles->setDeleteDelegate(delegate); }

  void add(Location location, const CleanupEntryPtr& entry) {
    devFiles->entry(location)->addItem(entry);
    devFiles->entry(location)->updateSelection();
  }
  std::vector<std::string> workList() {
    std::vector<std::string> order;
    for (const auto& item : makeDeletionList(*devFiles))
      order.push_back(item.locationLabel + "/" + item.entry->label());
    return order;
  }

  TempDir temp;
  DeveloperFolderFixture fixture{temp / "Library/Developer"};
  std::shared_ptr<DevFiles> devFiles =
      DevFiles::create(fixture.developerFolder(), std::nullopt, std::nullopt).value_or(nullptr);
  std::shared_ptr<RecordingDeleteDelegate> delegate = std::make_shared<RecordingDeleteDelegate>();
};

TEST_F(DeletionEngine, WalksLocationsInOrderEachDepthFirstFromTheLastChildSkippingUntickedNodes) {
  add(Location::archives, entry("Project", true, {leaf("A", on), leaf("B", on)}));
  add(Location::deviceSupport, leaf("C", on));
  add(Location::projectBuilds, entry("Outer", true, {entry("Inner", true, {leaf("D", on)})}));
  // Unticked nodes give no units, but their ticked children do.
  auto unticked = entry("Unticked", false, {leaf("Inner", on)});
  add(Location::documentationCache, entry("Parent", true, {leaf("Kept", off), leaf("Gone", on), unticked}));

  EXPECT_THAT(workList(), ElementsAre("Device Support/C", "Archives/B", "Archives/A", "Documentation Cache/Inner",
                                      "Documentation Cache/Gone", "Project Build Folders/D"));

  // An unticked location is skipped whole; debug builds refuse a ticked item inside it rather than lose it silently.
  add(Location::logs, leaf("Log", on));
  devFiles->entry(Location::logs)->setSelection(off);
  EXPECT_DEBUG_DEATH(workList(), "ticked item under an unticked location");
}

// A failed unit is reported and the run goes on; a stop (at unit 3) lets the unit at hand finish.
TEST_F(DeletionEngine, EachPathIsAUnitAFailedOneIsReportedAndAStopEndsTheRunAfterTheUnitAtHand) {
  const fs::path one = temp / "one", vanished = temp / "vanished", three = temp / "three", four = temp / "four";
  for (const auto& path : {one, three, four}) writeFileOfSize(path, 100);
  add(Location::derivedData, entry("Project", true, {}, {one, vanished, three, four}));

  deleteSelected(*devFiles, false, delegate->stop.get_token());
  EXPECT_THAT(delegate->events,
              ElementsAre("started", "Derived Data: Project  <one> 1/4", "Derived Data: Project  <vanished> 2/4",
                          "failed <vanished>", "Derived Data: Project  <three> 3/4", "finished"));
  EXPECT_EQ(std::tuple(fs::exists(one), fs::exists(three), fs::exists(four)), std::tuple(false, false, true));
  // The engine leaves the tree as it was.
  EXPECT_EQ(devFiles->entry(Location::derivedData)->items().front()->paths().size(), 4u);
}

TEST_F(DeletionEngine, DryRunLeavesTheTreeByteIdenticalAndSaysSo) {
  fixture.populate();
  fs::create_directory_symlink(temp.path(), fixture.xcode() / "DerivedData" / "link-to-home");
  devFiles->scan({Location::derivedData, Location::archives, Location::oldDocumentation});
  for (Location location : {Location::derivedData, Location::oldDocumentation}) devFiles->entry(location)->select();
  const auto before = snapshot(temp.path());
  LogCapture log;

  deleteSelected(*devFiles, true);
  EXPECT_EQ(snapshot(temp.path()), before);
  const auto lines = linesStartingWith(log, "Deleting ");
  // Two projects and three folders under "Other" (one of them the link); the old documentation.
  EXPECT_THAT(lines, AllOf(SizeIs(6), Each(HasSubstr("Deleting [DRY RUN!]: "))));
  EXPECT_THAT(lines.back(), HasSubstr("Deleting [DRY RUN!]: Old Documentation Downloads:  ("));
  EXPECT_THAT(delegate->events, AllOf(SizeIs(8), Each(Not(StartsWith("failed")))));  // started, six units, finished
}

const EntryDate kMarch4 = sys_days{year{2024} / March / 4} + hours{9} + minutes{41};

Version version(std::string_view text) { return *Version::fromString(text); }

std::optional<std::string> printed(const std::optional<Version>& version) {
  return version ? std::optional<std::string>(version->toString()) : std::nullopt;
}

TEST(AppleBuildAndVersion, PartsOfBuildsAndDottedVersionsTheSystemRecordPrintingAndOrder) {
  // White space before the number, the letter and the daily part is skipped; e with a combining accent is one letter.
  std::string parts;  // number, letter and daily part of each, "-" for an absent one
  for (const char* text : {"21A5248p", "15", "   ", " 21 E219", " 21 A \n 5248p", "(21E219)", "-3A1",
                           "99999999999999999999Z", "20e\xCC\x81x"}) {
    AppleBuild build(text);
    EXPECT_EQ(build.toString(), text);
    parts += (build.major ? std::to_string(*build.major) : "-") + " " + build.minor.value_or("-") + " " +
             build.daily.value_or("-") + "|";
  }
  EXPECT_EQ(parts,
            "21 A 5248p|15 - |- - |21 E 219|21 A 5248p|- ( 21E219)|-3 A 1|9223372036854775807 Z |20 e\xCC\x81 x|");
  EXPECT_EQ(AppleBuild("21A5248p"), AppleBuild(" 21 A 5248p"));  // equality compares the parts
  EXPECT_NE(AppleBuild("A1"), AppleBuild("0A1"));                // an absent number differs from 0
  // Strictly ascending: no number counts as 0, no letter before a letter, upper before lower case.
  const std::vector<std::string> ascending = {"-2A", "",     "(20E247)", "(21E219)", "A1",   "1A",
                                              "9Z",  "21",   "21A5248p", "21A559",   "21B5", "21E999",
                                              "21F", "21a1", "22A1",     "22A100",   "22A99"};
  for (size_t i = 0; i + 1 < ascending.size(); ++i) {
    const AppleBuild earlier(ascending[i]), later(ascending[i + 1]);
    EXPECT_TRUE(earlier < later && !(later < earlier)) << ascending[i] << " < " << ascending[i + 1];
  }
  // Neither of two equal builds comes first; a number decides as soon as one side has it.
  for (const auto& [a, b] : {std::pair{"21A5248p", " 21 A 5248p"}, {"0B", "A"}})
    EXPECT_FALSE(AppleBuild(a) < AppleBuild(b) || AppleBuild(b) < AppleBuild(a)) << a;
  // Versions: nothing is trimmed, empty pieces are dropped.
  for (const char* text : {"18446744073709551616.1", "15", "1.2.3.4", "1.2.3..4", " 15.2", "-1.2", "１.２"})
    EXPECT_FALSE(Version::fromString(text)) << text;
  EXPECT_EQ(version("18446744073709551615.1").toString(), "18446744073709551615.1");
  for (const auto& [text, shown] : {std::pair{"15.2.0", "15.2.0"}, {".1..2.", "1.2"}, {"007.08", "7.8"}})
    EXPECT_EQ(version(text).toString(), shown) << text;
  const std::vector<std::string> versions = {"2.0", "9.9.9", "10.0", "16.0", "16.0.1", "16.1", "16.10", "17.0"};
  for (size_t i = 0; i + 1 < versions.size(); ++i) {
    const Version earlier = version(versions[i]), later = version(versions[i + 1]);
    EXPECT_TRUE(earlier < later && !(later < earlier)) << versions[i];
  }
  // An absent patch equals a zero patch, though it prints differently.
  EXPECT_EQ(version("15.2"), version("15.2.0"));
  EXPECT_FALSE(version("15.2") < version("15.2.0") || version("15.2.0") < version("15.2"));
  // The operating system's version record, or a dotted version.
  const std::vector<std::pair<std::string, std::optional<std::string>>> cases = {
      {"NSOperatingSystemVersion(majorVersion: 17, minorVersion: 4, patchVersion: 0)", "17.4"},
      {"NSOperatingSystemVersion(majorVersion: 17, minorVersion: 4, patchVersion: 1)", "17.4.1"},
      {"NSOperatingSystemVersion{majorVersion/9,minorVersion/3,patchVersion/00}", "9.3.0"},
      {"NSOperatingSystemVersion(majorVersion: 17,\nminorVersion: 4, patchVersion: 1)", std::nullopt},
      {"NSOperatingSystemVersion(MajorVersion: 17, minorVersion: 4, patchVersion: 1)", std::nullopt},
      {"majorVersion: 17, minorVersion: 4, patchVersion: 1", std::nullopt},  // read as a dotted version
      {"17.4", "17.4"}};
  for (const auto& [text, expected] : cases) EXPECT_EQ(printed(Version::parse(text)), expected) << text;
  EXPECT_FALSE(Version::fromVersionRecordText("majorVersion: 99999999999999999999, minorVersion: 1, patchVersion: 1"));
}

AppleDevices tableFrom(const test::TempDir& dir, std::string_view csv) {
  test::writeFile(dir / "device_identifiers.csv", csv);
  return AppleDevices::fromFile(dir / "device_identifiers.csv");
}

TEST(AppleDevices, LooksUpNamesWithTheTableRulesAndAMissingOrBrokenTableLogsOnce) {
  test::TempDir dir;
  LogCapture log;
  auto table = tableFrom(dir,
                         "model,identifier,name,year\r\n"
                         "x,\"iPhone16,2\",iPhone 15 Pro Max,2023\r\n"
                         "\r\n"                                              // empty lines are ignored
                         "x,\"iPhone15,2\",\"  iPhone 14 Pro \t\",2022\r\n"  // trimmed
                         "x,\"Watch7,1\",,2023\n"                            // empty name: the identifier
                         "x,\"Watch7,2\",N/A,2023\n"                         // a "no value" word
                         "x,NULL,Nobody,2023\n"                              // no identifier: skipped
                         "x,\"AppleTV14,1\",Apple TV,2022\n"
                         "x,\"AppleTV14,1\",Apple TV 4K (3rd generation),2022\n"  // last row wins
                         "x,\"Odd,1\",\"Say \"\"hi\"\", C:\\dir\",2020\n"         // doubled quotes, no escapes
                         "x,\"Multi,1\",\"Two\nLines\n\",2020\n");
  EXPECT_TRUE(log.lines().empty());
  std::vector<std::string> names;
  for (const char* identifier : {"iPhone16,2", "iPhone15,2", "Odd,1", "Multi,1", "", "AppleTV14,1", "Watch7,1",
                                 "Watch7,2", "NULL", "Unknown9,9"})
    names.push_back(table.lookup(identifier));
  EXPECT_EQ(names, (std::vector<std::string>{"iPhone 15 Pro Max", "iPhone 14 Pro", "Say \"hi\", C:\\dir", "Two\nLines",
                                             "Unknown Device", "Apple TV 4K (3rd generation)", "Watch7,1", "Watch7,2",
                                             "NULL", "Unknown9,9"}));
  EXPECT_EQ(table.size(), 7u);
  // A column holding only numbers or booleans is read as such: its cells are no text.
  EXPECT_EQ(tableFrom(dir, "identifier,name\nA1,1\nA2,2.5\n").lookup("A1"), "A1");
  EXPECT_EQ(tableFrom(dir, "identifier,name\ntrue,Yes\nFALSE,No\n").size(), 0u);
  using enum CsvTable::ColumnType;  // a leading plus sign is allowed
  for (const auto& [csv, type] : {std::pair{"a\n1.5\nx\n", text}, {"a\n+5\n", integer}, {"a\n+1.5\n", decimal}})
    EXPECT_EQ(CsvTable::parse(csv).columnType(0), type) << csv;
  EXPECT_TRUE(CsvTable::parse("\xEF\xBB\xBFidentifier,name\na,b\n").columnIndex("identifier"));  // no byte-order mark
  std::filesystem::remove(dir / "device_identifiers.csv");
  for (const auto& [contents, reason] : std::vector<std::pair<std::optional<std::string>, std::string>>{
           {std::nullopt, "AppleDevices: device_identifiers.csv missing in bundle."},
           {"identifier,name\n\"iPhone16,2,iPhone\n", "unterminated quoted field"},
           {"identifier,name\niPh\"one,x\n", "misplaced quote"},
           {"identifier,name\n\"a\"b,x\n", "after a closing quote"},
           {"identifier,title\na,b\n", "\"name\" column"},
           {"identifier,name\na,\xFF\xFE\n", "not UTF-8"},
           {"identifier,name\nlonely\n", "line 2 has 1 field, the header has 2"},
           {"identifier,name\n\"a,1\",b\nWatch7,1,Apple Watch\n", "line 3 has 3 fields"}}) {
    LogCapture logged;
    auto devices = contents ? tableFrom(dir, *contents) : AppleDevices::fromFile(dir / "device_identifiers.csv");
    EXPECT_THAT(logged.lines(),
                ElementsAre(AllOf(HasSubstr(contents ? "AppleDevices: Unable to load device_identifiers.csv: " : ""),
                                  HasSubstr(reason))));
    EXPECT_EQ(devices.size(), 0u) << reason;
    EXPECT_EQ(devices.lookup("iPhone16,2"), "iPhone16,2");
  }
}

class XcodeEntries : public ::testing::Test {
 protected:
  ScopedTextLocale locale_{"en_US", "UTC"};
  test::TempDir dir_;
  ScopedAppleDevices devices_{tableFrom(dir_, "identifier,name\n\"iPhone15,2\",iPhone 14 Pro\n")};
};

TEST_F(XcodeEntries, DeviceSupportLabelsWithAndWithoutDevicesBuildsAndArchitectures) {
  using Opt = std::optional<std::string>;
  const std::vector<std::tuple<Opt, OSType, std::string, Opt, Opt, std::string, std::string>> cases = {
      {{}, OSType::iOS, "17.4", "(21E219)", {}, "iOS 17.4 (21E219)", "iOS 17.4 (21E219) Mar 4, 2024"},
      {"iPhone15,2", OSType::iOS, "17.4", "(21E219)", "arm64e", "iOS 17.4 (21E219) (iPhone 14 Pro)", ""},
      {"iPhone99,9", OSType::watchOS, "10.1.1", {}, {}, "watchOS 10.1.1  (iPhone99,9)", ""},
      {{}, OSType::tvOS, "17.0", {}, {}, "tvOS 17.0 ", "tvOS 17.0  Mar 4, 2024"},
      {{}, OSType::macOS, "14.4", {}, {}, "macOS 14.4 ", ""},
      {{}, OSType::other, "17.4", "21E219", {}, " 17.4 21E219", "17.4 21E219 Mar 4, 2024"}};
  for (const auto& [device, type, text, build, architecture, label, tooltip] : cases) {
    DeviceSupportFileEntry entry(device, type, version(text), build ? std::optional(AppleBuild(*build)) : std::nullopt,
                                 kMarch4, architecture, false);
    EXPECT_EQ(entry.label(), label);
    EXPECT_TRUE(tooltip.empty() || entry.tooltipText() == tooltip) << entry.tooltipText();
  }
}

TEST_F(XcodeEntries, OSTypesComeFromExactNamesIconsCoverTheVersionsAndEntriesAreTheSameByTheirFacts) {
  const std::vector<std::pair<std::string, OSType>> names = {
      {"iOS", OSType::iOS},           {"watchOS", OSType::watchOS}, {"tvOS", OSType::tvOS},  {"macOS", OSType::macOS},
      {"visionOS", OSType::visionOS}, {"ios", OSType::other},       {"xrOS", OSType::other}, {"iOS ", OSType::other}};
  for (const auto& [name, type] : names) EXPECT_EQ(DeviceSupportFileEntry::osTypeFromName(name), type) << name;
  const std::tuple<OSType, const char*, const char*> pictures[] = {
      {OSType::iOS, "1.0", "iOS/Generic"},      {OSType::iOS, "2.0", "iOS/2"},
      {OSType::iOS, "19.0", "iOS/Generic"},     {OSType::iOS, "26.0", "iOS/26"},
      {OSType::iOS, "27.0", "iOS/Generic"},     {OSType::watchOS, "12.0", "watchOS/Generic"},
      {OSType::tvOS, "8.0", "tvOS/Generic"},    {OSType::tvOS, "9.0", "tvOS/9"},
      {OSType::macOS, "11.7", "macOS/Generic"}, {OSType::macOS, "15.4", "macOS/15"},
      {OSType::macOS, "16.0", "macOS/Generic"}, {OSType::visionOS, "1.2", "visionOS/Generic"},
      {OSType::visionOS, "2.4", "visionOS/2"},  {OSType::other, "26.0", "iOS/Generic"},
  };
  for (const auto& [type, text, picture] : pictures) {
    DeviceSupportFileEntry entry(std::nullopt, type, version(text), std::nullopt, kMarch4, std::nullopt, false);
    EXPECT_EQ(entry.icon(), Icon::image(std::string("OS/") + picture)) << picture << " " << text;
  }
  const AppleBuild build("(21E219)");
  auto make = [](std::optional<std::string> device, std::string_view text, std::optional<AppleBuild> built,
                 std::optional<std::string> architecture = {}, EntryDate date = kMarch4) {
    return DeviceSupportFileEntry(device, OSType::iOS, version(text), built, date, architecture, false);
  };
  const auto base = make({}, "17.4", build);
  EXPECT_TRUE(base == make({}, "17.4.0", build) && base == make({}, "17.4", build, {}, distantPast()));
  EXPECT_FALSE(base == make({}, "17.4.1", build) || base == make({}, "17.4", {}) ||
               base == make({}, "17.4", build, "arm64e") || base == make("iPhone15,2", "17.4", build));
}

TEST(TextAndDates, FileCreationDatesComparesNumbersByValueCaseLastCapitalizesComposesAndFormatsInTheLocale) {
  test::TempDir dir;
  const auto before = system_clock::now() - seconds(5);
  test::writeFile(dir / "folder/file", "x");
  const auto created = fileCreationDate(dir / "folder").value_or(distantPast());
  EXPECT_TRUE(created >= before && created <= system_clock::now() + seconds(5));
  // A link is examined itself, not its target: a dangling one still has a date.
  std::filesystem::create_symlink(dir / "nowhere", dir / "dangling");
  EXPECT_TRUE(fileCreationDate(dir / "dangling").has_value());
  EXPECT_FALSE(fileCreationDate(dir / "missing").has_value());
  ScopedTextLocale locale("en_US", "UTC");
  std::vector<std::string> texts = {"Xcode 15.10", "xcode 15.2", "Zebra",  "Xcode 15.1",
                                    "apple",       "Xcode 9",    "file10", "file2"};
  std::ranges::sort(texts, [](const auto& a, const auto& b) { return localizedStandardCompare(a, b) < 0; });
  EXPECT_EQ(texts, (std::vector<std::string>{"apple", "file2", "file10", "Xcode 9", "Xcode 15.1", "xcode 15.2",
                                             "Xcode 15.10", "Zebra"}));
  // Texts that differ only in case are not the same, but get a fixed order either way round.
  const int caseOnly = localizedStandardCompare("derived", "Derived");
  EXPECT_TRUE(caseOnly != 0 && localizedStandardCompare("Derived", "derived") == -caseOnly) << caseOnly;
  EXPECT_EQ(localizedStandardCompare("Same", "Same"), 0);
  EXPECT_LT(localizedStandardCompare("\xC3\xA9t\xC3\xA9", "ete2"), 0);  // accents weigh less than digits
  EXPECT_NE(localizedStandardCompare("a\xFF", "a\xFE"), 0);             // broken UTF-8 compares without failing
  EXPECT_EQ(capitalizedWords("IDE CACHES\tand  more"), "Ide Caches\tAnd  More");
  EXPECT_EQ(capitalizedWords("\xC3\xA9t\xC3\xA9 \xC3\x89T\xC3\x89"), "\xC3\x89t\xC3\xA9 \xC3\x89t\xC3\xA9");
  EXPECT_EQ(canonicalNormalized("Cafe\xCC\x81"), "Caf\xC3\xA9");
  EXPECT_EQ(canonicalNormalized("\xEF\xAC\x81"), "\xEF\xAC\x81");  // the "fi" ligature stays: NFC, not NFKC
  EXPECT_FALSE(canonicalNormalized("bad\xFF").empty());
  // Swedish sorts "ö" after "z"; German sorts it with "o".
  for (const auto& [language, after] : {std::pair{"sv_SE", true}, {"de_DE", false}}) {
    ScopedTextLocale scoped(language, "UTC");
    EXPECT_EQ(localizedStandardCompare("\xC3\xB6l", "zebra") > 0, after) << language;
  }
  // Dates: Berlin is UTC+1 in winter; late evening in Los Angeles is already the next day in UTC.
  const std::vector<std::tuple<const char*, const char*, TimePoint, const char*, const char*>> cases = {
      {"en_US", "UTC", kMarch4, "Mar 4, 2024", "3/4/24, 9:41\u202FAM"},
      {"en_US", "UTC", distantPast(), "Jan 1, 1", nullptr},
      {"de_DE", "Europe/Berlin", kMarch4, "04.03.2024", "04.03.24, 10:41"},
      {"en_US", "America/Los_Angeles", sys_days{year{2024} / March / 5} + hours{3}, "Mar 4, 2024", nullptr}};
  for (const auto& [language, zone, time, medium, shortForm] : cases) {
    ScopedTextLocale scoped(language, zone);
    EXPECT_EQ(formatMediumDate(time), medium) << language << " " << zone;
    EXPECT_TRUE(!shortForm || formatShortDateTime(time) == shortForm) << formatShortDateTime(time);
  }
}

using Cases = std::vector<std::pair<int64_t, const char*>>;

// The C locale (en_US_POSIX) writes numbers as American English does; 999,500 B moves on to MB.
const Cases kEnglish = {
    {0, "Zero KB"},          {1, "1 byte"},          {999, "999 bytes"},      {1000, "1 KB"},
    {1499, "1 KB"},          {1500, "2 KB"},         {999499, "999 KB"},      {999500, "1 MB"},
    {1049999, "1 MB"},       {1050000, "1.1 MB"},    {999949999, "999.9 MB"}, {999950000, "1 GB"},
    {1205000000, "1.21 GB"}, {1200000000, "1.2 GB"}, {1000000000000, "1 TB"}, {5555000000000000, "5.56 PB"},
    {INT64_MAX, "9.22 EB"},  {-1, "-1 byte"},        {-999, "-999 bytes"},    {-1500000, "-1.5 MB"},
    {INT64_MIN, "-9.22 EB"}};
// Numbers follow the locale while the units stay.
const Cases kGerman = {{1300000, "1,3 MB"}, {1234567890, "1,23 GB"}, {-1500000, "-1,5 MB"}};

TEST(ByteCountFormatter, MatchesTheFileStyleTableWithNumbersInTheLocale) {
  for (const auto& [locale, zone, cases] : {std::tuple{"en_US", "UTC", &kEnglish},
                                            {"en_US_POSIX", "UTC", &kEnglish},
                                            {"de_DE", "Europe/Berlin", &kGerman}}) {
    ScopedTextLocale scoped(locale, zone);
    for (const auto& [bytes, text] : *cases) EXPECT_EQ(formatByteCount(bytes), text) << locale << " " << bytes;
  }
}

}  // namespace
}  // namespace tw
