// Measuring and removing real trees, odd ones and under attack at a selection's edge (mounts, swapped folders), and the
// system items the privileged remover accepts: a safety refusal never reaches the administrator.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <set>

#include "fs/DirectorySize.h"
#include "fs/DirectoryWalk.h"
#include "fs/RemoveItem.h"
#include "fs/Shell.h"
#include "model/SystemEntries.h"
#include "platform/AdministratorRunner.h"
#include "platform/Error.h"
#include "platform/FolderResolution.h"
#include "platform/ThreadPool.h"
#include "scan/DevCaches.h"
#include "scan/PrivilegedRemoval.h"
#include "scan/ProjectBuildsScanner.h"
#include "support/CatalogueFixture.h"
#include "support/StandInTools.h"
#include "support/TempDir.h"
#include "support/Unprivileged.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using namespace test;
using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

bool present(const fs::path& path) { return fs::exists(fs::symlink_status(path)); }

// Writes `count` files spread over four subfolders; the folder's snapshot.
std::map<std::string, std::string> makeFiles(const fs::path& folder, int count) {
  for (int i = 0; i < count; ++i) writeFile(folder / ("sub" + std::to_string(i % 4)) / std::to_string(i), "x");
  return snapshot(folder);
}

std::string codeAndPath(int code, const fs::path& path) { return std::to_string(code) + " " + path.string() + ": "; }

// The FileSystemError that `body` raises as "code path: text", or "no error".
std::string fileSystemError(const std::function<void()>& body) {
  try {
    body();
  } catch (const FileSystemError& error) {
    return codeAndPath(error.code(), error.path()) + error.what();
  }
  return "no error";
}

int openFolder(const fs::path& path) { return ::open(path.c_str(), O_RDONLY | O_DIRECTORY); }

TEST(RemoveItem, RemovesTreesOfOddNamesAndLinksButNeverTheirTargetsAndRefusesMissingOrMeaninglessPaths) {
  TempDir dir;
  const fs::path outside = dir / "outside", victim = dir / "victim folder";
  const auto before = makeFiles(outside, 20);
  for (const fs::path& file : {victim / "new\nline" / "-rf" / "--" / "file", victim / "bad\xff\xfe utf8" / "\xc3\x28",
                               victim / ".hidden" / "..." / "x", victim / "locked-file"})
    writeFile(file, "x");
  ::chmod((victim / "locked-file").c_str(), 0);
  ASSERT_EQ(::mkfifo((victim / "fifo").c_str(), 0600), 0);
  fs::create_hard_link(victim / "locked-file", dir / "hard link outside");
  fs::create_directory_symlink(outside, victim / ".hidden" / "link-to-folder");
  fs::create_symlink(outside / "sub0" / "0", victim / "link-to-file");
  fs::create_symlink(dir / "nowhere", victim / "dangling");
  fs::create_symlink("../../outside/sub1", victim / ".hidden" / "relative-link");
  writeFile(dir / "victim folder sibling" / "keep", "keep");

  removeItem(victim.string() + "//");
  EXPECT_FALSE(present(victim));
  EXPECT_TRUE(present(dir / "hard link outside"));
  EXPECT_EQ(readFile(dir / "victim folder sibling" / "keep"), "keep");

  // A selected link goes, not its target, even spelt with a trailing slash; folders leading to it are followed.
  fs::create_directory_symlink(outside, dir / "link");
  removeItem((dir / "link").string() + "/");
  EXPECT_FALSE(present(dir / "link"));
  EXPECT_EQ(snapshot(outside), before);
  fs::create_directory_symlink(outside, dir / "via");
  removeItem(dir / "via" / "sub0" / "0");
  EXPECT_FALSE(present(outside / "sub0" / "0"));
  EXPECT_TRUE(fs::is_symlink(dir / "via"));

  const fs::path missing = dir / "missing parent" / "child";
  EXPECT_EQ(fileSystemError([&] { removeItem(missing); }),
            codeAndPath(ENOENT, missing) + "The file \u201Cchild\u201D doesn\u2019t exist.");
  writeFile(dir / "keep", "k");
  for (const std::string& path : {(dir / ".").string(), dir.path().string() + "/..", std::string()})
    EXPECT_THROW(removeItem(path), FileSystemError) << path;
  EXPECT_EQ(readFile(dir / "keep"), "k");
}

