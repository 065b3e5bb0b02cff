// Everything beyond Xcode on real trees: the cache catalogue, project build folders and the system items (snapshots
// through a stand-in tmutil, the Trash, updates, backups, logs, synced cloud folders).
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <set>

#include "fs/DirectorySize.h"
#include "fs/Shell.h"
#include "model/SystemEntries.h"
#include "scan/DevCaches.h"
#include "scan/ProjectBuildsScanner.h"
#include "scan/Scanners.h"
#include "scan/SystemItems.h"
#include "support/CatalogueFixture.h"
#include "support/DeveloperFolderFixture.h"
#include "support/StandInTools.h"
#include "support/Unprivileged.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using namespace test;
using DevCaches::expandPattern;
using Paths = std::vector<fs::path>;
using Labels = std::vector<std::string>;
using Kind = ProjectBuildsScanner::Kind;
using ::testing::ElementsAre;
using ::testing::UnorderedElementsAre;

class CatalogueHome : public ::testing::Test {
 protected:
  CatalogueFixture fixture;
  fs::path home = fixture.home();
  void makeFolders(std::initializer_list<std::string_view> patterns) const {
    for (auto pattern : patterns) fs::create_directories(fixture.at(pattern));
  }
  // A marker file and folders next to it.
  void project(const fs::path& marker, std::initializer_list<const char*> folders = {}) {
    writeFile(home / marker, "x");
    for (const char* folder : folders) fs::create_directories((home / marker).parent_path() / folder);
  }
  // One file of real data in each folder, sizes in MiB.
  void data(std::initializer_list<std::pair<std::string_view, size_t>> folders) const {
    for (const auto& [folder, mebibytes] : folders) fixture.file(std::string(folder) + "/data.bin", mebibytes * kMiB);
  }
  std::map<Kind, Labels> relative(const ProjectBuildsScanner::FoundFolders& all) const {
    std::map<Kind, Labels> result;
    for (const auto& [kind, paths] : all)
      for (const auto& path : paths) result[kind].push_back(path.lexically_relative(home).string());
    return result;
  }
};
using ExpandPattern = CatalogueHome;

// Literal components follow links; a component's first star matches names (files too) by prefix and suffix.
TEST_F(ExpandPattern, MatchesOnlyWhatExistsWithOneWildcardPerComponentInNameOrder) {
  makeFolders({"~/.npm", "~/elsewhere/registry", "~/.cargo"});
  EXPECT_EQ(expandPattern("~/.npm"), Paths{home / ".npm"});
  EXPECT_EQ(expandPattern("~//.npm/"), Paths{home / ".npm"}) << "doubled and trailing slashes";
  EXPECT_TRUE(expandPattern("~/.npm/missing").empty());

  fs::create_directory_symlink(home / "elsewhere/registry", fixture.at("~/.cargo/registry"));
  fs::create_symlink(home / "gone", fixture.at("~/.cargo/git"));
  EXPECT_EQ(expandPattern("~/.cargo/registry"), Paths{home / ".cargo/registry"});
  EXPECT_TRUE(expandPattern("~/.cargo/git").empty()) << "a dangling link names nothing";
  // Only whole home components are abbreviated.
  EXPECT_EQ(DevCaches::abbreviatedPath(home / ".cargo/git"), "~/.cargo/git");
  EXPECT_EQ(DevCaches::abbreviatedPath(home), "~");
  EXPECT_EQ(DevCaches::abbreviatedPath(home.string() + "2/.cargo"), home.string() + "2/.cargo");

  // /tmp links to /private/tmp as on a Mac; a file matches a wildcard too.
  makeFolders({"/private/tmp/metro-b", "/private/tmp/metro-a", "/private/tmp/metro-", "/private/tmp/haste-map-1",
               "/private/var/tmp/_bazel_ann", "~/private/var/tmp/_bazel_home"});
  fs::create_directory_symlink("private/tmp", fixture.at("/tmp"));
  writeFile(fixture.at("/tmp/metro-file"), "x");
  const fs::path tmp = fixture.root() / "tmp";
  EXPECT_EQ(expandPattern("/tmp/metro-*"),
            (Paths{tmp / "metro-", tmp / "metro-a", tmp / "metro-b", tmp / "metro-file"}));
  EXPECT_TRUE(expandPattern("/tmp/nothing-*").empty());
  EXPECT_EQ(expandPattern("/private/var/tmp/_bazel_*"), Paths{fixture.root() / "private/var/tmp/_bazel_ann"});

  // A blank belongs to the prefix; two wildcards in two components (a file holds none); only a first star is one.
  makeFolders({"~/Dropbox/.dropbox.cache", "~/Dropbox (Team)/.dropbox.cache", "~/DropboxOld/.dropbox.cache",
               "~/G/6N.tg/acct-1/m", "~/G/6N.tg/acct-2/m", "~/G/6N.tg/other-3/m", "~/G/AB.tgBeta/acct-1/m", "~/x/ab*c",
               "~/x/abZc", "~/x/aQb*c"});
  writeFile(fixture.at("~/G/README.tg"), "not a folder");
  EXPECT_EQ(expandPattern("~/Dropbox */.dropbox.cache"), Paths{home / "Dropbox (Team)/.dropbox.cache"});
  EXPECT_EQ(expandPattern("~/G/*.tg/acct-*/m"), (Paths{home / "G/6N.tg/acct-1/m", home / "G/6N.tg/acct-2/m"}));
  EXPECT_EQ(expandPattern("~/x/a*b*c"), (Paths{home / "x/aQb*c", home / "x/ab*c"}));

  // A user without a home: home patterns name nothing, system ones still work.
  ScopedHost noHome(Host{.root = fixture.root()});
  EXPECT_TRUE(expandPattern("~/.npm").empty());
  EXPECT_EQ(expandPattern("/tmp/metro-*").size(), 4u);
  EXPECT_EQ(DevCaches::abbreviatedPath("/Users/ann/.npm"), "/Users/ann/.npm");
}

