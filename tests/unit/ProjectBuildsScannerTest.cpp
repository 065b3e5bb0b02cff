#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "platform/Host.h"
#include "scan/ProjectBuildsScanner.h"
#include "support/TempDir.h"
#include "support/Unprivileged.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using Kind = ProjectBuildsScanner::Kind;
using test::TempDir;
using test::writeFile;
using test::writeFileOfSize;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ProjectBuildsScannerTest : public ::testing::Test {
 protected:
  ProjectBuildsScannerTest() : scopedHost_(makeHost()) { fs::create_directories(home()); }

  Host makeHost() {
    Host host;
    host.home = dir_ / "home/user";
    host.root = dir_ / "root";
    host.temporaryDirectory = dir_.path();
    return host;
  }

  fs::path home() const { return dir_ / "home/user"; }
  fs::path root() const { return dir_ / "root"; }

  void touch(const fs::path& path) { writeFile(path, "x"); }
  void folder(const fs::path& path) { fs::create_directories(path); }

  // Found folders of one kind, as paths relative to the home folder.
  std::vector<std::string> relative(const ProjectBuildsScanner::FoundFolders& all, Kind kind) const {
    std::vector<std::string> result;
    auto it = all.find(kind);
    if (it == all.end()) return result;
    for (const auto& path : it->second) result.push_back(path.lexically_relative(home()).string());
    return result;
  }

  TempDir dir_;
  ScopedHost scopedHost_;
};

TEST_F(ProjectBuildsScannerTest, RulesPickCacheFoldersAndNeverEnterThem) {
  auto web = home() / "code/site";
  touch(web / "package.json");
  folder(web / "node_modules/dep");
  touch(web / "node_modules/dep/Cargo.toml");  // inside a found folder: never examined
  folder(web / "node_modules/dep/target");
  folder(web / ".next/cache");

  auto mixed = home() / "code/mixed";
  touch(mixed / "CMakeLists.txt");
  touch(mixed / "build.gradle");
  folder(mixed / "build");
  folder(mixed / ".gradle");

  auto cordovaWithout = home() / "code/cordova1";
  touch(cordovaWithout / "config.xml");
  folder(cordovaWithout / "platforms");
  auto cordovaWith = home() / "code/cordova2";
  touch(cordovaWith / "config.xml");
  folder(cordovaWith / "www");
  folder(cordovaWith / "platforms");

  auto ruby = home() / "code/rails";
  touch(ruby / "Gemfile");
  folder(ruby / "vendor/bundle/ruby");
  touch(ruby / "vendor/Cargo.toml");  // "vendor" is not entered once vendor/bundle is a cache path
  folder(ruby / "vendor/target");

  auto found = ProjectBuildsScanner::findFolders({});
  EXPECT_THAT(relative(found, Kind::nodeModules), ElementsAre("code/site/node_modules"));
  EXPECT_THAT(relative(found, Kind::webBundlerCache), ElementsAre("code/site/.next"));
  EXPECT_THAT(relative(found, Kind::cmakeBuild), ElementsAre("code/mixed/build"));
  EXPECT_THAT(relative(found, Kind::gradleBuild), ElementsAre("code/mixed/.gradle"));
  EXPECT_THAT(relative(found, Kind::cordovaPlatforms), ElementsAre("code/cordova2/platforms"));
  EXPECT_THAT(relative(found, Kind::rubyVendorBundle), ElementsAre("code/rails/vendor/bundle"));
  EXPECT_THAT(relative(found, Kind::rustTarget), IsEmpty());
}

TEST_F(ProjectBuildsScannerTest, DepthLimitHiddenFoldersPackagesAndHomeExclusions) {
  fs::path deep = home();
  for (int depth = 1; depth <= 12; ++depth) deep /= "d" + std::to_string(depth);
  touch(deep / "Cargo.toml");  // a project at depth 12 is examined
  folder(deep / "target");
  touch(deep / "d13/Cargo.toml");  // depth 13 is not
  folder(deep / "d13/target");

  touch(home() / ".hidden/app/Cargo.toml");
  folder(home() / ".hidden/app/target");
  touch(home() / "Library/app/Cargo.toml");
  folder(home() / "Library/app/target");
  folder(home() / "Library/Developer/Xcode/DerivedData/App-abc");
  touch(home() / "code/Library/app/Cargo.toml");  // "Library" is only excluded right in the home
  folder(home() / "code/Library/app/target");
  touch(home() / "code/Tool.app/Contents/Cargo.toml");  // a package is never entered
  folder(home() / "code/Tool.app/Contents/target");
  folder(home() / "code/ios/DerivedData/Build");

  auto found = ProjectBuildsScanner::findFolders({});
  std::string deepTarget = (deep / "target").lexically_relative(home()).string();
  EXPECT_THAT(relative(found, Kind::rustTarget),
              ::testing::UnorderedElementsAre(deepTarget, "code/Library/app/target"));
  EXPECT_THAT(relative(found, Kind::derivedData), ElementsAre("code/ios/DerivedData"));
}