TEST(RemoveItem, UnremovableItemIsTheErrorAndTheRestIsRemoved) {
  TempDir dir;
  const fs::path victim = dir / "victim", readOnly = victim / "read-only folder";
  auto result = runUnprivileged(dir.path(), [&]() -> std::string {
    writeFile(victim / "a", "a");
    writeFile(victim / "nested" / "deeper" / "b", "b");
    writeFile(readOnly / "locked", "locked");
    fs::create_directories(victim / "unreadable but empty");
    ::chmod(readOnly.c_str(), 0555);
    ::chmod((victim / "unreadable but empty").c_str(), 0);
    std::string problems = fileSystemError([&] { removeItem(victim); });
    if (problems == codeAndPath(EACCES, readOnly / "locked") +
                        "\u201Clocked\u201D couldn\u2019t be removed because you don\u2019t have permission to "
                        "access it.")
      problems.clear();
    if (!present(readOnly / "locked")) problems += "the locked file went\n";
    for (const char* gone : {"a", "nested", "unreadable but empty"})
      if (present(victim / gone)) problems += std::string(gone) + " is still there\n";
    struct stat status {};  // nothing was made writable behind the user's back
    ::stat(readOnly.c_str(), &status);
    if ((status.st_mode & 07777) != 0555) problems += "mode changed\n";
    return problems;
  });
  if (!result) GTEST_SKIP() << "no unprivileged user to run as";
  EXPECT_EQ(*result, "");
}

#if defined(TIDEWELL_TEST_HOOKS)
// A folder swapped for a link exactly between the removal's look and its opening: never entered.
TEST(RemoveItem, FolderSwappedForLinkBeforeOpeningIsNeverEntered) {
  static fs::path swapped, target;
  static int swaps;
  removeItemBeforeOpeningFolderHook = [](const char* name) {
    if (swaps > 0 || swapped.filename() != name) return;
    ++swaps;
    fs::rename(swapped, swapped.string() + ".moved");
    fs::create_directory_symlink(target, swapped);
  };
  TempDir dir;
  target = dir / "outside";
  const auto before = makeFiles(target, 20);
  const fs::path victim = dir / "victim";
  for (const fs::path& folder : {victim / "a" / "sub", victim}) {  // a folder inside, then the selected one
    writeFile(victim / "a" / "sub" / "inner" / "file", "y");
    swapped = folder;
    swaps = 0;
    removeItem(victim);
    EXPECT_EQ(swaps, 1);
    EXPECT_EQ(snapshot(target), before);
    EXPECT_FALSE(present(victim));
  }
  removeItemBeforeOpeningFolderHook = nullptr;
  // The selected folder that left the selected path is not followed.
  EXPECT_EQ(readFile(dir / "victim.moved" / "a" / "sub" / "inner" / "file"), "y");
}
#endif

// Another thread keeps swapping a folder inside the tree for a link outside: the outside stays untouched.
TEST(RemoveItem, SwappingAFolderForALinkNeverReachesOutside) {
  TempDir dir;
  const fs::path outside = dir / "outside", victim = dir / "victim", sub = victim / "a" / "sub";
  const auto before = makeFiles(outside, 20);
  for (int round = 0; round < 150; ++round) {
    for (int i = 0; i < 30; ++i) writeFile(sub / ("f" + std::to_string(i)), "x");
    for (int i = 0; i < 10; ++i) writeFile(sub / "many" / std::to_string(i), "y");
    writeFile(victim / "b" / "c", "z");
    {
      LinkSwapper swapper(sub, outside);
      (void)failureOf([&] { removeItem(victim); });  // a changing tree may win a round, never reach outside
    }
    ASSERT_EQ(snapshot(outside), before) << "round " << round;
    if (present(victim)) removeItem(victim);
    ASSERT_FALSE(present(victim));
  }
}

// Failures of both walks, with a pool as large as a big Mac's of its own (a forked child has no shared workers).
std::string measuredWrongly(const fs::path& folder, int64_t expected) {
  ThreadPool pool(12);
  HardLinkTracker first, second;
  const int64_t sequential = allocatedSizeOfDirectory(folder, &first, WalkMode::sequential);
  const int64_t parallel = allocatedSizeOfDirectory(folder, &second, WalkMode::parallel, &pool);
  if (sequential == expected && parallel == expected && first.size() == second.size()) return "";
  return folder.filename().string() + " measured " + std::to_string(sequential) + " and " + std::to_string(parallel) +
         " instead of " + std::to_string(expected) + "\n";
}

ino_t inode(int fd) {
  struct stat status {};
  return fd >= 0 && ::fstat(fd, &status) == 0 ? status.st_ino : 0;
}

