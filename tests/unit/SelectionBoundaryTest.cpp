// Attacks on a selection's edge, on real trees: bind mounts, links, swapped parents, few descriptors.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <cstring>
#include <tuple>

#include "fs/DirectorySize.h"
#include "fs/DirectoryWalk.h"
#include "fs/RemoveItem.h"
#include "platform/FolderResolution.h"
#include "platform/Host.h"
#include "platform/ThreadPool.h"
#include "scan/DevCaches.h"
#include "scan/ProjectBuildsScanner.h"
#include "support/CatalogueFixture.h"
#include "support/TempDir.h"
#include "support/Unprivileged.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using namespace test;

constexpr const char* kSkipMark = "\x01skip: ";

void makeFiles(const fs::path& folder, int count) {
  for (int i = 0; i < count; ++i) writeFile(folder / ("sub" + std::to_string(i % 4)) / std::to_string(i), "x");
}

std::string removalFailure(const fs::path& item) {
  return failureOf([&] { removeItem(item); });
}

// Failures of both walks (a pool of the child's own, as many threads as a large Mac has: the
// child has none of the parent's workers).
std::string measuredWrongly(const fs::path& folder, int64_t expected) {
  ThreadPool pool(12);
  const int64_t sequential = allocatedSizeOfDirectory(folder, nullptr, WalkMode::sequential);
  const int64_t parallel = allocatedSizeOfDirectory(folder, nullptr, WalkMode::parallel, &pool);
  if (sequential == expected && parallel == expected) return "";
  return folder.filename().string() + " measured " + std::to_string(sequential) + " and " + std::to_string(parallel) +
         " instead of " + std::to_string(expected) + "\n";
}

// Both ways of resolving below a trusted folder open the same folder and stop at the same name.
TEST(SelectionBoundary, ResolvingBelowAnAnchorStopsAtTheFirstLinkOrMissingFolder) {
  TempDir dir;
  fs::create_directories(dir / "a" / "b" / "c");
  writeFile(dir / "a" / "b" / "file", "x");
  fs::create_directory_symlink(dir / "a" / "b", dir / "a" / "link");
  const int anchor = ::open(dir.path().c_str(), O_RDONLY | O_DIRECTORY);
  // What it opens (empty when it must fail), or the error and the name that stopped it.
  const std::tuple<std::string, fs::path, int, std::string> cases[] = {
      {"a/b/c", dir / "a" / "b" / "c", 0, ""}, {"", dir.path(), 0, ""},
      {"a/link/c", {}, ELOOP, "link"},         {"a/link", {}, ELOOP, "link"},
      {"a/b/file", {}, ENOTDIR, "file"},       {"a/missing/c", {}, ENOENT, "missing"},
  };
  for (auto resolution : {BeneathResolution::automatic, BeneathResolution::componentByComponent}) {
    for (const auto& [relative, opens, error, component] : cases) {
      const BeneathResult result = openFolderBeneath(anchor, relative, resolution);
      struct stat opened {
      }, expected{};
      if (opens.empty()) {
        EXPECT_EQ(std::tuple(result.fd, result.error, result.component), std::tuple(-1, error, component)) << relative;
      } else {
        ASSERT_GE(result.fd, 0) << relative;
        ::fstat(result.fd, &opened);
        ::stat(opens.c_str(), &expected);
        EXPECT_EQ(opened.st_ino, expected.st_ino) << relative;
        ::close(result.fd);
      }
    }
    EXPECT_EQ(openFolderBeneath(anchor, "../" + dir.path().filename().string(), resolution).fd, -1);
  }
  ::close(anchor);
}

