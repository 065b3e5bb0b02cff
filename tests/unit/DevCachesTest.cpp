// Pattern expansion and the making of catalogue entries on real trees below a fixture home
// and a fixture system root.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "fs/DirectorySize.h"
#include "scan/DevCaches.h"
#include "support/CatalogueFixture.h"
#include "support/TempDir.h"
#include "support/Unprivileged.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using DevCaches::CacheSpec;
using DevCaches::expandPattern;
using test::CatalogueFixture;

constexpr size_t kMiB = 1'048'576;

std::vector<std::string> labelsOf(const std::vector<CleanupEntryPtr>& entries) {
  std::vector<std::string> labels;
  for (const auto& entry : entries) labels.push_back(entry->label());
  return labels;
}

const CacheSpec& rowLabelled(const std::vector<CacheSpec>& specs, const std::string& label) {
  for (const CacheSpec& spec : specs) {
    if (spec.label == label) return spec;
  }
  throw std::runtime_error("no row labelled " + label);
}

class ExpandPattern : public ::testing::Test {
 protected:
  CatalogueFixture fixture;
  void makeFolder(std::string_view pattern) const { fs::create_directories(fixture.at(pattern)); }
};

TEST_F(ExpandPattern, LiteralPathsMatchOnlyWhatExists) {
  makeFolder("~/.npm");
  EXPECT_EQ(expandPattern("~/.npm"), std::vector<fs::path>{fixture.home() / ".npm"});
  EXPECT_TRUE(expandPattern("~/.npm/missing").empty());
  EXPECT_TRUE(expandPattern("~/Library/Caches/Yarn").empty());
  // Doubled and trailing slashes name the same item.
  EXPECT_EQ(expandPattern("~//.npm/"), std::vector<fs::path>{fixture.home() / ".npm"});
}

TEST_F(ExpandPattern, HomeComesFromTheHostNotFromTheEnvironment) {
  test::TempDir elsewhere;
  fs::create_directories(elsewhere / ".cargo/git");
  const char* previous = std::getenv("HOME");
  std::string saved = previous ? previous : "";
  ::setenv("HOME", elsewhere.path().c_str(), 1);
  auto matches = expandPattern("~/.cargo/git");
  if (previous) ::setenv("HOME", saved.c_str(), 1);
  EXPECT_TRUE(matches.empty());
  EXPECT_EQ(DevCaches::realHomeDirectory(), fixture.home());
}

TEST_F(ExpandPattern, StarAtTheEndMatchesByPrefixInNameOrder) {
  makeFolder("/tmp/metro-b");
  makeFolder("/tmp/metro-a");
  makeFolder("/tmp/metro-");  // an empty rest still starts with the prefix
  makeFolder("/tmp/haste-map-1");
  test::writeFile(fixture.at("/tmp/metro-file"), "a file matches too");
  EXPECT_EQ(expandPattern("/tmp/metro-*"),
            (std::vector<fs::path>{fixture.root() / "tmp/metro-", fixture.root() / "tmp/metro-a",
                                   fixture.root() / "tmp/metro-b", fixture.root() / "tmp/metro-file"}));
  EXPECT_TRUE(expandPattern("/tmp/nothing-*").empty());
}

TEST_F(ExpandPattern, StarInTheMiddleListsOneLevelAndKeepsOnlyFullMatches) {
  makeFolder("~/.gem/ruby/3.2.0/cache");
  makeFolder("~/.gem/ruby/3.3.0");  // no cache folder: contributes nothing
  test::writeFile(fixture.at("~/.gem/ruby/README"), "not a folder");
  EXPECT_EQ(expandPattern("~/.gem/ruby/*/cache"), std::vector<fs::path>{fixture.home() / ".gem/ruby/3.2.0/cache"});

  // Two wildcards in one pattern: every container, then every account of it.
  makeFolder("~/Library/Group Containers/6N38.ru.keepcoder.Telegram/appstore/account-1/postbox/media");
  makeFolder("~/Library/Group Containers/6N38.ru.keepcoder.Telegram/appstore/account-2/postbox/media");
  makeFolder("~/Library/Group Containers/6N38.ru.keepcoder.Telegram/appstore/other-3/postbox/media");
  makeFolder("~/Library/Group Containers/AB12.ru.keepcoder.TelegramBeta/appstore/account-1/postbox/media");
  const fs::path container = fixture.home() / "Library/Group Containers/6N38.ru.keepcoder.Telegram/appstore";
  EXPECT_EQ(expandPattern("~/Library/Group Containers/*.ru.keepcoder.Telegram/appstore/account-*/postbox/media"),
            (std::vector<fs::path>{container / "account-1/postbox/media", container / "account-2/postbox/media"}));
}