// Both ways of resolving below a trusted folder open the same folder and stop at the same name.
TEST(SelectionBoundary, ResolvingBelowAnAnchorStopsAtTheFirstLinkOrMissingFolder) {
  TempDir dir;
  fs::create_directories(dir / "a" / "b" / "c");
  writeFile(dir / "a" / "b" / "file", "x");
  fs::create_directory_symlink(dir / "a" / "b", dir / "a" / "link");
  const int anchor = openFolder(dir.path());
  // What it opens (empty when it must fail), the error and the name that stopped it.
  const std::tuple<std::string, fs::path, int, std::string> cases[] = {
      {"a/b/c", dir / "a" / "b" / "c", 0, ""}, {"", dir.path(), 0, ""},
      {"a/link/c", {}, ELOOP, "link"},         {"a/link", {}, ELOOP, "link"},
      {"a/b/file", {}, ENOTDIR, "file"},       {"a/missing/c", {}, ENOENT, "missing"},
  };
  for (auto resolution : {BeneathResolution::automatic, BeneathResolution::componentByComponent}) {
    for (const auto& [relative, opens, error, component] : cases) {
      const BeneathResult result = openFolderBeneath(anchor, relative, resolution);
      const int expected = opens.empty() ? -1 : openFolder(opens);
      EXPECT_EQ(std::tuple(inode(result.fd), result.error, result.component),
                std::tuple(inode(expected), error, component))
          << relative;
      for (int fd : {result.fd, expected}) ::close(fd);
    }
    EXPECT_EQ(openFolderBeneath(anchor, "../" + dir.path().filename().string(), resolution).fd, -1);
  }
  ::close(anchor);
}

// A same-device bind mount inside the selection is neither measured nor entered by the removal.
TEST(SelectionBoundary, ABindMountInsideTheSelectionIsNeverEnteredNorMeasured) {
  TempDir dir;
  const fs::path outside = dir / "outside", project = dir / "DerivedData" / "App-abc", mnt = project / "Index" / "mnt";
  makeFiles(outside, 40);
  writeFileOfSize(project / "Build" / "product", 64 * 1024);
  fs::create_directories(mnt);
  const int64_t ownBytes = allocatedBytes(project / "Build" / "product");

  const auto failures = runWithMount(outside, mnt, [&] {
    std::string result;
    const int index = openFolder(project / "Index"), mount = openFolder(mnt), build = openFolder(project / "Build");
    for (auto method : {MountDetection::automatic, MountDetection::mountRootAttribute, MountDetection::mountId,
                        MountDetection::mountInfo})
      if (mountDetectionAvailable(method) && (!isMountRoot(index, mount, method) || isMountRoot(index, build, method)))
        result += "method " + std::to_string(int(method)) + " is wrong about a mount\n";
    result += measuredWrongly(project, ownBytes);
    const std::string failure = failureOf([&] { removeItem(project); });
    if (failure != "\u201Cmnt\u201D couldn\u2019t be removed because it is on another volume.")
      result += "removal said: " + failure + "\n";
    return result;
  });
  if (!failures) GTEST_SKIP() << "no private bind mount for this user";
  EXPECT_EQ(*failures, "");
  EXPECT_EQ(countFiles(outside), 40) << "files of the mounted folder lost";
  EXPECT_FALSE(fs::exists(project / "Build"));
  EXPECT_TRUE(fs::is_directory(mnt));
}

// A cache folder reached through a link (project "vendor" or catalogue pattern) is not shown nor deleted.
TEST(SelectionBoundary, ACacheFolderReachedThroughALinkIsNeitherShownNorDeleted) {
  TempDir dir;
  const fs::path home = dir / "home", outside = dir / "shared-vendor", linked = home / "Projects" / "linked";
  const fs::path own = home / "Projects" / "own";
  ScopedHost host(Host{.home = home, .root = dir / "root", .temporaryDirectory = dir.path()});
  writeFileOfSize(outside / "bundle" / "gems" / "big", 2 << 20);
  makeFiles(outside / "bundle", 12);
  writeFile(linked / "Gemfile", "x");
  fs::create_directory_symlink(outside, linked / "vendor");
  writeFile(own / "Gemfile", "x");
  writeFileOfSize(own / "vendor" / "bundle" / "big", 2 << 20);

  std::vector<fs::path> shown;
  for (const auto& kind : ProjectBuildsScanner::scan({}))
    for (const auto& item : kind->items()) shown.push_back(item->paths().front());
  EXPECT_EQ(shown, std::vector<fs::path>{own / "vendor" / "bundle"});
  EXPECT_EQ(measurePath(linked / "vendor" / "bundle", nullptr), 0);

  fs::create_directory_symlink(outside, home / ".linked-tool");
  const auto catalogue = DevCaches::makeEntries(
      {{"", "Linked tool", "", {"~/.linked-tool/bundle"}}, {"", "Own vendor", "", {"~/Projects/own/vendor/bundle"}}});
  ASSERT_EQ(catalogue.size(), 1u);
  EXPECT_EQ(catalogue.front()->label(), "Own vendor");

  EXPECT_EQ(failureOf([&] { removeItem(linked / "vendor" / "bundle"); }),
            "\u201Cbundle\u201D couldn\u2019t be removed because \u201Cvendor\u201D in its path is a symbolic link.");
  EXPECT_EQ(countFiles(outside), 13);
}

