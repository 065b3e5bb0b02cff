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
using test::writeFileOfSize;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

class ProjectBuildsScannerTest : public ::testing::Test {
 protected:
  ProjectBuildsScannerTest()
      : home_(dir_ / "home/user"),
        scopedHost_(Host{.home = home_, .root = dir_ / "root", .temporaryDirectory = dir_.path()}) {
    fs::create_directories(home_);
  }

  // Writes a marker file, and makes the given folders next to it.
  void project(const fs::path& marker, std::initializer_list<const char*> folders = {}) {
    test::writeFile(home_ / marker, "x");
    for (const char* folder : folders) fs::create_directories((home_ / marker).parent_path() / folder);
  }

  // Found folders of one kind, as paths relative to the home folder.
  std::vector<std::string> relative(const ProjectBuildsScanner::FoundFolders& all, Kind kind) const {
    std::vector<std::string> result;
    if (auto it = all.find(kind); it != all.end())
      for (const auto& path : it->second) result.push_back(path.lexically_relative(home_).string());
    return result;
  }

  test::TempDir dir_;
  fs::path home_;
  ScopedHost scopedHost_;
};

TEST_F(ProjectBuildsScannerTest, RulesPickCacheFoldersAndNeverEnterThem) {
  project("site/package.json", {"node_modules/dep/target", ".next/cache"});
  project("site/node_modules/dep/Cargo.toml");  // inside a found folder: never examined
  project("mixed/CMakeLists.txt", {"build", ".gradle"});
  project("mixed/build.gradle");
  project("cordova1/config.xml", {"platforms"});  // without the required "www"
  project("cordova2/config.xml", {"www", "platforms"});
  project("rails/Gemfile", {"vendor/bundle/ruby", "vendor/target"});
  project("rails/vendor/Cargo.toml");  // "vendor" is not entered once vendor/bundle is a cache path
  project("plain/Cargo.toml");
  test::writeFile(home_ / "plain/target", "a file, not a build folder");

  auto found = ProjectBuildsScanner::findFolders({});
  EXPECT_THAT(relative(found, Kind::nodeModules), ElementsAre("site/node_modules"));
  EXPECT_THAT(relative(found, Kind::webBundlerCache), ElementsAre("site/.next"));
  EXPECT_THAT(relative(found, Kind::cmakeBuild), ElementsAre("mixed/build"));
  EXPECT_THAT(relative(found, Kind::gradleBuild), ElementsAre("mixed/.gradle"));
  EXPECT_THAT(relative(found, Kind::cordovaPlatforms), ElementsAre("cordova2/platforms"));
  EXPECT_THAT(relative(found, Kind::rubyVendorBundle), ElementsAre("rails/vendor/bundle"));
  EXPECT_THAT(relative(found, Kind::rustTarget), IsEmpty());
}

TEST_F(ProjectBuildsScannerTest, DepthLimitHiddenFoldersPackagesLinksAndHomeExclusions) {
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
  fs::create_directories(home_ / "code/ios/DerivedData/Build");
  // A link counts as a cache folder but is never entered, nor is a linked project.
  project("../outside/project/Cargo.toml", {"target", "../real-target"});
  project("code/engine/Cargo.toml");
  fs::create_directory_symlink(dir_ / "home/outside/real-target", home_ / "code/engine/target");
  fs::create_directory_symlink(dir_ / "home/outside/project", home_ / "code/linked-project");

  auto found = ProjectBuildsScanner::findFolders({});
  EXPECT_THAT(relative(found, Kind::rustTarget),
              UnorderedElementsAre(deep + "target", "code/Library/app/target", "code/engine/target",
                                   "code/Not.a.package/target"));
  EXPECT_THAT(relative(found, Kind::derivedData), ElementsAre("code/ios/DerivedData"));
}

TEST_F(ProjectBuildsScannerTest, CoveredFoldersAndFoldersReachableTwiceAreReportedOnce) {
  project("code/a/Cargo.toml", {"target", "DerivedData", "../b/DerivedData"});
  // The second root lies inside the first, so every folder below it is reachable twice.
  auto found = ProjectBuildsScanner::findFolders({home_, home_ / "code"}, {home_ / "code/b/DerivedData/"}, {});
  EXPECT_THAT(relative(found, Kind::derivedData), ElementsAre("code/a/DerivedData"));
  EXPECT_THAT(relative(found, Kind::rustTarget), ElementsAre("code/a/target"));
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
    std::vector<fs::directory_entry> listed{fs::directory_iterator(folder), fs::directory_iterator()};
    std::set<std::string> names, notToEnter;
    for (auto& entry : listed) names.insert(entry.path().filename().string());
    auto has = [&](auto marker) { return names.count(std::string(marker)) > 0; };
    for (const auto& rule : ProjectBuildsScanner::rules()) {
      if (!std::any_of(rule.markers.begin(), rule.markers.end(), has) ||
          !std::all_of(rule.requiredMarkers.begin(), rule.requiredMarkers.end(), has))
        continue;
      for (auto cacheDir : rule.cacheDirs) {
        auto candidate = folder / std::string(cacheDir);
        if (fs::is_directory(candidate) && reported.insert(candidate.string()).second)
          result.emplace_back(rule.kind, candidate);
        notToEnter.insert(std::string(cacheDir).substr(0, std::string(cacheDir).find('/')));
      }
    }
    for (auto& entry : listed) {
      auto name = entry.path().filename().string();
      if (entry.is_symlink() || !entry.is_directory() || name.ends_with(".app")) continue;
      if (name == "DerivedData") {
        if (reported.insert(entry.path().string()).second) result.emplace_back(Kind::derivedData, entry.path());
      } else if (!notToEnter.count(name) && name != "node_modules" && name != "Pods" && name[0] != '.' &&
                 !(depth == 0 && (name == "Library" || name == "Applications" || name == "Music" || name == "Movies" ||
                                  name == "Pictures"))) {
        stack.emplace_back(entry.path(), depth + 1);
      }
    }
  }
  return result;
}