using MakeEntries = CatalogueHome;

TEST_F(MakeEntries, OneMatchHoldsThePathSeveralMatchesOneChildEachInPatternOrder) {
  data({{"~/Library/Caches/carthage", 2}});
  auto packages = DevCaches::makeEntries(DevCaches::packageManagers());
  ASSERT_EQ(labelsOf(packages), Labels{"Carthage"});
  EXPECT_TRUE(packages[0]->items().empty());
  EXPECT_EQ(packages[0]->paths(), Paths{fixture.at("~/Library/Caches/carthage")});

  data({{"~/.cache/bazel", 1}, {"/private/var/tmp/_bazel_bob", 1}, {"/private/var/tmp/_bazel_ann", 2}});
  auto tools = DevCaches::makeEntries(DevCaches::devTools());
  ASSERT_EQ(labelsOf(tools), Labels{"Bazel"}) << "one group alone is not grouped";
  const CleanupEntry& bazel = *tools[0];
  EXPECT_TRUE(bazel.paths().empty());
  const std::string bases = (fixture.root() / "private/var/tmp/_bazel_").string();
  ASSERT_EQ(labelsOf(bazel.items()), (Labels{bases + "ann", bases + "bob", "~/.cache/bazel"}));
  int64_t sum = 0;  // children are measured with their row
  for (const auto& child : bazel.items())
    sum += child->tooltipText() == "Bazel output bases & repository cache." ? child->size().bytesOrZero() : -1;
  EXPECT_GE(sum, static_cast<int64_t>(4 * kMiB));
  EXPECT_EQ(bazel.size().bytesOrZero(), sum);
}

TEST_F(MakeEntries, OneGroupStaysFlatTwoGroupsAreGroupedBySummedSize) {
  data({{"~/.cargo/registry", 3}, {"~/.rustup/toolchains", 2}});
  EXPECT_EQ(labelsOf(DevCaches::makeEntries(DevCaches::devTools())),
            (Labels{"Cargo registry & git", "rustup toolchains"}));

  // Python's single entry is larger than either Rust entry, but Rust is larger in sum.
  data({{"~/.cache/pip", 4}});
  auto grouped = DevCaches::makeEntries(DevCaches::devTools());
  ASSERT_EQ(labelsOf(grouped), (Labels{"Rust", "Python"}));
  const CleanupEntry& rust = *grouped[0];
  EXPECT_EQ(labelsOf(rust.items()), (Labels{"Cargo registry & git", "rustup toolchains"}));
  EXPECT_EQ(rust.size().bytesOrZero(), rust.items()[0]->size().bytesOrZero() + rust.items()[1]->size().bytesOrZero());
  EXPECT_FALSE(rust.tooltip());

  data({{"~/.cache/uv", 4}});
  EXPECT_EQ(labelsOf(DevCaches::makeEntries(DevCaches::devTools())), (Labels{"Python", "Rust"}));

  // Lists without groups: largest first.
  data({{"~/Library/Caches/Firefox", 2}, {"~/Library/Caches/Google/Chrome", 5}, {"~/Library/Caches/Chromium", 3}});
  EXPECT_EQ(labelsOf(DevCaches::makeEntries(DevCaches::browsers())), (Labels{"Google Chrome", "Chromium", "Firefox"}));
}

