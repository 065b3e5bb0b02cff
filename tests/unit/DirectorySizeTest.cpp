#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <set>

#include "fs/DirectorySize.h"
#include "fs/DirectoryWalk.h"
#include "platform/Error.h"
#include "platform/ThreadPool.h"
#include "support/CatalogueFixture.h"
#include "support/TempDir.h"
#include "support/Unprivileged.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using namespace test;

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

// The code and path of the error that measuring `folder` as a folder raises; {0, ""} when none.
std::pair<int, fs::path> measurementError(const fs::path& folder, WalkMode walk = WalkMode::sequential,
                                          ThreadPool* pool = nullptr) {
  try {
    allocatedSizeOfDirectory(folder, nullptr, walk, pool);
  } catch (const FileSystemError& error) {
    return {error.code(), error.path()};
  }
  return {0, {}};
}

// Odd names, empty folders, a bundle, hard links in and out, links to big outside files, a pipe.
TEST(DirectorySizeTest, VariedTreeMatchesAnIndependentTotalInBothWalks) {
  TempDir temp;
  const fs::path root = temp / "tree", outside = temp / "outside";
  writeFileOfSize(outside / "big", 4 << 20);  // only reachable through a symbolic link
  writeFileOfSize(outside / "external", 30000);
  const std::vector<std::string> names = {"plain", ".hidden", "with space", "new\nline", "ünïcödé", "back\\slash"};
  for (int a = 0; a < 30; ++a) {
    for (int b = 0; b < 8; ++b) {
      const fs::path folder = root / (names[a % names.size()] + std::to_string(a)) / std::to_string(b);
      for (int c = 0; c < 3; ++c)
        writeFileOfSize(folder / (names[c] + "-file"), static_cast<size_t>((a * 7919 + b * 104 + c * 31) % 40000));
      if (b % 3 == 0) fs::create_hard_link(folder / "plain-file", folder.parent_path() / ("hl" + std::to_string(b)));
    }
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
  ThreadPool pool(4);
  for (int round = 0; round < 3; ++round) {
    HardLinkTracker sequential, parallel;
    EXPECT_EQ(allocatedSizeOfDirectory(root, &sequential, WalkMode::sequential), expected);
    EXPECT_EQ(allocatedSizeOfDirectory(root, &parallel, WalkMode::parallel, &pool), expected);
    EXPECT_EQ(sequential.size(), parallel.size());
  }
  EXPECT_EQ(measurePath(root, nullptr), allocatedSizeOfDirectory(root, nullptr, WalkMode::sequential));
  EXPECT_EQ(allocatedSizeOfDirectory(root / "Empty", nullptr), 0);
}

TEST(DirectorySizeTest, HardLinksCountOncePerSharedTrackerAndEachTimeWithout) {
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
}

TEST(DirectorySizeTest, ConcurrentMeasurementsSharingOneTrackerCountEachFileOnce) {
  TempDir temp;
  std::vector<fs::path> folders;
  for (int i = 0; i < 16; ++i) fs::create_directories(folders.emplace_back(temp / ("folder" + std::to_string(i))));
  for (int file = 0; file < 20; ++file) {
    const fs::path original = folders[0] / ("f" + std::to_string(file));
    writeFileOfSize(original, 5000 + static_cast<size_t>(file) * 3000);
    for (size_t i = 1; i < folders.size(); ++i) fs::create_hard_link(original, folders[i] / original.filename());
  }
  const int64_t expected = oracleTotal(folders);
  for (int round = 0; round < 10; ++round) {
    HardLinkTracker tracker;
    std::atomic<int64_t> total{0};
    ThreadPool::shared().concurrentPerform(folders.size(),
                                           [&](size_t i) { total.fetch_add(measurePath(folders[i], &tracker)); });
    EXPECT_EQ(total.load(), expected);
  }
}

// A selected link or a file measured as a folder; what measuring any path gives back.
TEST(DirectorySizeTest, LinksAddNothingAndOtherItemsFallBackToTheirFileSize) {
  TempDir temp;
  const fs::path file = temp / "archive.zip";
  writeFileOfSize(file, 123456);
  fs::create_directory_symlink(temp.path(), temp / "link");  // deleting it gives back nothing
  EXPECT_NE(measurementError(temp / "link").first, 0);
  EXPECT_EQ(measurePath(temp / "link", nullptr), 0);
  EXPECT_EQ(measurementError(file), std::pair(ENOTDIR, file));
  EXPECT_EQ(measurePath(file, nullptr), allocatedBytes(file));
  ASSERT_EQ(::mkfifo((temp / "pipe").c_str(), 0600), 0);
  EXPECT_EQ(measurePath(temp / "pipe", nullptr), 0);
  EXPECT_THROW(allocatedSizeOfFile(temp / "missing"), FileSystemError);
  EXPECT_EQ(measurePath(temp / "missing", nullptr), 0);
  EXPECT_GT(volumeAvailableCapacity(temp.path()), 0);
  EXPECT_EQ(volumeAvailableCapacity(temp / "not" / "there"), 0);
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
        if (const auto error = measurementError(root, walk, &pool); error != std::pair(EACCES, failing))
          problems +=
              std::to_string(int(walk)) + ": " + std::to_string(error.first) + " " + error.second.string() + "\n";
      }
      if (measurePath(root, nullptr) != 0) problems += "fallback did not give 0\n";
      return problems;
    });
    ::chmod(locked.c_str(), 0700);
    if (!failures) GTEST_SKIP() << "no unprivileged user to run as";
    EXPECT_EQ(*failures, "") << "mode " << std::oct << mode;
  }
}

}  // namespace
}  // namespace tw