TEST_F(ProjectBuildsScannerTest, LinksCountAsCacheFoldersButAreNeverEntered) {
  auto outside = dir_ / "outside";
  folder(outside / "real-target");
  touch(outside / "project/Cargo.toml");
  folder(outside / "project/target");

  auto project = home() / "code/engine";
  touch(project / "Cargo.toml");
  fs::create_directory_symlink(outside / "real-target", project / "target");
  fs::create_directory_symlink(outside / "project", home() / "code/linked-project");

  auto found = ProjectBuildsScanner::findFolders({});
  EXPECT_THAT(relative(found, Kind::rustTarget), ElementsAre("code/engine/target"));
}

TEST_F(ProjectBuildsScannerTest, CoveredFoldersAndFoldersReachableTwiceAreReportedOnce) {
  folder(home() / "code/a/DerivedData");
  folder(home() / "code/b/DerivedData");
  touch(home() / "code/a/Cargo.toml");
  folder(home() / "code/a/target");

  // The second root lies inside the first, so every folder below it is reachable twice.
  auto found = ProjectBuildsScanner::findFolders({home(), home() / "code"}, {home() / "code/b/DerivedData/"}, {});
  EXPECT_THAT(relative(found, Kind::derivedData), ElementsAre("code/a/DerivedData"));
  EXPECT_THAT(relative(found, Kind::rustTarget), ElementsAre("code/a/target"));
}

TEST_F(ProjectBuildsScannerTest, SystemRootsAndExcludedPackageManagerTrees) {
  touch(root() / "opt/tool/Cargo.toml");
  folder(root() / "opt/tool/target");
  touch(root() / "opt/homebrew/lib/Cargo.toml");
  folder(root() / "opt/homebrew/lib/target");
  touch(root() / "usr/local/Cellar/x/package.json");
  folder(root() / "usr/local/Cellar/x/node_modules");
  touch(root() / "usr/local/src/app/package.json");
  folder(root() / "usr/local/src/app/node_modules");

  auto found = ProjectBuildsScanner::findFolders({});
  ASSERT_EQ(found[Kind::rustTarget].size(), 1u);
  EXPECT_EQ(found[Kind::rustTarget][0], root() / "opt/tool/target");
  ASSERT_EQ(found[Kind::nodeModules].size(), 1u);
  EXPECT_EQ(found[Kind::nodeModules][0], root() / "usr/local/src/app/node_modules");
}

// The order a plain sequential depth-first walk finds folders in, written independently of the
// scanner with std::filesystem: the parallel walk must reproduce it exactly.
std::vector<std::pair<Kind, fs::path>> sequentialOrder(const fs::path& home) {
  std::vector<std::pair<Kind, fs::path>> result;
  std::set<std::string> reported;
  std::vector<std::pair<fs::path, int>> stack{{home, 0}};
  while (!stack.empty()) {
    auto [folder, depth] = stack.back();
    stack.pop_back();
    if (depth >= 13) continue;
    std::vector<fs::directory_entry> listed;
    std::error_code error;
    for (auto it = fs::directory_iterator(folder, error); !error && it != fs::directory_iterator();
         it.increment(error)) {
      listed.push_back(*it);
    }
    std::set<std::string> names;
    for (auto& entry : listed) names.insert(entry.path().filename().string());
    std::set<std::string> notToEnter;
    for (const auto& rule : ProjectBuildsScanner::rules()) {
      bool any = std::any_of(rule.markers.begin(), rule.markers.end(),
                             [&](auto marker) { return names.count(std::string(marker)) > 0; });
      bool all = std::all_of(rule.requiredMarkers.begin(), rule.requiredMarkers.end(),
                             [&](auto marker) { return names.count(std::string(marker)) > 0; });
      if (!any || !all) continue;
      for (auto cacheDir : rule.cacheDirs) {
        auto candidate = folder / std::string(cacheDir);
        if (fs::is_directory(candidate) && reported.insert(candidate.string()).second) {
          result.emplace_back(rule.kind, candidate);
        }
        auto text = std::string(cacheDir);
        notToEnter.insert(text.substr(0, text.find('/')));
      }
    }
    for (auto& entry : listed) {
      auto name = entry.path().filename().string();
      if (entry.is_symlink() || !entry.is_directory() || name.ends_with(".app")) continue;
      if (name == "DerivedData") {
        if (reported.insert(entry.path().string()).second) result.emplace_back(Kind::derivedData, entry.path());
        continue;
      }
      if (notToEnter.count(name) || name == "node_modules" || name == "Pods" || name[0] == '.') continue;
      if (depth == 0 &&
          (name == "Library" || name == "Applications" || name == "Music" || name == "Movies" || name == "Pictures")) {
        continue;
      }
      stack.emplace_back(entry.path(), depth + 1);
    }
  }
  return result;
}