TEST_F(MakeEntries, HardLinksCountOncePerEntryButAgainInAnotherEntry) {
  fs::path shared = fixture.file("~/.cargo/registry/data.bin", 2 * kMiB);
  makeFolders({"~/.cargo/git", "~/.cache/pip"});
  fs::create_hard_link(shared, fixture.at("~/.cargo/git/linked.bin"));
  fs::create_hard_link(shared, fixture.at("~/.cache/pip/linked.bin"));
  const auto once = CleanupEntry::Size::value(allocatedBytes(shared));

  auto entries = DevCaches::makeEntries(DevCaches::devTools());
  ASSERT_EQ(labelsOf(entries), (Labels{"Rust", "Python"}));
  const CleanupEntry& cargo = *entries[0]->items().at(0);
  EXPECT_EQ(std::tuple(cargo.items().size(), cargo.size(), entries[1]->items().at(0)->size()),
            std::tuple(size_t{2}, once, once));
}

// Data rows, not code: each is well formed, and a list is grouped throughout or not at all.
TEST(Catalogue, RowsAreWellFormedAndAListIsGroupedThroughoutOrNotAtAll) {
  std::set<std::string> labels;
  for (CatalogueList list :
       {CatalogueList::packageManagers, CatalogueList::devTools, CatalogueList::ides, CatalogueList::aiTools,
        CatalogueList::browsers, CatalogueList::apps, CatalogueList::cloudClients}) {
    const auto& specs = DevCaches::specs(list);
    ASSERT_FALSE(specs.empty());
    for (const DevCaches::CacheSpec& spec : specs) {
      EXPECT_TRUE(spec.group.empty() == specs.front().group.empty() && labels.insert(spec.label).second &&
                  !spec.paths.empty() && !spec.tooltip.empty() && spec.tooltip.front() != ' ' &&
                  spec.tooltip.back() != ' ')
          << spec.label << ": grouped unlike its list, a duplicate label, no paths or an untrimmed tooltip";
      for (const std::string& pattern : spec.paths)
        EXPECT_TRUE((pattern.starts_with("~/") || pattern.starts_with("/")) && !pattern.ends_with("/")) << pattern;
    }
  }
}

using ProjectBuildsScannerTest = CatalogueHome;

TEST_F(ProjectBuildsScannerTest, RulesPickCacheFoldersNeverEnterThemAndReportEachOnce) {
  project("site/package.json", {"node_modules/dep/target", ".next/cache"});
  project("site/node_modules/dep/Cargo.toml");  // inside a found folder: never examined
  project("mixed/CMakeLists.txt", {"build", ".gradle"});
  project("mixed/build.gradle");
  project("cordova1/config.xml", {"platforms"});  // without the required "www"
  project("cordova2/config.xml", {"www", "platforms"});
  project("rails/Gemfile", {"vendor/bundle/ruby", "vendor/target"});
  project("rails/vendor/Cargo.toml");  // "vendor" is not entered once vendor/bundle is a cache path
  project("plain/Cargo.toml");
  writeFile(home / "plain/target", "a file, not a build folder");

  EXPECT_EQ(relative(ProjectBuildsScanner::findFolders({})),
            (std::map<Kind, Labels>{{Kind::nodeModules, {"site/node_modules"}},
                                    {Kind::webBundlerCache, {"site/.next"}},
                                    {Kind::cmakeBuild, {"mixed/build"}},
                                    {Kind::gradleBuild, {"mixed/.gradle"}},
                                    {Kind::cordovaPlatforms, {"cordova2/platforms"}},
                                    {Kind::rubyVendorBundle, {"rails/vendor/bundle"}}}));
  // A covered folder is left out; the second root lies inside the first, so every folder below it is reachable twice.
  project("code/a/Cargo.toml", {"target", "DerivedData", "../b/DerivedData"});
  EXPECT_EQ(
      relative(ProjectBuildsScanner::findFolders({home / "code", home / "code/a"}, {home / "code/b/DerivedData/"}, {})),
      (std::map<Kind, Labels>{{Kind::derivedData, {"code/a/DerivedData"}}, {Kind::rustTarget, {"code/a/target"}}}));
}

