// The catalogue's rows, and its patterns expanded and made into entries on real trees below a fixture home and root.
#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "scan/DevCaches.h"
#include "support/CatalogueFixture.h"
#include "support/DeveloperFolderFixture.h"
#include "support/TempDir.h"
#include "support/Unprivileged.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using DevCaches::expandPattern;
using test::CatalogueFixture;
using test::labelsOf;
using Paths = std::vector<fs::path>;
using Labels = std::vector<std::string>;

constexpr size_t kMiB = 1'048'576;

class ExpandPattern : public ::testing::Test {
 protected:
  CatalogueFixture fixture;
  fs::path home = fixture.home();
  void makeFolders(std::initializer_list<std::string_view> patterns) const {
    for (auto pattern : patterns) fs::create_directories(fixture.at(pattern));
  }
};

TEST_F(ExpandPattern, LiteralPathsMatchOnlyWhatExistsAndFollowLinks) {
  makeFolders({"~/.npm", "~/elsewhere/registry", "~/.cargo"});
  EXPECT_EQ(expandPattern("~/.npm"), Paths{home / ".npm"});
  EXPECT_EQ(expandPattern("~//.npm/"), Paths{home / ".npm"}) << "doubled and trailing slashes";
  EXPECT_TRUE(expandPattern("~/.npm/missing").empty());

  fs::create_directory_symlink(home / "elsewhere/registry", fixture.at("~/.cargo/registry"));
  fs::create_symlink(home / "gone", fixture.at("~/.cargo/git"));
  EXPECT_EQ(expandPattern("~/.cargo/registry"), Paths{home / ".cargo/registry"});
  EXPECT_TRUE(expandPattern("~/.cargo/git").empty()) << "a dangling link names nothing";
}

TEST_F(ExpandPattern, StarAtTheEndMatchesByPrefixInNameOrderOutsideTheHome) {
  // As on a Mac, where /tmp is a link to /private/tmp.
  makeFolders({"/private/tmp/metro-b", "/private/tmp/metro-a", "/private/tmp/metro-", "/private/tmp/haste-map-1",
               "/private/var/tmp/_bazel_ann", "~/private/var/tmp/_bazel_home"});
  fs::create_directory_symlink("private/tmp", fixture.at("/tmp"));
  test::writeFile(fixture.at("/tmp/metro-file"), "a file matches too");
  const fs::path tmp = fixture.root() / "tmp";
  EXPECT_EQ(expandPattern("/tmp/metro-*"),
            (Paths{tmp / "metro-", tmp / "metro-a", tmp / "metro-b", tmp / "metro-file"}));
  EXPECT_TRUE(expandPattern("/tmp/nothing-*").empty());
  EXPECT_EQ(expandPattern("/private/var/tmp/_bazel_*"), Paths{fixture.root() / "private/var/tmp/_bazel_ann"});
}

TEST_F(ExpandPattern, StarInTheMiddleListsOneLevelAndKeepsOnlyFullMatches) {
  makeFolders({"~/.gem/ruby/3.2.0/cache", "~/.gem/ruby/3.3.0"});
  test::writeFile(fixture.at("~/.gem/ruby/README"), "not a folder");
  EXPECT_EQ(expandPattern("~/.gem/ruby/*/cache"), Paths{home / ".gem/ruby/3.2.0/cache"});

  // A blank belongs to the prefix.
  makeFolders({"~/Dropbox/.dropbox.cache", "~/Dropbox (Team)/.dropbox.cache", "~/DropboxOld/.dropbox.cache"});
  EXPECT_EQ(expandPattern("~/Dropbox */.dropbox.cache"), Paths{home / "Dropbox (Team)/.dropbox.cache"});

  // Two wildcards in two components: every container, then every account of it.
  const std::string app = "~/Library/Group Containers/6N38.ru.keepcoder.Telegram/appstore/";
  makeFolders({app + "account-1/postbox/media", app + "account-2/postbox/media", app + "other-3/postbox/media",
               "~/Library/Group Containers/AB12.ru.keepcoder.TelegramBeta/appstore/account-1/postbox/media"});
  const fs::path container = fixture.at(app);
  EXPECT_EQ(expandPattern("~/Library/Group Containers/*.ru.keepcoder.Telegram/appstore/account-*/postbox/media"),
            (Paths{container / "account-1/postbox/media", container / "account-2/postbox/media"}));

  // Within one component only the first star is a wildcard.
  makeFolders({"~/x/ab*c", "~/x/abZc", "~/x/aQb*c"});
  EXPECT_EQ(expandPattern("~/x/a*b*c"), (Paths{home / "x/aQb*c", home / "x/ab*c"}));
}