// The DerivedData folder keeps being swapped for a link during the removal; TIDEWELL_PARENT_SWAP_TRIALS sets trials.
TEST(SelectionBoundary, ParentFolderSwappedForALinkLosesNothingOutside) {
  TempDir dir;
  const fs::path home = dir / "home", outside = dir / "outside" / "App-abc";
  const fs::path derivedData = home / "Library" / "Developer" / "Xcode" / "DerivedData";
  ScopedHost host(Host{.home = home, .root = dir / "root", .temporaryDirectory = dir.path()});
  constexpr int kFiles = 60;
  makeFiles(outside, kFiles);

  const char* wanted = std::getenv("TIDEWELL_PARENT_SWAP_TRIALS");
  const int trials = wanted ? std::max(1, std::atoi(wanted)) : 200;
  int lost = 0, refused = 0;
  for (int trial = 0; trial < trials; ++trial) {
    makeFiles(derivedData / "App-abc", kFiles);
    {
      LinkSwapper swapper(derivedData, outside.parent_path());
      refused += !failureOf([&] { removeItem(derivedData / "App-abc"); }).empty();
    }
    if (const int missing = kFiles - countFiles(outside); missing > 0) lost += missing, makeFiles(outside, kFiles);
    fs::remove_all(derivedData / "App-abc");
  }
  std::printf("parent swap: %d trials, %d refused, %d files lost\n", trials, refused, lost);
  EXPECT_EQ(lost, 0) << "in " << trials << " trials";
}

// Files in `sides` of every folder down `depth` levels of `branches` chains; their bytes.
int64_t makeDeepTree(const fs::path& root, int branches, int depth, std::initializer_list<const char*> sides) {
  int64_t bytes = 0;
  for (int branch = 0; branch < branches; ++branch) {
    fs::path folder = branches == 1 ? root : root / ("branch" + std::to_string(branch));
    for (int level = 0; level < depth; ++level, folder /= "d") {
      for (const char* side : sides) {
        writeFileOfSize(folder / side / "file", 4096);
        bytes += allocatedBytes(folder / side / "file");
      }
    }
  }
  return bytes;
}

// Under `ulimit -n 16`: a chain, a tree branching at every level, deep branches for every thread, a 10,000-deep chain.
TEST(SelectionBoundary, RemovalAndMeasurementWorkUnderSixteenDescriptors) {
  TempDir dir;
  fs::create_directory(dir / "Deep");
  int current = ::open((dir / "Deep").c_str(), O_RDONLY | O_DIRECTORY);
  for (int level = 0; level < 10000; ++level) {
    if (level % 100 == 0) ::close(::openat(current, "file at this level", O_WRONLY | O_CREAT, 0600));
    ASSERT_EQ(::mkdirat(current, "d", 0700), 0) << level;
    const int next = ::openat(current, "d", O_RDONLY | O_DIRECTORY);
    ::close(current);
    current = next;
  }
  ::close(current);
  const std::pair<fs::path, int64_t> trees[] = {{dir / "Chain", makeDeepTree(dir / "Chain", 1, 30, {""})},
                                                {dir / "Comb", makeDeepTree(dir / "Comb", 1, 200, {"a", "c"})},
                                                {dir / "Wide", makeDeepTree(dir / "Wide", 12, 20, {"x"})},
                                                {dir / "Deep", 0}};
  const std::string failures = runInChild([&]() -> std::string {
    // The program itself holds a few descriptors (its log, the settings store) besides the standard streams.
    for (int i = 0; i < 4; ++i) (void)::open("/dev/null", O_RDONLY);
    const rlimit limit{16, 16};
    if (::setrlimit(RLIMIT_NOFILE, &limit) != 0) return "setrlimit failed";
    std::string result;
    for (const auto& [folder, expected] : trees) {
      result += failureOf([&] { result += measuredWrongly(folder, expected); });
      result += failureOf([&] { removeItem(folder); });
    }
    return result;
  });
  EXPECT_EQ(failures, "");
  for (const auto& tree : trees) EXPECT_FALSE(fs::exists(tree.first));
}