TEST_F(ExpandPattern, PrefixAndSuffixIncludeBlanksAndHiddenNames) {
  makeFolder("~/Dropbox/.dropbox.cache");
  makeFolder("~/Dropbox (Team)/.dropbox.cache");
  makeFolder("~/DropboxOld/.dropbox.cache");
  EXPECT_EQ(expandPattern("~/Dropbox */.dropbox.cache"),
            std::vector<fs::path>{fixture.home() / "Dropbox (Team)/.dropbox.cache"});
  EXPECT_EQ(expandPattern("~/Dropbox/.dropbox.cache"),
            std::vector<fs::path>{fixture.home() / "Dropbox/.dropbox.cache"});

  makeFolder("~/Library/Group Containers/.hidden.ch.protonmail.drive/Logs");
  makeFolder("~/Library/Group Containers/XYZ.ch.protonmail.drive/Logs");
  makeFolder("~/Library/Group Containers/XYZ.ch.protonmail.drive.old/Logs");
  EXPECT_EQ(expandPattern("~/Library/Group Containers/*.ch.protonmail.drive/Logs"),
            (std::vector<fs::path>{fixture.home() / "Library/Group Containers/.hidden.ch.protonmail.drive/Logs",
                                   fixture.home() / "Library/Group Containers/XYZ.ch.protonmail.drive/Logs"}));
}

TEST_F(ExpandPattern, OnlyTheFirstStarIsAWildcard) {
  makeFolder("~/x/ab*c");
  makeFolder("~/x/abZc");
  makeFolder("~/x/aQb*c");
  EXPECT_EQ(expandPattern("~/x/a*b*c"), (std::vector<fs::path>{fixture.home() / "x/aQb*c", fixture.home() / "x/ab*c"}));
}

TEST_F(ExpandPattern, LiteralComponentsFollowSymbolicLinks) {
  // As on a Mac, where /tmp is a link to /private/tmp.
  makeFolder("/private/tmp/metro-1");
  fs::create_directory_symlink("private/tmp", fixture.at("/tmp"));
  EXPECT_EQ(expandPattern("/tmp/metro-*"), std::vector<fs::path>{fixture.root() / "tmp/metro-1"});
  EXPECT_EQ(expandPattern("/private/tmp/metro-*"), std::vector<fs::path>{fixture.root() / "private/tmp/metro-1"});

  makeFolder("~/elsewhere/registry");
  fs::create_directories(fixture.at("~/.cargo"));
  fs::create_directory_symlink(fixture.home() / "elsewhere/registry", fixture.at("~/.cargo/registry"));
  fs::create_symlink(fixture.home() / "gone", fixture.at("~/.cargo/git"));
  EXPECT_EQ(expandPattern("~/.cargo/registry"), std::vector<fs::path>{fixture.home() / ".cargo/registry"});
  EXPECT_TRUE(expandPattern("~/.cargo/git").empty()) << "a dangling link names nothing";
}

TEST_F(ExpandPattern, AbsolutePatternsStayOutsideTheHome) {
  makeFolder("/private/var/tmp/_bazel_ann");
  makeFolder("~/private/var/tmp/_bazel_home");
  EXPECT_EQ(expandPattern("/private/var/tmp/_bazel_*"),
            std::vector<fs::path>{fixture.root() / "private/var/tmp/_bazel_ann"});
}