TEST_F(ExpandPattern, UnlistableFolderGivesNoMatchesAndNoMessage) {
  makeFolders({"~/Library/Application Support/Google/DriveFS/acct/content_cache"});
  // Anyone may pass through the folder, nobody may list it.
  fs::permissions(fixture.at("~/Library/Application Support/Google/DriveFS"),
                  fs::perms::owner_write | fs::perms::owner_exec | fs::perms::group_exec | fs::perms::others_exec);
  auto failures = test::runUnprivileged(home.parent_path(), [] {
    test::LogCapture log;
    const std::string folder = "~/Library/Application Support/Google/DriveFS/";
    std::string found = expandPattern(folder + "*/content_cache").empty() ? "" : "a wildcard matched unlisted\n";
    // Existence needs search, not read permission.
    if (expandPattern(folder + "acct/content_cache").size() != 1) found += "the literal path was not found\n";
    for (const std::string& line : log.lines()) found += "logged: " + line + "\n";
    return found;
  });
  if (!failures) GTEST_SKIP() << "no unprivileged user to run as";
  EXPECT_EQ(*failures, "");
}

TEST_F(ExpandPattern, AbbreviatesOnlyWholeHomeComponents) {
  EXPECT_EQ(DevCaches::abbreviatedPath(home / ".cargo/git"), "~/.cargo/git");
  EXPECT_EQ(DevCaches::abbreviatedPath(home), "~");
  const fs::path sibling = home.string() + "2/.cargo";
  EXPECT_EQ(DevCaches::abbreviatedPath(sibling), sibling.string());
}

TEST(ExpandPatternWithoutHome, SkipsHomePatternsButNotSystemOnes) {
  test::TempDir root;
  fs::create_directories(root / "tmp/metro-1");
  Host host;
  host.root = root.path();
  ScopedHost scoped(host);
  EXPECT_TRUE(expandPattern("~/.npm").empty());
  EXPECT_EQ(expandPattern("/tmp/metro-*").size(), 1u);
  EXPECT_EQ(DevCaches::abbreviatedPath("/Users/ann/.npm"), "/Users/ann/.npm");
}

class MakeEntries : public ::testing::Test {
 protected:
  CatalogueFixture fixture;
};

TEST_F(MakeEntries, OneMatchHoldsThePathSeveralMatchesOneChildEachInPatternOrder) {
  fixture.makeFolderWithData("~/Library/Caches/carthage", 2 * kMiB);
  auto packages = DevCaches::makeEntries(DevCaches::packageManagers());
  ASSERT_EQ(labelsOf(packages), Labels{"Carthage"});
  EXPECT_TRUE(packages[0]->items().empty());
  EXPECT_EQ(packages[0]->paths(), Paths{fixture.at("~/Library/Caches/carthage")});

  fixture.makeFolderWithData("~/.cache/bazel", 1 * kMiB);
  fixture.makeFolderWithData("/private/var/tmp/_bazel_bob", 1 * kMiB);
  fixture.makeFolderWithData("/private/var/tmp/_bazel_ann", 2 * kMiB);
  auto tools = DevCaches::makeEntries(DevCaches::devTools());
  ASSERT_EQ(labelsOf(tools), Labels{"Bazel"}) << "one group alone is not grouped";
  const CleanupEntry& bazel = *tools[0];
  EXPECT_TRUE(bazel.paths().empty());
  const std::string bases = (fixture.root() / "private/var/tmp/_bazel_").string();
  ASSERT_EQ(labelsOf(bazel.items()), (Labels{bases + "ann", bases + "bob", "~/.cache/bazel"}));
  int64_t sum = 0;
  for (const auto& child : bazel.items()) {
    EXPECT_EQ(child->parent().get(), &bazel);
    EXPECT_EQ(child->tooltipText(), "Bazel output bases & repository cache.");
    EXPECT_FALSE(child->size().isUnknown()) << "children are measured with their row";
    sum += child->size().bytesOrZero();
  }
  EXPECT_EQ(bazel.size().bytesOrZero(), sum);
}

TEST_F(MakeEntries, DropsEntriesBelowOneMebibyte) {
  CleanupEntry entry("x", "");
  for (auto [size, large] : {std::pair{CleanupEntry::Size::value(1'048'575), false},
                             {CleanupEntry::Size::value(1'048'576), true},
                             {CleanupEntry::Size::unknown(), false}}) {
    entry.setSize(size);
    EXPECT_EQ(DevCaches::isLargeEnough(entry), large);
  }

  fs::path probe = fixture.makeFolderWithData("~/probe", kMiB);
  if (test::allocatedBytes(probe) != static_cast<int64_t>(kMiB)) GTEST_SKIP() << "1 MiB of data is not 1 MiB here";
  fs::remove_all(probe.parent_path());
  fixture.makeFolderWithData("~/Library/Caches/CocoaPods", kMiB);
  fixture.makeFolderWithData("~/Library/Caches/org.swift.swiftpm",
                             kMiB - static_cast<size_t>(test::blockSize(fixture.home())));
  auto entries = DevCaches::makeEntries(DevCaches::packageManagers());
  ASSERT_EQ(labelsOf(entries), Labels{"CocoaPods"});
  EXPECT_EQ(entries[0]->size(), CleanupEntry::Size::value(1'048'576));
}