TEST_F(ProjectBuildsScannerTest, DepthLimitHiddenFoldersPackagesLinksExclusionsAndSystemRoots) {
  std::string deep;
  for (int depth = 1; depth <= 12; ++depth) deep += "d" + std::to_string(depth) + "/";
  project(deep + "Cargo.toml", {"target"});      // a project at depth 12 is examined
  project(deep + "d13/Cargo.toml", {"target"});  // depth 13 is not
  project(".hidden/app/Cargo.toml", {"target"});
  project("Library/app/Cargo.toml", {"target", "../Developer/Xcode/DerivedData/App-abc"});
  project("code/Library/app/Cargo.toml", {"target"});  // "Library" is only excluded right in the home
  // A package is never entered, whatever the case of its extension, document packages too.
  for (const char* package : {"Tool.app", "Tool2.APP", "Film.fcpbundle", "Song.logicx", "Letter.Pages", "Talk.key",
                              "Jam.band", "App.xcodeproj"})
    project(std::string("code/") + package + "/Contents/Cargo.toml", {"target"});
  project("code/Not.a.package/Cargo.toml", {"target"});
  fs::create_directories(home / "code/ios/DerivedData/Build");
  // A link counts as a cache folder but is never entered, nor is a linked project.
  project("../outside/project/Cargo.toml", {"target", "../real-target"});
  project("code/engine/Cargo.toml");
  fs::create_directory_symlink(home.parent_path() / "outside/real-target", home / "code/engine/target");
  fs::create_directory_symlink(home.parent_path() / "outside/project", home / "code/linked-project");
  // "/opt" (a link here, as it sometimes is) and "/usr/local" below the root are walked, not their Homebrew trees.
  for (const char* marker :
       {"var/opt/tool/Cargo.toml", "var/opt/homebrew/lib/Cargo.toml", "usr/local/Cellar/x/Cargo.toml",
        "usr/local/Homebrew/y/Cargo.toml", "usr/local/src/app/Cargo.toml"})
    project(fs::path("../root") / marker, {"target"});
  fs::create_directory_symlink("var/opt", fixture.root() / "opt");

  auto found = relative(ProjectBuildsScanner::findFolders({}));
  EXPECT_THAT(
      found[Kind::rustTarget],
      UnorderedElementsAre(deep + "target", "code/Library/app/target", "code/engine/target",
                           "code/Not.a.package/target", "../root/opt/tool/target", "../root/usr/local/src/app/target"));
  EXPECT_THAT(found[Kind::derivedData], ElementsAre("code/ios/DerivedData"));
}

// A tree wide enough for the pool to interleave listings; a plain last-in-first-out walk gives the expected order.
TEST_F(ProjectBuildsScannerTest, ParallelWalkFindsFoldersInSequentialOrder) {
  const char* markers[] = {"Cargo.toml", "package.json", "CMakeLists.txt", "Podfile", "pyproject.toml", "package.json",
                           "x"};
  const char* caches[] = {"target", "node_modules", "build", "Pods", ".venv", ".turbo", "DerivedData"};
  const Kind kinds[] = {Kind::rustTarget, Kind::nodeModules,     Kind::cmakeBuild, Kind::cocoapods,
                        Kind::pythonVenv, Kind::webBundlerCache, Kind::derivedData};
  std::map<fs::path, Kind> cacheKinds;
  for (int group = 0; group < 12; ++group)
    for (int index = 0, type = group % 7; index < 10; ++index, type = (type + 1) % 7) {
      const std::string path =
          "g" + std::to_string(group) + "/sub" + std::to_string(index % 3) + "/p" + std::to_string(index) + "/";
      project(path + markers[type], {caches[type]});
      cacheKinds[home / path / caches[type]] = kinds[type];
    }
  ProjectBuildsScanner::FoundFolders expected;
  for (std::vector<fs::path> stack{home}; !stack.empty();) {
    const fs::path folder = stack.back();
    stack.pop_back();
    for (const auto& entry : fs::directory_iterator(folder)) {
      if (auto cache = cacheKinds.find(entry.path()); cache != cacheKinds.end())
        expected[cache->second].push_back(entry.path());
      else if (entry.is_directory())
        stack.push_back(entry.path());
    }
  }
  ASSERT_EQ(expected.size(), 7u) << "every kind of the tree is found";
  for (int run = 0; run < 3; ++run) EXPECT_EQ(ProjectBuildsScanner::findFolders({home}, {}, {}), expected);
}