TEST_F(ExpandPattern, UnlistableFolderGivesNoMatchesAndNoMessage) {
  makeFolder("~/Library/Application Support/Google/DriveFS/acct/content_cache");
  // Anyone may pass through the folder, nobody may list it.
  fs::permissions(fixture.at("~/Library/Application Support/Google/DriveFS"),
                  fs::perms::owner_write | fs::perms::owner_exec | fs::perms::group_exec | fs::perms::others_exec);
  auto failures = test::runUnprivileged(fixture.home().parent_path(), [] {
    std::string found;
    test::LogCapture log;
    if (!expandPattern("~/Library/Application Support/Google/DriveFS/*/content_cache").empty()) {
      found += "a wildcard matched inside a folder that cannot be listed\n";
    }
    // A literal path below it is still reachable: existence needs search, not read permission.
    if (expandPattern("~/Library/Application Support/Google/DriveFS/acct/content_cache").size() != 1) {
      found += "the literal path below the folder was not found\n";
    }
    for (const std::string& line : log.lines()) found += "logged: " + line + "\n";
    return found;
  });
  if (!failures) GTEST_SKIP() << "no unprivileged user to run as";
  EXPECT_EQ(*failures, "");
}

TEST(ExpandPatternWithoutHome, SkipsHomePatternsButNotSystemOnes) {
  test::TempDir root;
  fs::create_directories(root / "tmp/metro-1");
  Host host;
  host.root = root.path();
  ScopedHost scoped(host);
  EXPECT_TRUE(expandPattern("~/.npm").empty());
  EXPECT_TRUE(expandPattern("~").empty());
  EXPECT_EQ(expandPattern("/tmp/metro-*").size(), 1u);
  EXPECT_EQ(DevCaches::abbreviatedPath("/Users/ann/.npm"), "/Users/ann/.npm");
}

TEST_F(ExpandPattern, AbbreviatesOnlyWholeHomeComponents) {
  EXPECT_EQ(DevCaches::abbreviatedPath(fixture.home() / ".cargo/git"), "~/.cargo/git");
  EXPECT_EQ(DevCaches::abbreviatedPath(fixture.home()), "~");
  fs::path sibling = fixture.home();
  sibling += "2/.cargo";
  EXPECT_EQ(DevCaches::abbreviatedPath(sibling), sibling.string());
  EXPECT_EQ(DevCaches::abbreviatedPath(fixture.root() / "private/var/tmp/_bazel_x"),
            (fixture.root() / "private/var/tmp/_bazel_x").string());
}

class MakeEntries : public ::testing::Test {
 protected:
  CatalogueFixture fixture;

  // Skips when this file system does not allocate plain data in whole blocks the way the
  // size checks below assume.
  void requireExactAllocation() {
    fs::path probe = fixture.makeFolderWithData("~/probe", kMiB);
    int64_t allocated = test::allocatedBytes(probe);
    fs::remove_all(probe.parent_path());
    if (allocated != static_cast<int64_t>(kMiB)) GTEST_SKIP() << "1 MiB of data takes " << allocated << " bytes here";
  }
};

TEST_F(MakeEntries, RowWithOneMatchHoldsThePathItself) {
  fixture.makeFolderWithData("~/Library/Caches/carthage", 2 * kMiB);
  auto entries = DevCaches::makeEntries(DevCaches::packageManagers());
  ASSERT_EQ(entries.size(), 1u);
  const CleanupEntry& carthage = *entries[0];
  EXPECT_EQ(carthage.label(), "Carthage");
  EXPECT_EQ(carthage.extraInfo(), "");
  EXPECT_EQ(carthage.tooltipText(),
            "Carthage cache of downloaded & built dependencies. Rebuilt on next \"carthage bootstrap/update\".");
  EXPECT_TRUE(carthage.tooltip());
  EXPECT_EQ(carthage.selection(), CleanupEntry::Selection::off);
  EXPECT_EQ(carthage.icon(), CleanupEntry::Icon::system("NSImageNameFolder"));
  EXPECT_TRUE(carthage.items().empty());
  EXPECT_EQ(carthage.paths(), std::vector<fs::path>{fixture.home() / "Library/Caches/carthage"});
  EXPECT_GE(carthage.size().bytesOrZero(), static_cast<int64_t>(2 * kMiB));
}