// An independent total: the standard library's walk, links not followed, each hard-linked file once.
int64_t oracleTotal(const std::vector<fs::path>& folders) {
  std::set<std::pair<dev_t, ino_t>> seen;
  int64_t total = 0;
  for (const auto& folder : folders) {
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
      struct stat status {};
      if (::lstat(entry.path().c_str(), &status) != 0 || !S_ISREG(status.st_mode)) continue;
      if (status.st_nlink > 1 && !seen.insert({status.st_dev, status.st_ino}).second) continue;
      total += static_cast<int64_t>(status.st_blocks) * 512;
    }
  }
  return total;
}

// Odd names, empty folders, a bundle, hard links in and out, links to big outside files, a pipe.
TEST(DirectorySizeTest, VariedTreeMatchesAnIndependentTotalInBothWalksLinksAddNothingFilesTheirSize) {
  TempDir temp;
  const fs::path root = temp / "tree", outside = temp / "outside";
  writeFileOfSize(outside / "big", 4 << 20);  // only reachable through a symbolic link
  writeFileOfSize(outside / "external", 30000);
  const std::vector<std::string> names = {"plain", ".hidden", "with space", "new\nline", "ünïcödé", "back\\slash"};
  for (int a = 0; a < 30; ++a)
    for (int b = 0; b < 8; ++b) {
      const fs::path folder = root / (names[a % names.size()] + std::to_string(a)) / std::to_string(b);
      for (int c = 0; c < 3; ++c)
        writeFileOfSize(folder / (names[c] + "-file"), static_cast<size_t>((a * 7919 + b * 104 + c * 31) % 40000));
      if (b % 3 == 0) fs::create_hard_link(folder / "plain-file", folder.parent_path() / ("hl" + std::to_string(b)));
    }
  fs::create_directories(root / "Empty" / "Nested empty");
  writeFileOfSize(root / "Tool.app" / "Contents" / "MacOS" / "Tool", 70000);
  fs::create_hard_link(root / "plain0" / "0" / "plain-file", root / "linked again");
  fs::create_hard_link(outside / "external", root / "external link");  // its other link is outside: counts
  fs::create_directory_symlink(outside, root / "link to outside");
  fs::create_symlink(outside / "big", root / "link to file");
  fs::create_symlink(root / "missing", root / "dangling");
  ASSERT_EQ(::mkfifo((root / "pipe").c_str(), 0600), 0);

  const int64_t expected = oracleTotal({root});
  ASSERT_GT(expected, 0);
  for (int round = 0; round < 3; ++round) EXPECT_EQ(measuredWrongly(root, expected), "") << "round " << round;
  EXPECT_EQ(measurePath(root, nullptr), allocatedSizeOfDirectory(root, nullptr, WalkMode::sequential));
  EXPECT_EQ(allocatedSizeOfDirectory(root / "Empty", nullptr), 0);
  // A selected link or a file measured as a folder; what measuring any path gives back.
  const fs::path file = temp / "archive.zip";
  writeFileOfSize(file, 123456);
  fs::create_directory_symlink(temp.path(), temp / "link");  // deleting it gives back nothing
  auto asFolder = [](const fs::path& path) {
    return fileSystemError([&] { allocatedSizeOfDirectory(path, nullptr, WalkMode::sequential); });
  };
  EXPECT_NE(asFolder(temp / "link"), "no error");
  EXPECT_EQ(measurePath(temp / "link", nullptr), 0);
  EXPECT_TRUE(asFolder(file).starts_with(codeAndPath(ENOTDIR, file))) << asFolder(file);
  EXPECT_EQ(measurePath(file, nullptr), allocatedBytes(file));
  ASSERT_EQ(::mkfifo((temp / "pipe").c_str(), 0600), 0);
  EXPECT_EQ(measurePath(temp / "pipe", nullptr), 0);
  EXPECT_THROW(allocatedSizeOfFile(temp / "missing"), FileSystemError);
  EXPECT_EQ(measurePath(temp / "missing", nullptr), 0);
  EXPECT_GT(volumeAvailableCapacity(temp.path()), 0);
  EXPECT_EQ(volumeAvailableCapacity(temp / "not" / "there"), 0);
}