TEST_F(ProjectBuildsScannerTest, EntriesKeepFoldersOfAtLeastOneMebibyteLargestFirst) {
  // Exactly 1 MiB is kept, one block short of it is not.
  for (const auto& [marker, file, bytes] : std::initializer_list<std::tuple<const char*, const char*, size_t>>{
           {"big/Cargo.toml", "big/target/debug/blob", 3 * kMiB},
           {"medium/Cargo.toml", "medium/target/blob", kMiB},
           {"small/Cargo.toml", "small/target/blob", kMiB - 4096},
           {"rails/Gemfile", "rails/vendor/bundle/gem", 2 * kMiB},
           {"tiny/package.json", "tiny/node_modules/x", 100}}) {
    project(fs::path("code") / marker);
    writeFileOfSize(home / "code" / file, bytes);
  }

  auto entries = ProjectBuildsScanner::scan({});
  // label | extra info | ticked, per kind then per folder; node_modules is dropped whole.
  std::vector<std::string> rows;
  for (const auto& kind : entries) {
    rows.push_back(kind->label());
    for (const auto& item : kind->items())
      rows.push_back(item->label() + " | " + item->extraInfo() + " | " +
                     std::to_string(item->selection() == CleanupEntry::Selection::on));
  }
  EXPECT_THAT(rows,
              ElementsAre("Rust \u2013 target", "big/target | ~/code/big | 0", "medium/target | ~/code/medium | 0",
                          "Ruby \u2013 vendor/bundle", "vendor/bundle | ~/code/rails/vendor | 0"));
  EXPECT_THAT(entries[0]->items()[0]->paths(), ElementsAre(home / "code/big/target"));
  CleanupEntry entry("x", "");
  for (auto [bytes, large] : {std::pair{1'048'575, false}, {1'048'576, true}}) {
    entry.setSize(CleanupEntry::Size::value(bytes));
    EXPECT_EQ(DevCaches::isLargeEnough(entry), large) << bytes;
  }
}

// Patterns and the project walk pass over what they cannot list, silently.
TEST_F(CatalogueHome, UnreadableFoldersGiveNoMatchesAndNoMessage) {
  makeFolders({"~/Library/Application Support/Google/DriveFS/acct/content_cache"});
  fs::permissions(fixture.at("~/Library/Application Support/Google/DriveFS"), fs::perms(0311));  // pass, not list
  project("code/locked/app/Cargo.toml", {"target"});
  project("code/open/Cargo.toml", {"target"});
  fs::permissions(home / "code/locked", fs::perms::none);
  auto failures = runUnprivileged(home.parent_path(), [&] {
    LogCapture log;
    const std::string folder = "~/Library/Application Support/Google/DriveFS/";
    std::string found = expandPattern(folder + "*/content_cache").empty() ? "" : "a wildcard matched unlisted\n";
    // Existence needs search, not read permission.
    if (expandPattern(folder + "acct/content_cache").size() != 1) found += "the literal path was not found\n";
    if (relative(ProjectBuildsScanner::findFolders({}))[Kind::rustTarget] != Labels{"code/open/target"})
      found += "unexpected targets\n";
    for (const std::string& line : log.lines()) found += "logged: " + line + "\n";
    return found;
  });
  fs::permissions(home / "code/locked", fs::perms::owner_all);
  if (!failures) GTEST_SKIP() << "no unprivileged user to run as";
  EXPECT_EQ(*failures, "");
}

class SystemScan : public ::testing::Test {
 protected:
  CatalogueFixture fixture;
  fs::path calls = fixture.root() / "tool-calls";

  void standInTmutil(const std::string& output, int status) {
    writeStandInTool(fixture.root(), "/usr/bin/tmutil",
                     "printf '%s|' \"$@\" >> " + shellQuoted(calls.string()) + "\nprintf '%s' " + shellQuoted(output) +
                         "\nexit " + std::to_string(status));
  }
};