// A same-device bind mount inside the selection is neither measured nor entered by the removal.
TEST(SelectionBoundary, ABindMountInsideTheSelectionIsNeverEnteredNorMeasured) {
  TempDir dir;
  const fs::path outside = dir / "outside", project = dir / "DerivedData" / "App-abc";
  makeFiles(outside, 40);
  writeFileOfSize(project / "Build" / "product", 64 * 1024);
  fs::create_directories(project / "Index" / "mnt");
  const int64_t ownBytes = allocatedBytes(project / "Build" / "product");

  const std::string failures = runInChild([&]() -> std::string {
    if (::unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount(outside.c_str(), (project / "Index" / "mnt").c_str(), nullptr, MS_BIND, nullptr) != 0) {
      return std::string(kSkipMark) + "no private bind mount (" + std::strerror(errno) + ")";
    }
    std::string result;
    const int index = ::open((project / "Index").c_str(), O_RDONLY | O_DIRECTORY);
    const int mount = ::open((project / "Index" / "mnt").c_str(), O_RDONLY | O_DIRECTORY);
    const int build = ::open((project / "Build").c_str(), O_RDONLY | O_DIRECTORY);
    for (auto method : {MountDetection::automatic, MountDetection::mountRootAttribute, MountDetection::mountId,
                        MountDetection::mountInfo}) {
      if (!mountDetectionAvailable(method)) continue;
      if (!isMountRoot(index, mount, method) || isMountRoot(index, build, method))
        result += "method " + std::to_string(int(method)) + " is wrong about a mount\n";
    }
    result += measuredWrongly(project, ownBytes);
    const std::string failure = removalFailure(project);
    if (failure != "\u201Cmnt\u201D couldn\u2019t be removed because it is on another volume.")
      result += "removal said: " + failure + "\n";
    return result;
  });
  if (failures.starts_with(kSkipMark)) GTEST_SKIP() << failures.substr(std::strlen(kSkipMark));
  EXPECT_EQ(failures, "");
  EXPECT_EQ(countFiles(outside), 40) << "files of the mounted folder lost";
  EXPECT_FALSE(fs::exists(project / "Build"));
  EXPECT_TRUE(fs::is_directory(project / "Index" / "mnt"));
}

// A cache folder reached through a link (project "vendor" or catalogue pattern) is not shown nor deleted.
TEST(SelectionBoundary, ACacheFolderReachedThroughALinkIsNeitherShownNorDeleted) {
  TempDir dir;
  const fs::path home = dir / "home", outside = dir / "shared-vendor", linked = home / "Projects" / "linked";
  ScopedHost host(Host{.home = home, .root = dir / "root", .temporaryDirectory = dir.path()});
  writeFileOfSize(outside / "bundle" / "gems" / "big", 2 << 20);
  makeFiles(outside / "bundle", 12);
  writeFile(linked / "Gemfile", "x");
  fs::create_directory_symlink(outside, linked / "vendor");
  writeFile(home / "Projects" / "own" / "Gemfile", "x");
  writeFileOfSize(home / "Projects" / "own" / "vendor" / "bundle" / "big", 2 << 20);

  std::vector<std::string> shown;
  for (const auto& kind : ProjectBuildsScanner::scan({})) {
    for (const auto& item : kind->items()) shown.push_back(item->paths().front().string());
  }
  EXPECT_EQ(shown, std::vector<std::string>{(home / "Projects" / "own" / "vendor" / "bundle").string()});
  EXPECT_EQ(measurePath(linked / "vendor" / "bundle", nullptr), 0);

  fs::create_directory_symlink(outside, home / ".linked-tool");
  const auto catalogue = DevCaches::makeEntries(
      {{"", "Linked tool", "", {"~/.linked-tool/bundle"}}, {"", "Own vendor", "", {"~/Projects/own/vendor/bundle"}}});
  ASSERT_EQ(catalogue.size(), 1u);
  EXPECT_EQ(catalogue.front()->label(), "Own vendor");

  EXPECT_EQ(removalFailure(linked / "vendor" / "bundle"),
            "\u201Cbundle\u201D couldn\u2019t be removed because \u201Cvendor\u201D in its path is a symbolic link.");
  EXPECT_EQ(countFiles(outside), 13);
}