TEST_F(ProjectBuildsScannerTest, SystemRootsAreWalkedWithoutTheirPackageManagerTrees) {
  // "/opt" and "/usr/local" are found below the host's root, and so are the Homebrew trees
  // that the walk must leave alone.
  const fs::path root = dir_ / "root";
  for (const char* marker : {"opt/tool/Cargo.toml", "opt/homebrew/lib/Cargo.toml", "usr/local/Cellar/x/Cargo.toml",
                             "usr/local/Homebrew/y/Cargo.toml", "usr/local/src/app/Cargo.toml"}) {
    test::writeFile(root / marker, "x");
    fs::create_directories((root / marker).parent_path() / "target");
  }
  auto found = ProjectBuildsScanner::findFolders({});
  EXPECT_THAT(found[Kind::rustTarget],
              UnorderedElementsAre(root / "opt/tool/target", root / "usr/local/src/app/target"));
}

TEST_F(ProjectBuildsScannerTest, ParallelWalkFindsFoldersInSequentialOrder) {
  // Many projects in a wide and deep tree, so the pool really interleaves the listings.
  const char* markers[] = {"Cargo.toml", "package.json", "CMakeLists.txt", "Podfile", "pyproject.toml"};
  const char* caches[] = {"target/x", "node_modules/x", "build/x", "Pods/x", ".venv/x"};
  for (int group = 0; group < 12; ++group) {
    for (int index = 0; index < 10; ++index) {
      const std::string path =
          "g" + std::to_string(group) + "/sub" + std::to_string(index % 3) + "/p" + std::to_string(index) + "/";
      project(path + markers[(group + index) % 5], {caches[(group + index) % 5]});
      if (index % 4 == 0) fs::create_directories(home_ / path / "nested/DerivedData");
      if (index % 3 == 0) project(path + "package.json", {".turbo"});
    }
  }
  auto expected = sequentialOrder(home_);
  ASSERT_GT(expected.size(), 100u);
  ProjectBuildsScanner::FoundFolders expectedByKind;
  for (auto& [kind, path] : expected) expectedByKind[kind].push_back(path);
  for (int run = 0; run < 3; ++run) EXPECT_EQ(ProjectBuildsScanner::findFolders({home_}, {}, {}), expectedByKind);
}

TEST_F(ProjectBuildsScannerTest, EntriesKeepFoldersOfAtLeastOneMebibyteLargestFirst) {
  project("code/big/Cargo.toml");
  writeFileOfSize(home_ / "code/big/target/debug/blob", 3 * 1024 * 1024);
  project("code/medium/Cargo.toml");
  writeFileOfSize(home_ / "code/medium/target/blob", 1024 * 1024);  // exactly 1 MiB allocated
  project("code/small/Cargo.toml");
  writeFileOfSize(home_ / "code/small/target/blob", 1024 * 1024 - 4096);  // one block short
  project("code/rails/Gemfile");
  writeFileOfSize(home_ / "code/rails/vendor/bundle/gem", 2 * 1024 * 1024);
  project("code/tiny/package.json");
  writeFileOfSize(home_ / "code/tiny/node_modules/x", 100);

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
  EXPECT_THAT(entries[0]->items()[0]->paths(), ElementsAre(home_ / "code/big/target"));
}

TEST_F(ProjectBuildsScannerTest, UnreadableFoldersAreSkippedSilently) {
  project("code/locked/app/Cargo.toml", {"target"});
  project("code/open/Cargo.toml", {"target"});
  fs::permissions(home_ / "code/locked", fs::perms::none);
  auto failures = test::runUnprivileged(dir_.path(), [&]() -> std::string {
    auto targets = relative(ProjectBuildsScanner::findFolders({}), Kind::rustTarget);
    return targets == std::vector<std::string>{"code/open/target"} ? "" : "unexpected targets";
  });
  fs::permissions(home_ / "code/locked", fs::perms::owner_all);
  if (!failures) GTEST_SKIP() << "no unprivileged user to run as";
  EXPECT_EQ(*failures, "");
}

}  // namespace
}  // namespace tw