TEST_F(MakeEntries, RowWithSeveralMatchesHasOneChildPerPath) {
  fixture.makeFolderWithData("/private/var/tmp/_bazel_ann", 2 * kMiB);
  fixture.makeFolderWithData("/private/var/tmp/_bazel_bob", 1 * kMiB);
  fixture.makeFolderWithData("~/.cache/bazel", 1 * kMiB);
  auto entries = DevCaches::makeEntries(DevCaches::devTools());
  ASSERT_EQ(entries.size(), 1u) << "one group alone is not grouped";
  const CleanupEntry& bazel = *entries[0];
  EXPECT_EQ(bazel.label(), "Bazel");
  EXPECT_TRUE(bazel.paths().empty());
  ASSERT_EQ(bazel.items().size(), 3u);
  EXPECT_EQ(labelsOf(bazel.items()),
            (std::vector<std::string>{(fixture.root() / "private/var/tmp/_bazel_ann").string(),
                                      (fixture.root() / "private/var/tmp/_bazel_bob").string(), "~/.cache/bazel"}));
  for (const auto& child : bazel.items()) {
    EXPECT_EQ(child->parent().get(), &bazel);
    EXPECT_EQ(child->paths().size(), 1u);
    EXPECT_EQ(child->tooltipText(), "Bazel output bases & repository cache.");
    EXPECT_TRUE(child->tooltip());
    EXPECT_EQ(child->selection(), CleanupEntry::Selection::off);
    EXPECT_FALSE(child->size().isUnknown()) << "children are measured with their row";
  }
  EXPECT_EQ(bazel.size().bytesOrZero(), bazel.items()[0]->size().bytesOrZero() +
                                            bazel.items()[1]->size().bytesOrZero() +
                                            bazel.items()[2]->size().bytesOrZero());
}

TEST_F(MakeEntries, DropsEntriesBelowOneMebibyte) {
  requireExactAllocation();
  const int64_t block = test::blockSize(fixture.home());
  fixture.makeFolderWithData("~/Library/Caches/CocoaPods", kMiB);
  fixture.makeFolderWithData("~/Library/Caches/org.swift.swiftpm", kMiB - static_cast<size_t>(block));
  auto entries = DevCaches::makeEntries(DevCaches::packageManagers());
  ASSERT_EQ(labelsOf(entries), std::vector<std::string>{"CocoaPods"});
  EXPECT_EQ(entries[0]->size(), CleanupEntry::Size::value(1'048'576));

  // The rule at the exact byte, whatever the block size.
  CleanupEntry entry("x", "");
  entry.setSize(CleanupEntry::Size::value(1'048'575));
  EXPECT_FALSE(DevCaches::isLargeEnough(entry));
  entry.setSize(CleanupEntry::Size::value(1'048'576));
  EXPECT_TRUE(DevCaches::isLargeEnough(entry));
  entry.setSize(CleanupEntry::Size::unknown());
  EXPECT_FALSE(DevCaches::isLargeEnough(entry));
}