// The DerivedData folder keeps being swapped for a link during the removal; TIDEWELL_PARENT_SWAP_TRIALS sets trials.
TEST(SelectionBoundary, ParentFolderSwappedForALinkLosesNothingOutside) {
  TempDir dir;
  const fs::path home = dir / "home", outside = dir / "outside";
  const fs::path derivedData = home / "Library" / "Developer" / "Xcode" / "DerivedData";
  ScopedHost host(Host{.home = home, .root = dir / "root", .temporaryDirectory = dir.path()});
  constexpr int kFiles = 60;
  makeFiles(outside / "App-abc", kFiles);

  const char* wanted = std::getenv("TIDEWELL_PARENT_SWAP_TRIALS");
  const int trials = wanted ? std::max(1, std::atoi(wanted)) : 200;
  int lost = 0, trialsWithLoss = 0, refused = 0;
  for (int trial = 0; trial < trials; ++trial) {
    makeFiles(derivedData / "App-abc", kFiles);
    {
      LinkSwapper swapper(derivedData, outside);
      if (!removalFailure(derivedData / "App-abc").empty()) ++refused;
    }
    if (const int missing = kFiles - countFiles(outside / "App-abc"); missing > 0) {
      lost += missing;
      ++trialsWithLoss;
      makeFiles(outside / "App-abc", kFiles);
    }
    fs::remove_all(derivedData / "App-abc");
  }
  std::printf("parent swap: %d trials, %d refused, %d files lost in %d trials\n", trials, refused, lost,
              trialsWithLoss);
  EXPECT_EQ(lost, 0) << "in " << trialsWithLoss << " of " << trials << " trials";
}

// Under `ulimit -n 16`, a 30-folder chain and a tree branching at every level are measured and removed.
TEST(SelectionBoundary, RemovalAndMeasurementWorkUnderSixteenDescriptors) {
  TempDir dir;
  const fs::path chainRoot = dir / "DerivedData" / "Chain", combRoot = dir / "DerivedData" / "Comb",
                 wideRoot = dir / "DerivedData" / "Wide";
  fs::path chain = chainRoot, comb = combRoot;
  for (int level = 0; level < 30; ++level, chain /= "d") writeFileOfSize(chain / "file", 4096);
  int64_t combBytes = 0;
  for (int level = 0; level < 200; ++level, comb /= "b") {
    writeFileOfSize(comb / "a" / "file", 4096);
    writeFileOfSize(comb / "c" / "file", 4096);
    combBytes += allocatedBytes(comb / "a" / "file") + allocatedBytes(comb / "c" / "file");
  }
  const int64_t chainBytes = 30 * allocatedBytes(chainRoot / "file");
  // Many deep branches keep every thread of a parallel walk busy at once.
  int64_t wideBytes = 0;
  for (int branch = 0; branch < 12; ++branch) {
    fs::path folder = wideRoot / ("branch" + std::to_string(branch));
    for (int level = 0; level < 20; ++level, folder /= "d") {
      writeFileOfSize(folder / "x" / "file", 4096);
      wideBytes += allocatedBytes(folder / "x" / "file");
    }
  }

  const std::string failures = runInChild([&]() -> std::string {
    // The program itself holds a few descriptors (its log, the settings store) besides the
    // standard streams.
    for (int i = 0; i < 4; ++i) (void)::open("/dev/null", O_RDONLY);
    const rlimit limit{16, 16};
    if (::setrlimit(RLIMIT_NOFILE, &limit) != 0) return "setrlimit failed";
    std::string result;
    for (const auto& [folder, expected] :
         {std::pair{chainRoot, chainBytes}, std::pair{combRoot, combBytes}, std::pair{wideRoot, wideBytes}}) {
      result += failureOf([&] { result += measuredWrongly(folder, expected); });
      result += removalFailure(folder);
    }
    return result;
  });
  EXPECT_EQ(failures, "");
  EXPECT_FALSE(fs::exists(chainRoot));
  EXPECT_FALSE(fs::exists(combRoot));
  EXPECT_FALSE(fs::exists(wideRoot));
}

}  // namespace
}  // namespace tw