TEST_F(SystemScan, SnapshotsListedByTmutilFormOneGroupOfSizelessItemsThatTmutilDeletes) {
  EXPECT_FALSE(SystemItems::timeMachineSnapshots()) << "no tmutil";
  standInTmutil("com.apple.TimeMachine.2024-03-04-094100.local\n", 1);
  EXPECT_FALSE(SystemItems::timeMachineSnapshots()) << "tmutil failed";
  standInTmutil("Snapshots for disk /:\n\n  \n", 0);
  EXPECT_FALSE(SystemItems::timeMachineSnapshots()) << "no snapshots";

  // Only well-formed stamps of snapshot lines count: "/" as a stamp would delete every snapshot.
  fs::remove(calls);
  LogCapture log;
  standInTmutil(
      "Snapshots for disk /:\n  com.apple.TimeMachine.2024-03-04-094100.local\n\n"
      "\tcom.apple.TimeMachine.2024-03-05-101500.local \t\ncom.apple.os.update-ABCDEF\n"
      "no com.apple.TimeMachine.2024-01-01-000000.local\ncom.apple.TimeMachine./.local\n"
      "com.apple.TimeMachine.--help.local\ncom.apple.TimeMachine..local\ncom.apple.TimeMachine.2024-03-04-094100\n"
      "com.apple.TimeMachine.2024-03-04-094100.local.local\ncom.apple.TimeMachine.2024-3-04-0941000.local\n"
      "com.apple.TimeMachine.2024-03-04-09410a.local\ncom.apple.TimeMachine.2024-03-06-080000.local",
      0);
  CleanupEntryPtr group = SystemItems::timeMachineSnapshots();
  ASSERT_TRUE(group);
  EXPECT_EQ(readFile(calls), "listlocalsnapshots|/|");
  ASSERT_EQ(labelsOf(group->items()),
            (Labels{"Snapshot 2024-03-04-094100", "Snapshot 2024-03-05-101500", "Snapshot 2024-03-06-080000"}));
  EXPECT_EQ(log.lines().size(), 7u) << "each rejected name is logged";
  EXPECT_EQ(group->calculateSize(), CleanupEntry::Size::value(0));
  EXPECT_TRUE(group->items()[0]->size().isUnknown() && group->items()[0]->paths().empty());
  // Ticked, it stays ticked when the tree recomputes selections: it is not empty.
  group->items()[0]->select();
  EXPECT_EQ(group->updateSelection(), CleanupEntry::Selection::mixed);

  fs::remove(calls);
  EXPECT_NO_THROW(group->items()[1]->deleteItem(std::nullopt));
  EXPECT_EQ(readFile(calls), "deletelocalsnapshots|2024-03-05-101500|");
  standInTmutil("Failed to delete local snapshot", 1);
  EXPECT_THROW(group->items()[0]->deleteItem(std::nullopt), Shell::CommandError);
}