TEST_F(MakeEntries, OneGroupStaysFlatTwoGroupsAreGroupedBySummedSize) {
  fixture.makeFolderWithData("~/.cargo/registry", 3 * kMiB);
  fixture.makeFolderWithData("~/.rustup/toolchains", 2 * kMiB);
  EXPECT_EQ(labelsOf(DevCaches::makeEntries(DevCaches::devTools())),
            (Labels{"Cargo registry & git", "rustup toolchains"}));

  // Python's single entry is larger than either Rust entry, but Rust is larger in sum.
  fixture.makeFolderWithData("~/.cache/pip", 4 * kMiB);
  auto grouped = DevCaches::makeEntries(DevCaches::devTools());
  ASSERT_EQ(labelsOf(grouped), (Labels{"Rust", "Python"}));
  const CleanupEntry& rust = *grouped[0];
  EXPECT_EQ(labelsOf(rust.items()), (Labels{"Cargo registry & git", "rustup toolchains"}));
  EXPECT_EQ(rust.size().bytesOrZero(), rust.items()[0]->size().bytesOrZero() + rust.items()[1]->size().bytesOrZero());
  EXPECT_FALSE(rust.tooltip());

  fixture.makeFolderWithData("~/.cache/uv", 4 * kMiB);
  EXPECT_EQ(labelsOf(DevCaches::makeEntries(DevCaches::devTools())), (Labels{"Python", "Rust"}));

  // Lists without groups: largest first.
  fixture.makeFolderWithData("~/Library/Caches/Firefox", 2 * kMiB);
  fixture.makeFolderWithData("~/Library/Caches/Google/Chrome", 5 * kMiB);
  fixture.makeFolderWithData("~/Library/Caches/Chromium", 3 * kMiB);
  EXPECT_EQ(labelsOf(DevCaches::makeEntries(DevCaches::browsers())), (Labels{"Google Chrome", "Chromium", "Firefox"}));
}

TEST_F(MakeEntries, HardLinksCountOncePerEntryButAgainInAnotherEntry) {
  fs::path shared = fixture.makeFolderWithData("~/.cargo/registry", 2 * kMiB);
  fs::create_directories(fixture.at("~/.cargo/git"));
  fs::create_hard_link(shared, fixture.at("~/.cargo/git/linked.bin"));
  fs::create_directories(fixture.at("~/.cache/pip"));
  fs::create_hard_link(shared, fixture.at("~/.cache/pip/linked.bin"));
  const auto once = CleanupEntry::Size::value(test::allocatedBytes(shared));

  auto entries = DevCaches::makeEntries(DevCaches::devTools());
  ASSERT_EQ(labelsOf(entries), (Labels{"Rust", "Python"}));
  const CleanupEntry& cargo = *entries[0]->items().at(0);
  EXPECT_EQ(cargo.items().size(), 2u);
  EXPECT_EQ(cargo.size(), once);
  EXPECT_EQ(entries[1]->items().at(0)->size(), once);
}

TEST(Catalogue, RowsPerLocationAreWellFormedAndUseTheirGroups) {
  const std::set<std::string> none{""};
  const struct {
    CatalogueList list;
    size_t rows;
    std::set<std::string> groups;
  } locations[] = {
      {CatalogueList::packageManagers, 3, none},
      {CatalogueList::devTools,
       39,
       {"Rust", "Zig", "JavaScript / Web", "Java / Android", "Flutter / Dart", "Build Tools", "VMs & Containers",
        "Python", "Ruby", "Go", "PHP / .NET", "Apple"}},
      {CatalogueList::ides, 2, {"IDEs & Editors"}},
      {CatalogueList::aiTools, 6, {"AI & LLM"}},
      {CatalogueList::browsers, 10, none},
      {CatalogueList::apps, 6, none},
      {CatalogueList::cloudClients, 12, none},
  };
  std::set<std::string> labels;
  for (const auto& location : locations) {
    const auto& specs = DevCaches::specs(location.list);
    EXPECT_EQ(specs.size(), location.rows);
    std::set<std::string> groups;
    for (const DevCaches::CacheSpec& spec : specs) {
      SCOPED_TRACE(spec.label);
      groups.insert(spec.group);
      EXPECT_TRUE(labels.insert(spec.label).second) << "duplicate label";
      EXPECT_FALSE(spec.tooltip.empty() || spec.tooltip.front() == ' ' || spec.tooltip.back() == ' ');
      ASSERT_FALSE(spec.paths.empty());
      for (const std::string& pattern : spec.paths) {
        EXPECT_TRUE((pattern.starts_with("~/") || pattern.starts_with("/")) && !pattern.ends_with("/")) << pattern;
      }
    }
    EXPECT_EQ(groups, location.groups);
  }
  EXPECT_EQ(DevCaches::devTools()[12].label, "React Native / Metro") << "rows keep their order";
}

}  // namespace
}  // namespace tw