TEST_F(MakeEntries, OneGroupStaysFlatAndTwoGroupsAreGroupedBySummedSize) {
  fixture.makeFolderWithData("~/.cargo/registry", 3 * kMiB);
  fixture.makeFolderWithData("~/.rustup/toolchains", 2 * kMiB);
  fixture.makeFolderWithData("~/Library/Caches/zig-not-listed", 9 * kMiB);

  auto flat = DevCaches::makeEntries(DevCaches::devTools());
  EXPECT_EQ(labelsOf(flat), (std::vector<std::string>{"Cargo registry & git", "rustup toolchains"}));

  // Python's single entry is larger than either Rust entry, but Rust is larger in sum.
  fixture.makeFolderWithData("~/.cache/pip", 4 * kMiB);
  auto grouped = DevCaches::makeEntries(DevCaches::devTools());
  ASSERT_EQ(labelsOf(grouped), (std::vector<std::string>{"Rust", "Python"}));
  const CleanupEntry& rust = *grouped[0];
  const CleanupEntry& python = *grouped[1];
  EXPECT_EQ(labelsOf(rust.items()), (std::vector<std::string>{"Cargo registry & git", "rustup toolchains"}));
  EXPECT_EQ(rust.size().bytesOrZero(), rust.items()[0]->size().bytesOrZero() + rust.items()[1]->size().bytesOrZero());
  EXPECT_EQ(labelsOf(python.items()), std::vector<std::string>{"pip"});
  EXPECT_EQ(python.size(), python.items()[0]->size());
  EXPECT_EQ(rust.tooltipText(), "Rust");
  EXPECT_FALSE(rust.tooltip());
  EXPECT_EQ(rust.selection(), CleanupEntry::Selection::off);
  EXPECT_EQ(rust.icon(), CleanupEntry::Icon::system("NSImageNameFolder"));
  EXPECT_TRUE(rust.paths().empty());

  // A larger Python entry moves its group first.
  fixture.makeFolderWithData("~/.cache/uv", 4 * kMiB);
  auto reordered = DevCaches::makeEntries(DevCaches::devTools());
  EXPECT_EQ(labelsOf(reordered), (std::vector<std::string>{"Python", "Rust"}));
}

TEST_F(MakeEntries, ListsWithoutGroupsAreSortedLargestFirst) {
  fixture.makeFolderWithData("~/Library/Caches/Firefox", 2 * kMiB);
  fixture.makeFolderWithData("~/Library/Caches/Google/Chrome", 5 * kMiB);
  fixture.makeFolderWithData("~/Library/Caches/Chromium", 3 * kMiB);
  EXPECT_EQ(labelsOf(DevCaches::makeEntries(DevCaches::browsers())),
            (std::vector<std::string>{"Google Chrome", "Chromium", "Firefox"}));
  EXPECT_TRUE(DevCaches::makeEntries(DevCaches::apps()).empty());
}

TEST_F(MakeEntries, HardLinksCountOncePerEntryButAgainInAnotherEntry) {
  fs::path shared = fixture.makeFolderWithData("~/.cargo/registry", 2 * kMiB);
  fs::create_directories(fixture.at("~/.cargo/git"));
  fs::create_hard_link(shared, fixture.at("~/.cargo/git/linked.bin"));
  fs::create_directories(fixture.at("~/.cache/pip"));
  fs::create_hard_link(shared, fixture.at("~/.cache/pip/linked.bin"));
  const int64_t once = test::allocatedBytes(shared);

  auto entries = DevCaches::makeEntries(DevCaches::devTools());
  ASSERT_EQ(labelsOf(entries), (std::vector<std::string>{"Rust", "Python"}));
  const CleanupEntry& cargo = *entries[0]->items().at(0);
  EXPECT_EQ(cargo.label(), "Cargo registry & git");
  EXPECT_EQ(cargo.items().size(), 2u);
  EXPECT_EQ(cargo.size(), CleanupEntry::Size::value(once));
  EXPECT_EQ(entries[1]->items().at(0)->size(), CleanupEntry::Size::value(once));
}

TEST_F(MakeEntries, ChildrenFollowThePatternOrderOfTheRow) {
  fixture.makeFolderWithData("~/Library/Caches/pnpm", 1 * kMiB);
  fixture.makeFolderWithData("~/.pnpm-store", 1 * kMiB);
  fixture.makeFolderWithData("~/Library/pnpm/store", 1 * kMiB);
  const CacheSpec& pnpm = rowLabelled(DevCaches::devTools(), "pnpm store");
  auto entries = DevCaches::makeEntries({pnpm});
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(labelsOf(entries[0]->items()),
            (std::vector<std::string>{"~/Library/pnpm/store", "~/.pnpm-store", "~/Library/Caches/pnpm"}));
}

}  // namespace
}  // namespace tw