TEST_F(SystemScan, BackupsNamedFromTheirInfoTrashUpdatesAndAllSourcesInTheirFixedOrderWithLargeUserLogs) {
  EXPECT_TRUE(scanSystemItems().empty()) << "nothing on a fresh machine";
  const fs::path backups = fixture.at("~/Library/Application Support/MobileSync/Backup");
  const size_t sizes[] = {4 * kMiB, 3 * kMiB, 2 * kMiB, 2 * kMiB, 100 * kKiB, 5 * kMiB / 2};
  for (char folder = 'A'; folder <= 'F'; ++folder)
    writeFileOfSize(backups / ("00008101-" + std::string(1, folder)) / "Manifest.db", sizes[folder - 'A']);
  writePlist(backups / "00008101-A/Info.plist",
             textDictionary({{"Display Name", "Ann's iPhone"}, {"Device Name", "iPhone"}}), PlistFormat::xml);
  writePlist(backups / "00008101-B/Info.plist", textDictionary({{"Device Name", "Bob's iPad"}}), PlistFormat::binary);
  writeFile(backups / "00008101-C/Info.plist", "<?xml version=\"1.0\"?><plist><dict><key>Disp");
  // D has no Info.plist at all; F's empty display name is a name.
  writePlist(backups / "00008101-F/Info.plist", textDictionary({{"Display Name", ""}, {"Device Name", "iPhone"}}),
             PlistFormat::binary);
  // A backup moved elsewhere and linked back is a backup, but a link measures nothing.
  writePlist(fixture.at("~/Moved/00008101-G/Info.plist"), textDictionary({{"Display Name", "Moved iPad"}}),
             PlistFormat::xml);
  fs::create_directory_symlink(fixture.at("~/Moved/00008101-G"), backups / "00008101-G");
  writeFile(backups / "00008101-H", "a file, not a backup");

  EXPECT_EQ(labelsOf(SystemItems::deviceBackupEntries()),
            (Labels{"Ann's iPhone", "Bob's iPad", "00008101-C", "00008101-D", "00008101-E", "", "Moved iPad"}));
  CleanupEntryPtr group = SystemItems::deviceBackups();
  ASSERT_TRUE(group);
  ASSERT_EQ(labelsOf(group->items()), (Labels{"Ann's iPhone", "Bob's iPad", "", "00008101-C", "00008101-D"}));
  const CleanupEntry& ann = *group->items()[0];
  EXPECT_EQ(ann.tooltipText(),
            "⚠️ Backup at " + (backups / "00008101-A").string() + ". Deleting removes it permanently.");
  EXPECT_EQ(ann.paths(), std::vector<fs::path>{backups / "00008101-A"});
  EXPECT_EQ(ann.selection(), CleanupEntry::Selection::off) << "a backup is never preselected for deletion";
  // The Trash from 1 MiB, with its visible top-level items.
  fixture.file("~/.Trash/movie.mov", 900 * kKiB);
  EXPECT_FALSE(SystemItems::trash()) << "below 1 MiB";
  for (const char* file : {"~/.Trash/movie.mov", "~/.Trash/Old Project/build/a.o"}) fixture.file(file, kMiB);
  fixture.file("~/.Trash/.DS_Store", 8 * kKiB);
  CleanupEntryPtr trash = SystemItems::trash();
  ASSERT_TRUE(trash);
  EXPECT_EQ(trash->paths(),
            (std::vector<fs::path>{fixture.at("~/.Trash/Old Project"), fixture.at("~/.Trash/movie.mov")}));
  EXPECT_GE(trash->size().bytesOrZero(), static_cast<int64_t>(2 * kMiB));
  // Updates and installers, which need administrator rights to delete.
  writeFile(fixture.at("/Library/Updates/index.plist"), "<plist/>");
  EXPECT_FALSE(SystemItems::updatesAndInstallers()) << "the index alone is no update";
  fixture.file("/Library/Updates/041-12345/Payload.pkg", 3 * kMiB);
  fixture.file("/Library/Updates/041-00001/tiny.pkg", 10 * kKiB);
  for (const char* other : {"Install macOS Sonoma.app/Contents/SharedSupport/a.dmg", "Install Xcode.app/Contents/x",
                            "Install macOS Notes/x", "Install macOS Beta.app.zip"})
    fixture.file(std::string("/Applications/") + other, 5 * kMiB);
  CleanupEntryPtr updates = SystemItems::updatesAndInstallers();
  ASSERT_TRUE(updates);
  ASSERT_EQ(labelsOf(updates->items()), (Labels{"Install macOS Sonoma.app", "041-12345"}));
  for (const auto& item : updates->items()) EXPECT_TRUE(dynamic_cast<const PrivilegedFileEntry*>(item.get()));
  EXPECT_EQ(updates->items()[1]->extraInfo(), fixture.at("/Library/Updates/041-12345").string());
  // All sources, the large user logs among them, the backups above too.
  standInTmutil("com.apple.TimeMachine.2024-03-04-094100.local\n", 0);
  fixture.file("~/Library/Logs/CoreSimulator/sim.log", 3 * kMiB);
  fixture.file("~/Library/Logs/small.log", 10 * kKiB);
  for (const char* file : {"~/Library/Logs/big.log", "~/Library/Logs/.hidden.log"}) fixture.file(file, 2 * kMiB);
  auto items = scanSystemItems();
  ASSERT_EQ(labelsOf(items), (Labels{"Time Machine Local Snapshots", "Trash", "macOS Updates & Installers",
                                     "iOS Device Backups", "User Logs"}));
  EXPECT_EQ(labelsOf(items[4]->items()), (Labels{"CoreSimulator", "big.log"}));
  EXPECT_EQ(items[4]->items()[1]->tooltipText(),
            "Logs at " + fixture.at("~/Library/Logs/big.log").string() + ". Recreated by the app that writes them.");
}

