#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "app/Logger.h"
#include "fs/DirectorySize.h"
#include "fs/DirectoryWalk.h"
#include "platform/Error.h"
#include "platform/ThreadPool.h"
#include "support/TempDir.h"
#include "support/Unprivileged.h"

namespace fs = std::filesystem;

namespace tw {
namespace {

using test::TempDir;
using test::writeFileOfSize;

int64_t allocatedBytes(const fs::path& file) {
  struct stat status {};
  if (::lstat(file.c_str(), &status) != 0) throw std::runtime_error("lstat failed: " + file.string());
  return static_cast<int64_t>(status.st_blocks) * 512;
}

// An independent total: the standard library's own walk, symbolic links not followed, each
// multiply-linked file once per identity.
int64_t oracleTotal(const std::vector<fs::path>& folders) {
  std::set<std::pair<dev_t, ino_t>> seen;
  int64_t total = 0;
  for (const auto& folder : folders) {
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
      struct stat status {};
      if (::lstat(entry.path().c_str(), &status) != 0) throw std::runtime_error("lstat failed");
      if (!S_ISREG(status.st_mode)) continue;
      if (status.st_nlink > 1 && !seen.insert({status.st_dev, status.st_ino}).second) continue;
      total += static_cast<int64_t>(status.st_blocks) * 512;
    }
  }
  return total;
}

int64_t oracleTotal(const fs::path& folder) { return oracleTotal(std::vector<fs::path>{folder}); }

// Root reads every folder whatever its mode: an unreadable-folder case means nothing then.
bool permissionsAreEnforced(const fs::path& lockedFolder) {
  DIR* dir = ::opendir(lockedFolder.c_str());
  if (!dir) return true;
  ::closedir(dir);
  return false;
}

// A varied tree: files of many sizes, hidden items, odd names, an application bundle, empty
// folders, hard links inside one folder and across folders, symbolic links to big folders and
// to files, and a named pipe.
void buildVariedTree(const fs::path& root, const fs::path& outside, unsigned seed) {
  std::mt19937 random(seed);
  std::uniform_int_distribution<size_t> sizes(0, 40000);
  const std::vector<std::string> names = {"plain",   ".hidden",   "with space", "new\nline",  "-dash",
                                          "ünïcödé", "emoji🙂", "a'quote",    "back\\slash"};
  std::vector<fs::path> files;
  std::vector<fs::path> folders = {root};
  for (int level = 0; level < 4; ++level) {
    std::vector<fs::path> next;
    for (const auto& folder : folders) {
      const int subfolders = 1 + static_cast<int>(random() % 4);
      for (int i = 0; i < subfolders; ++i) {
        fs::path sub = folder / (names[random() % names.size()] + std::to_string(i));
        fs::create_directories(sub);
        next.push_back(sub);
      }
      const int fileCount = static_cast<int>(random() % 6);
      for (int i = 0; i < fileCount; ++i) {
        fs::path file = folder / (names[random() % names.size()] + "-file" + std::to_string(i));
        writeFileOfSize(file, sizes(random));
        files.push_back(file);
      }
    }
    folders = std::move(next);
  }
  fs::create_directories(root / "Empty" / "Nested empty");
  writeFileOfSize(root / "Tool.app" / "Contents" / "MacOS" / "Tool", 70000);
  writeFileOfSize(root / "Tool.app" / "Contents" / "Info.plist", 900);
  // Hard links: a pair in one folder, and links from across the tree to earlier files.
  writeFileOfSize(root / "linked", 50000);
  fs::create_hard_link(root / "linked", root / "linked again");
  for (size_t i = 0; i < files.size(); i += 5) {
    fs::create_hard_link(files[i], folders[i % folders.size()] / ("link" + std::to_string(i)));
  }
  // A multiply-linked file whose other link lies outside the measured folder still counts.
  writeFileOfSize(outside / "external", 30000);
  fs::create_hard_link(outside / "external", root / "external link");
  fs::create_directory_symlink(outside, root / "link to outside");
  fs::create_symlink(outside / "external", root / "link to file");
  fs::create_symlink(root / "missing", root / "dangling");
  ASSERT_EQ(::mkfifo((root / "pipe").c_str(), 0600), 0);
}

class DirectorySizeTest : public ::testing::Test {
 protected:
  TempDir temp;
};

TEST_F(DirectorySizeTest, VariedTreeMatchesAnIndependentTotalInBothWalks) {
  const fs::path root = temp / "tree";
  const fs::path outside = temp / "outside";
  fs::create_directories(outside);
  writeFileOfSize(outside / "big", 4 << 20);  // only reachable through a symbolic link
  buildVariedTree(root, outside, 7);

  const int64_t expected = oracleTotal(root);
  ASSERT_GT(expected, 0);
  HardLinkTracker sequentialTracker;
  HardLinkTracker parallelTracker;
  EXPECT_EQ(allocatedSizeOfDirectory(root, &sequentialTracker, WalkMode::sequential), expected);
  EXPECT_EQ(allocatedSizeOfDirectory(root, &parallelTracker, WalkMode::parallel), expected);
  EXPECT_EQ(sequentialTracker.size(), parallelTracker.size());
  EXPECT_GT(sequentialTracker.size(), 0u);
  HardLinkTracker defaultTracker;
  EXPECT_EQ(allocatedSizeOfDirectory(root, &defaultTracker), expected);
  EXPECT_EQ(measurePath(root, nullptr), allocatedSizeOfDirectory(root, nullptr, WalkMode::sequential));
}

TEST_F(DirectorySizeTest, ParallelWalkOfAWideTreeEqualsTheSequentialOne) {
  ThreadPool pool(4);
  const fs::path root = temp / "wide";
  for (int a = 0; a < 30; ++a) {
    for (int b = 0; b < 12; ++b) {
      const fs::path folder = root / std::to_string(a) / std::to_string(b);
      for (int c = 0; c < 4; ++c)
        writeFileOfSize(folder / std::to_string(c), static_cast<size_t>(a * 1000 + b * 10 + c));
      if (b % 3 == 0) fs::create_hard_link(folder / "0", root / std::to_string(a) / ("hl" + std::to_string(b)));
    }
  }
  const int64_t expected = oracleTotal(root);
  for (int round = 0; round < 5; ++round) {
    HardLinkTracker tracker;
    EXPECT_EQ(allocatedSizeOfDirectory(root, &tracker, WalkMode::parallel, &pool), expected);
    EXPECT_EQ(allocatedSizeOfDirectory(root, nullptr, WalkMode::parallel, &pool),
              allocatedSizeOfDirectory(root, nullptr, WalkMode::sequential));
  }
}

TEST_F(DirectorySizeTest, HardLinksInOneFolderCountOnceWithATrackerAndTwiceWithout) {
  const fs::path folder = temp / "pair";
  writeFileOfSize(folder / "original", 1 << 20);
  fs::create_hard_link(folder / "original", folder / "link");
  const int64_t file = allocatedBytes(folder / "original");
  ASSERT_GE(file, 1 << 20);

  HardLinkTracker tracker;
  EXPECT_EQ(allocatedSizeOfDirectory(folder, &tracker), file);
  EXPECT_EQ(tracker.size(), 1u);
  EXPECT_EQ(allocatedSizeOfDirectory(folder, nullptr), 2 * file);
}

TEST_F(DirectorySizeTest, SiblingFoldersSharingAFileCountItOnceWithASharedTracker) {
  const fs::path first = temp / "first";
  const fs::path second = temp / "second";
  writeFileOfSize(first / "shared", 1 << 20);
  writeFileOfSize(first / "single", 10000);  // one link: never recorded
  writeFileOfSize(second / "own", 20000);
  fs::create_hard_link(first / "shared", second / "shared too");
  const int64_t shared = allocatedBytes(first / "shared");

  HardLinkTracker tracker;
  const int64_t a = allocatedSizeOfDirectory(first, &tracker);
  const int64_t b = allocatedSizeOfDirectory(second, &tracker);
  EXPECT_EQ(a + b, oracleTotal({first, second}));
  EXPECT_EQ(a, shared + allocatedBytes(first / "single"));  // the first to reach it counts it
  EXPECT_EQ(b, allocatedBytes(second / "own"));
  EXPECT_EQ(tracker.size(), 1u);

  // Separate calculations each count it.
  HardLinkTracker freshFirst;
  HardLinkTracker freshSecond;
  EXPECT_EQ(allocatedSizeOfDirectory(first, &freshFirst) + allocatedSizeOfDirectory(second, &freshSecond),
            a + b + shared);
}

TEST_F(DirectorySizeTest, ConcurrentMeasurementsSharingOneTrackerCountEachFileOnce) {
  // Many folders holding links to the same few files, measured at once as the entry tree does.
  std::vector<fs::path> folders;
  for (int i = 0; i < 16; ++i) folders.push_back(temp / ("folder" + std::to_string(i)));
  for (int file = 0; file < 20; ++file) {
    writeFileOfSize(folders[0] / ("f" + std::to_string(file)), 5000 + static_cast<size_t>(file) * 3000);
    for (size_t i = 1; i < folders.size(); ++i) {
      fs::create_directories(folders[i]);
      fs::create_hard_link(folders[0] / ("f" + std::to_string(file)), folders[i] / ("f" + std::to_string(file)));
    }
  }
  const int64_t expected = oracleTotal(folders);
  for (int round = 0; round < 10; ++round) {
    HardLinkTracker tracker;
    std::atomic<int64_t> total{0};
    ThreadPool::shared().concurrentPerform(folders.size(),
                                           [&](size_t i) { total.fetch_add(measurePath(folders[i], &tracker)); });
    EXPECT_EQ(total.load(), expected);
    EXPECT_EQ(tracker.size(), 20u);
  }
}

TEST(HardLinkTrackerTest, ExactlyOneInsertOfEachIdentityWinsUnderContention) {
  HardLinkTracker tracker;
  std::atomic<int> wins{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (ino_t inode = 0; inode < 20000; ++inode) {
        if (tracker.insertIfNew(static_cast<dev_t>(inode % 3), inode)) wins.fetch_add(1);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(wins.load(), 20000);
  EXPECT_EQ(tracker.size(), 20000u);
  // The device is part of the identity.
  EXPECT_TRUE(tracker.insertIfNew(99, 5));
  EXPECT_FALSE(tracker.insertIfNew(99, 5));
}

TEST_F(DirectorySizeTest, SymbolicLinksAddNothingAndAreNeverFollowed) {
  const fs::path big = temp / "big";
  writeFileOfSize(big / "payload", 8 << 20);
  const fs::path folder = temp / "folder";
  writeFileOfSize(folder / "small", 3000);
  fs::create_directory_symlink(big, folder / "to big");
  fs::create_symlink(big / "payload", folder / "to payload");
  EXPECT_EQ(allocatedSizeOfDirectory(folder, nullptr), allocatedBytes(folder / "small"));

  // A path that is itself a link to a folder: deleting it gives back nothing.
  const fs::path link = temp / "link";
  fs::create_directory_symlink(big, link);
  EXPECT_THROW(allocatedSizeOfDirectory(link, nullptr), FileSystemError);
  EXPECT_EQ(allocatedSizeOfFile(link), 0);
  EXPECT_EQ(measurePath(link, nullptr), 0);
}

TEST_F(DirectorySizeTest, EmptyFoldersMeasureZero) {
  fs::create_directories(temp / "empty" / "a" / "b" / ".c");
  HardLinkTracker tracker;
  EXPECT_EQ(allocatedSizeOfDirectory(temp / "empty", &tracker), 0);
  EXPECT_EQ(measurePath(temp / "empty", &tracker), 0);
}

TEST_F(DirectorySizeTest, PlainFilePathsFallBackToTheFileSize) {
  const fs::path file = temp / "archive.zip";
  writeFileOfSize(file, 123456);
  try {
    allocatedSizeOfDirectory(file, nullptr);
    ADD_FAILURE() << "a plain file was measured as a folder";
  } catch (const FileSystemError& error) {
    EXPECT_EQ(error.code(), ENOTDIR);
    EXPECT_EQ(error.path(), file);
    EXPECT_NE(std::string(error.what()).find(file.string()), std::string::npos) << error.what();
  }
  EXPECT_EQ(allocatedSizeOfFile(file), allocatedBytes(file));
  EXPECT_GE(allocatedSizeOfFile(file), 123456);
  EXPECT_EQ(measurePath(file, nullptr), allocatedBytes(file));

  ASSERT_EQ(::mkfifo((temp / "pipe").c_str(), 0600), 0);
  EXPECT_EQ(measurePath(temp / "pipe", nullptr), 0);
  EXPECT_EQ(allocatedSizeOfFile(temp / "pipe"), 0);
  EXPECT_EQ(allocatedSizeOfFile(temp.path()), 0);
  EXPECT_THROW(allocatedSizeOfFile(temp / "missing"), FileSystemError);
  EXPECT_EQ(measurePath(temp / "missing", nullptr), 0);
}

TEST_F(DirectorySizeTest, AnUnreadableFolderAnywhereFailsTheWholeMeasurement) {
  const fs::path root = temp / "root";
  for (int i = 0; i < 20; ++i) writeFileOfSize(root / ("sibling" + std::to_string(i)) / "file", 50000);
  const fs::path locked = root / "a" / "b" / "locked";
  writeFileOfSize(locked / "secret", 10000);
  writeFileOfSize(root / "a" / "readable", 10000);
  ASSERT_EQ(::chmod(locked.c_str(), 0), 0);
  ASSERT_TRUE(test::handOverTree(temp.path()));

  auto failures = test::runUnprivileged(temp.path(), [&]() -> std::string {
    if (!permissionsAreEnforced(locked)) return "the locked folder is readable";
    std::string problems;
    ThreadPool pool(2);  // this process's own: a forked child has no workers of the shared pool
    for (WalkMode mode : {WalkMode::sequential, WalkMode::parallel}) {
      const char* name = mode == WalkMode::sequential ? "sequential" : "parallel";
      try {
        allocatedSizeOfDirectory(root, nullptr, mode, &pool);
        problems += std::string(name) + ": the unreadable folder went unnoticed\n";
      } catch (const FileSystemError& error) {
        if (error.code() != EACCES)
          problems += std::string(name) + ": error code " + std::to_string(error.code()) + "\n";
        if (error.path() != locked) problems += std::string(name) + ": error names " + error.path().string() + "\n";
      }
    }
    // A folder is no regular file: the fallback gives 0.
    if (measurePath(root, nullptr) != 0) problems += "fallback did not give 0\n";
    try {
      allocatedSizeOfDirectory(locked, nullptr);
      problems += "the locked folder measured directly did not fail\n";
    } catch (const FileSystemError&) {
    }
    return problems;
  });
  ::chmod(locked.c_str(), 0700);
  if (!failures) GTEST_SKIP() << "no unprivileged user to run as";
  EXPECT_EQ(*failures, "");
}

// Nested folders built and removed through descriptors: their paths outgrow PATH_MAX.
class FolderChain {
 public:
  FolderChain(const fs::path& base, int depth) : baseFd_(::open(base.c_str(), O_RDONLY | O_DIRECTORY)) {
    int fd = ::dup(baseFd_);
    for (int level = 0; level < depth; ++level) {
      if (level % 1000 == 0) writeSmallFile(fd, "f");
      if (::mkdirat(fd, "d", 0755) != 0) throw std::runtime_error("mkdirat failed");
      const int next = ::openat(fd, "d", O_RDONLY | O_DIRECTORY);
      ::close(fd);
      fd = next;
    }
    writeSmallFile(fd, "bottom");
    ::close(fd);
  }
  ~FolderChain() {
    // Down to the bottom, then back up through "..", removing each level on the way: constant
    // work per level and two descriptors at most.
    int fd = ::dup(baseFd_);
    for (;;) {
      const int next = ::openat(fd, "d", O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
      if (next < 0) break;
      ::close(fd);
      fd = next;
    }
    for (;;) {
      ::unlinkat(fd, "f", 0);
      ::unlinkat(fd, "bottom", 0);
      ::unlinkat(fd, "d", AT_REMOVEDIR);
      struct stat here {};
      struct stat base {};
      ::fstat(fd, &here);
      ::fstat(baseFd_, &base);
      if (here.st_ino == base.st_ino && here.st_dev == base.st_dev) break;
      const int parent = ::openat(fd, "..", O_RDONLY | O_DIRECTORY);
      ::close(fd);
      if (parent < 0) return;
      fd = parent;
    }
    ::close(fd);
    ::close(baseFd_);
  }
  int64_t fileBytes() const { return fileBytes_; }

 private:
  void writeSmallFile(int folderFd, const char* name) {
    const int fd = ::openat(folderFd, name, O_WRONLY | O_CREAT | O_TRUNC, 0644);
    const std::string data(3000, 'x');
    if (fd < 0 || ::write(fd, data.data(), data.size()) != static_cast<ssize_t>(data.size())) {
      throw std::runtime_error("write failed");
    }
    struct stat status {};
    ::fstat(fd, &status);
    fileBytes_ += static_cast<int64_t>(status.st_blocks) * 512;
    ::close(fd);
  }
  int baseFd_;
  int64_t fileBytes_ = 0;
};

TEST_F(DirectorySizeTest, AChainOfFiveThousandFoldersIsMeasured) {
  fs::create_directory(temp / "chain");
  FolderChain chain(temp / "chain", 5000);
  ASSERT_GT(chain.fileBytes(), 0);
  HardLinkTracker tracker;
  EXPECT_EQ(allocatedSizeOfDirectory(temp / "chain", &tracker, WalkMode::sequential), chain.fileBytes());
  EXPECT_EQ(allocatedSizeOfDirectory(temp / "chain", &tracker, WalkMode::parallel), chain.fileBytes());
  EXPECT_EQ(measurePath(temp / "chain", nullptr), chain.fileBytes());
}

// A deep tree that branches at every level keeps a descriptor per level with pending subfolders;
// under a small descriptor limit the walk must let them go and find its way back by name.
TEST_F(DirectorySizeTest, ADeepBranchingTreeIsMeasuredUnderALowDescriptorLimit) {
  const fs::path root = temp / "deep";
  constexpr int kDepth = 300;
  fs::path folder = root;
  int64_t expected = 0;
  for (int level = 0; level < kDepth; ++level) {
    writeFileOfSize(folder / "side" / "leaf", 700);
    writeFileOfSize(folder / "file", 1500);
    expected += allocatedBytes(folder / "side" / "leaf") + allocatedBytes(folder / "file");
    folder /= "next";
  }
  fs::create_directories(folder);

  rlimit saved{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &saved), 0);
  rlimit lowered = saved;
  lowered.rlim_cur = 128;
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &lowered), 0);
  int64_t sequential = -1;
  int64_t parallel = -1;
  try {
    sequential = allocatedSizeOfDirectory(root, nullptr, WalkMode::sequential);
    parallel = allocatedSizeOfDirectory(root, nullptr, WalkMode::parallel);
  } catch (const std::exception& error) {
    ADD_FAILURE() << error.what();
  }
  ::setrlimit(RLIMIT_NOFILE, &saved);
  EXPECT_EQ(sequential, expected);
  EXPECT_EQ(parallel, expected);
}

TEST_F(DirectorySizeTest, VolumeCapacityIsReportedOrZeroWithAWarning) {
  struct statvfs volume {};
  ASSERT_EQ(::statvfs(temp.path().c_str(), &volume), 0);
  const int64_t capacity = volumeAvailableCapacity(temp.path());
  EXPECT_GT(capacity, 0);
  EXPECT_LE(capacity, static_cast<int64_t>(volume.f_blocks) * static_cast<int64_t>(volume.f_frsize));

  std::vector<std::string> lines;
  Logger::main().setLineObserver([&](Logger::Level level, const std::string& line) {
    if (level == Logger::Level::warning) lines.push_back(line);
  });
  const int64_t missing = volumeAvailableCapacity(temp / "not" / "there");
  Logger::main().setLineObserver(nullptr);
  EXPECT_EQ(missing, 0);
  ASSERT_EQ(lines.size(), 1u);
  const std::string prefix = "⚠️ FileManager+DirectorySize: Problem while requesting volume capacity: ";
  EXPECT_EQ(lines[0].rfind(prefix, 0), 0u) << lines[0];
  EXPECT_NE(lines[0].find("not/there"), std::string::npos) << lines[0];
}

}  // namespace
}  // namespace tw