TEST_F(ProjectBuildsScannerTest, ParallelWalkFindsFoldersInSequentialOrder) {
  // Many projects in a wide and deep tree, so the pool really interleaves the listings.
  const char* markers[] = {"Cargo.toml", "package.json", "CMakeLists.txt", "Podfile", "pyproject.toml"};
  const char* caches[] = {"target", "node_modules", "build", "Pods", ".venv"};
  for (int group = 0; group < 12; ++group) {
    for (int project = 0; project < 10; ++project) {
      auto path = home() / ("g" + std::to_string(group)) / ("sub" + std::to_string(project % 3)) /
                  ("p" + std::to_string(project));
      int kind = (group + project) % 5;
      touch(path / markers[kind]);
      folder(path / caches[kind] / "x");
      if (project % 4 == 0) folder(path / "nested/DerivedData");
      if (project % 3 == 0) {
        touch(path / "package.json");
        folder(path / ".turbo");
      }
    }
  }
  auto expected = sequentialOrder(home());
  ASSERT_GT(expected.size(), 100u);

  for (int run = 0; run < 3; ++run) {
    auto found = ProjectBuildsScanner::findFolders({home()}, {}, {});
    for (Kind kind : ProjectBuildsScanner::allKinds()) {
      std::vector<fs::path> expectedOfKind;
      for (auto& [k, path] : expected) {
        if (k == kind) expectedOfKind.push_back(path);
      }
      EXPECT_EQ(found[kind], expectedOfKind) << "kind " << static_cast<int>(kind);
    }
  }
}

TEST_F(ProjectBuildsScannerTest, EntriesKeepFoldersOfAtLeastOneMebibyteLargestFirst) {
  auto big = home() / "code/big";
  touch(big / "Cargo.toml");
  writeFileOfSize(big / "target/debug/blob", 3 * 1024 * 1024);
  auto medium = home() / "code/medium";
  touch(medium / "Cargo.toml");
  writeFileOfSize(medium / "target/blob", 1024 * 1024);  // exactly 1 MiB allocated
  auto small = home() / "code/small";
  touch(small / "Cargo.toml");
  writeFileOfSize(small / "target/blob", 1024 * 1024 - 4096);  // one block short
  auto gems = home() / "code/rails";
  touch(gems / "Gemfile");
  writeFileOfSize(gems / "vendor/bundle/gem", 2 * 1024 * 1024);
  auto tiny = home() / "code/tiny";
  touch(tiny / "package.json");
  writeFileOfSize(tiny / "node_modules/x", 100);

  auto entries = ProjectBuildsScanner::scan({});
  ASSERT_EQ(entries.size(), 2u);  // node_modules is dropped whole

  const auto& rust = entries[0];
  EXPECT_EQ(rust->label(), "Rust \u2013 target");
  EXPECT_EQ(rust->tooltipText(), "Build products & dependency caches recreated on the next build of the project.");
  ASSERT_EQ(rust->items().size(), 2u);
  EXPECT_EQ(rust->items()[0]->label(), "big/target");
  EXPECT_EQ(rust->items()[0]->extraInfo(), "~/code/big");
  EXPECT_EQ(rust->items()[0]->tooltipText(), (big / "target").string());
  EXPECT_EQ(rust->items()[1]->label(), "medium/target");
  EXPECT_EQ(rust->items()[0]->selection(), CleanupEntry::Selection::off);
  EXPECT_THAT(rust->items()[0]->paths(), ElementsAre(big / "target"));

  const auto& ruby = entries[1];
  EXPECT_EQ(ruby->label(), "Ruby \u2013 vendor/bundle");
  EXPECT_EQ(ruby->tooltipText(), "Bundler gems installed inside projects. Recreated with \"bundle install\".");
  ASSERT_EQ(ruby->items().size(), 1u);
  EXPECT_EQ(ruby->items()[0]->label(), "vendor/bundle");
  EXPECT_EQ(ruby->items()[0]->extraInfo(), "~/code/rails/vendor");
}

TEST_F(ProjectBuildsScannerTest, UnreadableFoldersAreSkippedSilently) {
  touch(home() / "code/locked/app/Cargo.toml");
  folder(home() / "code/locked/app/target");
  touch(home() / "code/open/Cargo.toml");
  folder(home() / "code/open/target");
  fs::permissions(home() / "code/locked", fs::perms::none);
  auto failures = test::runUnprivileged(dir_.path(), [&]() -> std::string {
    auto found = ProjectBuildsScanner::findFolders({});
    auto targets = relative(found, Kind::rustTarget);
    if (targets != std::vector<std::string>{"code/open/target"})
      return "unexpected targets: " + std::to_string(targets.size());
    return "";
  });
  fs::permissions(home() / "code/locked", fs::perms::owner_all);
  if (!failures) GTEST_SKIP() << "no unprivileged user to run as";
  EXPECT_EQ(*failures, "");
}

}  // namespace
}  // namespace tw