TEST(DirectorySizeTest, HardLinksCountOncePerSharedTrackerEvenConcurrentlyAndEachTimeWithout) {
  TempDir temp;
  const fs::path first = temp / "first", second = temp / "second";
  writeFileOfSize(first / "shared", 1 << 20);
  writeFileOfSize(second / "own", 20000);
  fs::create_hard_link(first / "shared", first / "same folder");
  fs::create_hard_link(first / "shared", second / "other folder");
  const int64_t shared = allocatedBytes(first / "shared"), own = allocatedBytes(second / "own");
  HardLinkTracker tracker, fresh;
  EXPECT_EQ(allocatedSizeOfDirectory(first, &tracker), shared);  // the first to reach it counts it
  EXPECT_EQ(allocatedSizeOfDirectory(second, &tracker), own);
  EXPECT_EQ(tracker.size(), 1u);
  EXPECT_EQ(allocatedSizeOfDirectory(first, nullptr), 2 * shared);
  EXPECT_EQ(allocatedSizeOfDirectory(second, &fresh), shared + own);
  // Concurrent measurements sharing one tracker.
  std::vector<fs::path> folders;
  for (int i = 0; i < 16; ++i) fs::create_directories(folders.emplace_back(temp / ("folder" + std::to_string(i))));
  for (int file = 0; file < 20; ++file) {
    const fs::path original = folders[0] / ("f" + std::to_string(file));
    writeFileOfSize(original, 5000 + static_cast<size_t>(file) * 3000);
    for (size_t i = 1; i < folders.size(); ++i) fs::create_hard_link(original, folders[i] / original.filename());
  }
  const int64_t expected = oracleTotal(folders);
  for (int round = 0; round < 10; ++round) {
    HardLinkTracker sharedTracker;
    std::atomic<int64_t> total{0};
    ThreadPool::shared().concurrentPerform(folders.size(),
                                           [&](size_t i) { total.fetch_add(measurePath(folders[i], &sharedTracker)); });
    EXPECT_EQ(total.load(), expected);
  }
}

// A folder that cannot be listed, or listed but not looked into (read without search).
TEST(DirectorySizeTest, AnUnreadableFolderAnywhereFailsTheWholeMeasurement) {
  TempDir temp;
  const fs::path root = temp / "root", locked = root / "a" / "b" / "locked";
  for (int i = 0; i < 20; ++i) writeFileOfSize(root / ("sibling" + std::to_string(i)) / "file", 50000);
  writeFileOfSize(locked / "secret", 10000);
  ASSERT_TRUE(handOverTree(temp.path()));

  for (const auto& [mode, failing] : {std::pair{0000, locked}, std::pair{0444, locked / "secret"}}) {
    ASSERT_EQ(::chmod(locked.c_str(), mode), 0);
    auto failures = runUnprivileged(temp.path(), [&]() -> std::string {
      std::string problems;
      ThreadPool pool(2);  // this process's own: a forked child has no workers of the shared pool
      for (WalkMode walk : {WalkMode::sequential, WalkMode::parallel}) {
        const std::string error = fileSystemError([&] { allocatedSizeOfDirectory(root, nullptr, walk, &pool); });
        if (!error.starts_with(codeAndPath(EACCES, failing))) problems += error + "\n";
      }
      if (measurePath(root, nullptr) != 0) problems += "fallback did not give 0\n";
      return problems;
    });
    ::chmod(locked.c_str(), 0700);
    if (!failures) GTEST_SKIP() << "no unprivileged user to run as";
    EXPECT_EQ(*failures, "") << "mode " << std::oct << mode;
  }
}

class PrivilegedRemovalCheck : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* file : {"041-12345/update.pkg", "index.plist", ".hidden/x"}) writeFile(updates / file, "x");
    for (const char* app : {"Install macOS Sonoma.app", "Xcode.app"})
      writeFile(fixture.at("/Applications/" + std::string(app) + "/Contents/Info.plist"), "i");
    writeFile(fixture.at("/elsewhere/Updates/041-12345/update.pkg"), "outside");
    fs::create_directory_symlink(fixture.at("/elsewhere/Updates/041-12345"), updates / "041-link");
  }

  // The refusal text, or "accepted".
  static std::string verdict(const fs::path& path) {
    auto checked = PrivilegedRemoval::check(path.string());
    auto* refusal = std::get_if<PrivilegedRemoval::Refusal>(&checked);
    return refusal ? refusal->reason : "accepted";
  }

  CatalogueFixture fixture;
  fs::path updates = fixture.at("/Library/Updates");
};