TEST_F(SystemScan, CloudFoldersAreNamedForTheProviderAndAccountAndFoundOnceLargestFirst) {
  Labels shown;  // prefixes are case-sensitive
  for (const char* folder : {"GoogleDrive-ann@example.com", "OneDrive - Contoso Ltd", "Dropbox (Personal)", "Box-Box",
                             "pCloud Drive", "Sync-Work", "ProtonDrive-ann@proton.me", "Creative Cloud Files",
                             "com~apple~CloudDocs", "MEGA ((x))", "SomethingElse-x", "dropbox"})
    shown.push_back(SystemItems::cloudDisplayName(folder));
  EXPECT_EQ(shown, (Labels{"Google Drive – ann@example.com", "OneDrive – Contoso Ltd", "Dropbox – Personal", "Box",
                           "pCloud – Drive", "Sync.com – Work", "Proton Drive – ann@proton.me", "Creative Cloud",
                           "iCloud Drive", "MEGA – x", "SomethingElse-x", "dropbox"}));
  fs::create_directories(fixture.at("~/Library/CloudStorage"));
  EXPECT_TRUE(scanCloudFolders().empty()) << "nothing synced, nothing listed";
  fixture.file("~/Library/CloudStorage/Dropbox/Photos/a.jpg", 3 * kMiB);
  fixture.file("~/Library/CloudStorage/GoogleDrive-ann@example.com/My Drive/b.pdf", 5 * kMiB);
  fs::create_directories(fixture.at("~/Library/Mobile Documents/com~apple~CloudDocs"));  // empty: still listed
  fs::create_directory_symlink(fixture.at("~/Library/CloudStorage/Dropbox"), fixture.at("~/Dropbox"));
  writeFile(fixture.at("~/OneDrive notes.txt"), "a file, not a synced folder");
  fs::create_symlink(fixture.at("~/gone"), fixture.at("~/Google Drive"));
  // Reached only through a link: shown at its real place.
  TempDir elsewhere;
  writeFileOfSize(elsewhere / "Dropbox (Team)/a.bin", kMiB);
  fs::create_directory_symlink(elsewhere / "Dropbox (Team)", fixture.at("~/Dropbox (Team)"));

  auto entries = scanCloudFolders();
  ASSERT_EQ(labelsOf(entries), (Labels{"Google Drive – ann@example.com", "Dropbox", "Dropbox – Team", "iCloud Drive"}));
  auto* dropbox = dynamic_cast<CloudSyncFolderEntry*>(entries[1].get());
  ASSERT_TRUE(dropbox);
  EXPECT_EQ(dropbox->folderUrl(), fs::canonical(fixture.at("~/Library/CloudStorage/Dropbox")));
  EXPECT_TRUE(dropbox->tooltipText().starts_with("~/Library/CloudStorage/Dropbox\n\nSynced cloud folder – shown"));
  EXPECT_GE(dropbox->size().bytesOrZero(), static_cast<int64_t>(3 * kMiB));
  EXPECT_EQ(entries[2]->displayPaths(), std::vector<fs::path>{elsewhere / "Dropbox (Team)"});
  EXPECT_TRUE(entries[2]->tooltipText().starts_with((elsewhere / "Dropbox (Team)").string() + "\n\n"));
  EXPECT_EQ(entries[3]->size(), CleanupEntry::Size::value(0)) << "no size threshold for synced folders";
  EXPECT_TRUE(entries[3]->tooltipText().starts_with("~/Library/Mobile Documents/com~apple~CloudDocs\n\nSynced cloud"));
  // Shown with its size, but never ticked, deleted or counted in its location.
  EXPECT_FALSE(dropbox->hasPaths());
  auto location = std::make_shared<CleanupEntry>("Cloud Storage", "");
  location->addItems({entries[1]});
  location->updateSize();
  location->select();
  EXPECT_EQ(dropbox->selection(), CleanupEntry::Selection::off);
  EXPECT_EQ(location->size().bytesOrZero() + location->selectedSize(), 0);
  dropbox->deleteItem(dropbox->folderUrl());
  EXPECT_TRUE(fs::exists(fixture.at("~/Library/CloudStorage/Dropbox/Photos/a.jpg")));
  CloudSyncFolderEntry missing("Box", fixture.at("~/nowhere"), "Box");
  HardLinkTracker tracker;
  missing.calculateSize(tracker);
  EXPECT_TRUE(missing.size().isUnknown()) << "an unreadable synced folder keeps an unknown size";
}

}  // namespace
}  // namespace tw