TEST_F(PrivilegedRemovalCheck, AcceptsOnlyListedItemsReachedWithoutLinks) {
  const std::string root = fixture.root().string();
  const std::pair<std::string, std::string> cases[] = {
      // "accepted" or a part of the refusal
      {root + "/Library/Updates/041-12345", "accepted"},
      {root + "/Applications/Install macOS Sonoma.app", "accepted"},
      {"Library/Updates/041-12345", "not an absolute path"},
      {root + "/Library/Updates/../Updates/041-12345", "components"},
      {root + "/Library/Updates/./041-12345", "components"},
      {root + "/Library//Updates/041-12345", "components"},
      {root + "/Library/Updates/041-12345/", "components"},
      {root + "/Library/Updates/041-12345/update.pkg", "not a system item"},
      {root + "/Library/Updates/index.plist", "not a system item"},
      {root + "/Library/Updates/.hidden", "not a system item"},
      {root + "/Applications/Xcode.app", "not a system item"},
      {root + "/Library/Updates/041-link", "symbolic link"},
      {root + "/Library/Updates/041-missing", "No such file"},
  };
  for (const auto& [path, expected] : cases) EXPECT_THAT(verdict(path), HasSubstr(expected)) << path;

  // A link anywhere on the way: the location folder itself, or a folder above it.
  fs::rename(updates, fixture.at("/Library/Updates.real"));
  fs::create_directory_symlink(fixture.at("/elsewhere/Updates"), updates);
  EXPECT_THAT(verdict(updates / "041-12345"), HasSubstr("symbolic link"));
  fs::remove(updates);
  fs::rename(fixture.at("/Library/Updates.real"), updates);
  const fs::path viaLink = fixture.root().parent_path() / "via";
  fs::create_directory_symlink(fixture.root(), viaLink);
  {
    ScopedHost linkedRoot(Host{.home = fixture.home(), .root = viaLink});
    EXPECT_THAT(verdict(viaLink / "Library/Updates/041-12345"), HasSubstr("symbolic link"));
  }
}

TEST_F(PrivilegedRemovalCheck, RemovesTheCheckedItemEvenWhenItsFolderIsSwappedForALinkAfterwards) {
  auto checked = PrivilegedRemoval::check((updates / "041-12345").string());
  ASSERT_TRUE(std::holds_alternative<PrivilegedRemoval::Target>(checked));
  // The checked folder is moved and a link to an outside copy put in its place: the checked one is used.
  fs::rename(updates, fixture.at("/Library/Moved"));
  fs::create_directory_symlink(fixture.at("/elsewhere/Updates"), updates);
  const fs::path workingFolder = fs::current_path();
  PrivilegedRemoval::remove(std::get<PrivilegedRemoval::Target>(checked));
  EXPECT_FALSE(fs::exists(fixture.at("/Library/Moved/041-12345")));
  EXPECT_TRUE(fs::exists(fixture.at("/Library/Moved/index.plist")));
  EXPECT_EQ(readFile(fixture.at("/elsewhere/Updates/041-12345/update.pkg")), "outside");
  EXPECT_EQ(fs::current_path(), workingFolder);
}

#if defined(__linux__)
// A volume mounted at the item or inside it (a same-device bind mount included) is refused.
TEST_F(PrivilegedRemovalCheck, RefusesItemsThatAreOrHoldMountPoints) {
  const fs::path item = updates / "041-12345";
  fs::create_directories(item / "Payload" / "mnt");
  for (const fs::path& mountPoint : {item, item / "Payload" / "mnt"}) {
    const auto refusal = runWithMount(fixture.at("/elsewhere"), mountPoint, [&] { return verdict(item); });
    if (!refusal) GTEST_SKIP() << "no mount namespace for this user";
    EXPECT_THAT(*refusal, HasSubstr("mounted")) << "a mount at " << mountPoint;
  }
  EXPECT_EQ(verdict(item), "accepted");
}

// A volume inside an installer is refused for safety and never handed to pkexec (which would empty it).
TEST(PrivilegedFallback, AnotherVolumeInsideTheItemIsNeverHandedToTheAdministrator) {
  CatalogueFixture fixture;
  ScopedAdministratorRunner polkit{AdministratorRunner::polkit};
  const fs::path item = fixture.at("/Applications/Install macOS Sonoma.app"), calls = fixture.root() / "pkexec-calls";
  const fs::path volume = item / "Contents" / "SharedSupport" / "Volume";
  writeFile(item / "Contents" / "Info.plist", "i");
  fs::create_directories(volume);
  writeStandInTool(fixture.root(), "/usr/bin/pkexec",
                   "echo \"$@\" >> " + shellQuoted(calls.string()) + "\nexec \"$@\"");
  const auto failure = runWithMount({}, volume, [&]() -> std::string {
    writeFile(volume / "precious", "p");
    try {
      PrivilegedFileEntry{"Install macOS Sonoma.app", "", "installer"}.deleteItem(item);
    } catch (const RemovalError& error) {
      if (error.kind() != RemovalFailure::safety || error.code() != EXDEV) return "not a safety refusal";
    }
    return fs::exists(volume / "precious") && !fs::exists(calls) ? "" : "the volume was emptied or pkexec called";
  });
  if (!failure) GTEST_SKIP() << "no mount namespace for this user";
  EXPECT_EQ(*failure, "");
}
#endif

#if defined(TIDEWELL_TEST_HOOKS)
// Plain removal of an update fails; what the administrator runner gets to see depends on why.
TEST(PrivilegedFallback, OnlyALackOfRightsReachesTheAdministratorRunner) {
  CatalogueFixture fixture;
  ScopedAdministratorRunner polkit{AdministratorRunner::polkit};
  const fs::path updates = fixture.at("/Library/Updates"), item = updates / "041-12345";
  const fs::path calls = fixture.root() / "pkexec-calls", remover = fixture.at(kPrivilegedRemoverPath);

  // A folder inside keeps being replaced just before it is opened: a safety refusal, tried no further.
  static fs::path changing;
  removeItemBeforeOpeningFolderHook = [](const char* name) {
    if (changing.filename() != name) return;
    fs::rename(changing, changing.string() + ".old" + std::to_string(std::rand()));
    fs::create_directory(changing);
  };
  changing = item / "Payload";
  writeFile(changing / "data", "d");
  writeStandInTool(fixture.root(), "/usr/bin/pkexec", "echo \"$@\" >> " + shellQuoted(calls.string()));
  PrivilegedFileEntry entry{"041-12345", "", "update"};
  try {
    entry.deleteItem(item);
    ADD_FAILURE() << "a tree that keeps changing must not count as removed";
  } catch (const RemovalError& error) {
    EXPECT_EQ(error.kind(), RemovalFailure::safety) << error.what();
  }
  removeItemBeforeOpeningFolderHook = nullptr;
  // Nor is an item that is gone: more rights would only turn the failure into a false success.
  EXPECT_THROW(entry.deleteItem(updates / "041-gone"), RemovalError);
  EXPECT_FALSE(fs::exists(calls)) << readFile(calls);

  // A lack of rights goes to the installed privileged remover.
  fs::remove_all(item);
  writeFile(item / "Payload" / "data", "d");
  // Without one, to an administrator's shell: quotes, blanks and a would-be command substitution stay one word.
  const fs::path hostile = updates / "041-91 Ann's $(touch pwned) \"update\"";
  writeFile(hostile / "Payload" / "data", "d");
  writeStandInTool(fixture.root(), kPrivilegedRemoverPath, "exit 0");
  RemovalBlocker blocker(updates);
  if (!blocker.active()) GTEST_SKIP() << "cannot make removal fail on this file system";
  EXPECT_NO_THROW(entry.deleteItem(item));
  EXPECT_EQ(readFile(calls), remover.string() + " " + item.string() + "\n");

  fs::remove(remover);
  writeStandInTool(fixture.root(), "/usr/bin/pkexec",
                   "echo 'Error executing command as another user: Request dismissed' >&2; exit 126");
  EXPECT_THAT([&] { entry.deleteItem(hostile); }, ThrowsMessage<Shell::CommandError>(HasSubstr("Request dismissed")));
  EXPECT_TRUE(fs::exists(hostile)) << "what plain removal could not take stays";
  // The stand-in plays the administrator: it lifts the block, then runs the command it was given.
  writeStandInTool(
      fixture.root(), "/usr/bin/pkexec",
      "printf '%s\\n' \"$@\" > " + shellQuoted(calls.string()) + "\n" + blocker.liftCommand() + "\nexec \"$@\"");
  EXPECT_NO_THROW(entry.deleteItem(hostile));
  EXPECT_FALSE(fs::exists(fs::symlink_status(hostile)));
  EXPECT_FALSE(fs::exists(updates / "pwned"));
  EXPECT_EQ(readFile(calls), "/bin/sh\n-c\n" + privilegedRemovalCommand(hostile) + "\n");
}
#endif

TEST(PrivilegedRemovalCommand, StaysOnOneFileSystemAndQuotesThePath) {
#if defined(__APPLE__)
  EXPECT_EQ(privilegedRemovalCommand("/x/'$(touch y)'"), "/bin/rm -rf -x -- '/x/'\\''$(touch y)'\\'''");
#else
  EXPECT_EQ(privilegedRemovalCommand("/x/'$(touch y)'"),
            "/bin/rm -rf --one-file-system --preserve-root=all -- '/x/'\\''$(touch y)'\\'''");
#endif
}

}  // namespace
}  // namespace tw
