#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <thread>

#include "fs/RemoveItem.h"
#include "platform/Error.h"
#include "support/TempDir.h"
#include "support/Unprivileged.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using test::readFile;
using test::runUnprivileged;
using test::TempDir;
using test::writeFile;

bool present(const fs::path& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0;
}

// Everything below `root` (without following links): relative path -> kind, mode and contents.
std::map<std::string, std::string> snapshot(const fs::path& root) {
  std::map<std::string, std::string> result;
  for (auto it = fs::recursive_directory_iterator(root); it != fs::recursive_directory_iterator(); ++it) {
    const auto status = it->symlink_status();
    std::string description = std::to_string(static_cast<int>(status.type())) + ":" +
                              std::to_string(static_cast<int>(status.permissions())) + ":";
    if (fs::is_regular_file(status)) description += readFile(it->path());
    if (fs::is_symlink(status)) description += fs::read_symlink(it->path()).string();
    result[fs::relative(it->path(), root).string()] = description;
  }
  return result;
}

void makeOutsideFolder(const fs::path& outside) {
  writeFile(outside / "keep.txt", "precious");
  writeFile(outside / "nested" / "deeper" / "also-keep.bin", std::string("\0\1\2", 3));
  fs::create_directories(outside / "empty");
}

TEST(RemoveItem, RemovesTreeWithOddNamesAndLeavesSiblingsAlone) {
  TempDir dir;
  const fs::path victim = dir / "victim folder";
  writeFile(victim / "with space.txt", "1");
  writeFile(victim / "new\nline" / "-rf" / "--" / "file", "2");
  writeFile(victim / std::string("bad\xff\xfe utf8") / std::string("\xc3\x28"), "3");
  writeFile(victim / ".hidden" / "..." / "x", "4");
  fs::create_directories(victim / "empty" / "empty");
  writeFile(victim / "locked-file", "5");
  ::chmod((victim / "locked-file").c_str(), 0);
  ASSERT_EQ(::mkfifo((victim / "fifo").c_str(), 0600), 0);
  fs::create_hard_link(victim / "with space.txt", dir / "hard link outside");
  writeFile(dir / "victim folder sibling" / "keep", "keep");

  removeItem(victim);

  EXPECT_FALSE(present(victim));
  EXPECT_EQ(readFile(dir / "hard link outside"), "1");
  EXPECT_EQ(readFile(dir / "victim folder sibling" / "keep"), "keep");
}

TEST(RemoveItem, RemovesSingleFileAndTrailingSlashForm) {
  TempDir dir;
  writeFile(dir / "file", "x");
  removeItem(dir / "file");
  EXPECT_FALSE(present(dir / "file"));

  writeFile(dir / "folder" / "inner", "x");
  removeItem((dir / "folder").string() + "//");
  EXPECT_FALSE(present(dir / "folder"));
}

TEST(RemoveItem, LinksInsideTreeGoButTheirTargetsStay) {
  TempDir dir;
  const fs::path outside = dir / "outside";
  makeOutsideFolder(outside);
  const auto before = snapshot(outside);
  const fs::path victim = dir / "victim";
  fs::create_directories(victim / "a");
  fs::create_directory_symlink(outside, victim / "a" / "link-to-folder");
  fs::create_symlink(outside / "keep.txt", victim / "link-to-file");
  fs::create_symlink(dir / "nowhere", victim / "dangling");
  fs::create_symlink("../../outside/nested", victim / "a" / "relative-link");

  removeItem(victim);

  EXPECT_FALSE(present(victim));
  EXPECT_EQ(snapshot(outside), before);
}

TEST(RemoveItem, SelectedLinkIsRemovedNotItsTarget) {
  TempDir dir;
  const fs::path outside = dir / "outside";
  makeOutsideFolder(outside);
  const auto before = snapshot(outside);
  fs::create_directory_symlink(outside, dir / "link");
  fs::create_directory_symlink(outside, dir / "link2");

  removeItem(dir / "link");
  // With a trailing slash a path would normally resolve the link; the link is still what goes.
  removeItem((dir / "link2").string() + "/");

  EXPECT_FALSE(present(dir / "link"));
  EXPECT_FALSE(present(dir / "link2"));
  EXPECT_EQ(snapshot(outside), before);
}

TEST(RemoveItem, FoldersLeadingToTheItemAreFollowedAsGiven) {
  TempDir dir;
  writeFile(dir / "real" / "item" / "file", "x");
  writeFile(dir / "real" / "other", "y");
  fs::create_directory_symlink(dir / "real", dir / "via");

  removeItem(dir / "via" / "item");

  EXPECT_FALSE(present(dir / "real" / "item"));
  EXPECT_EQ(readFile(dir / "real" / "other"), "y");
  EXPECT_TRUE(fs::is_symlink(dir / "via"));
}

TEST(RemoveItem, MissingPathOrMeaninglessNameIsAReadableError) {
  TempDir dir;
  try {
    removeItem(dir / "nothing here");
    FAIL() << "no error";
  } catch (const FileSystemError& error) {
    EXPECT_STREQ(error.what(), "The file \u201Cnothing here\u201D doesn\u2019t exist.");
    EXPECT_EQ(error.code(), ENOENT);
    EXPECT_EQ(error.path(), dir / "nothing here");
  }
  try {
    removeItem(dir / "missing parent" / "child");
    FAIL() << "no error";
  } catch (const FileSystemError& error) {
    EXPECT_STREQ(error.what(),
                 "The file \u201C"
                 "child"
                 "\u201D doesn\u2019t exist.");
  }
  writeFile(dir / "keep", "k");
  EXPECT_THROW(removeItem(dir / "."), FileSystemError);
  EXPECT_THROW(removeItem(dir.path().string() + "/.."), FileSystemError);
  EXPECT_THROW(removeItem(""), FileSystemError);
  EXPECT_EQ(readFile(dir / "keep"), "k");
}

TEST(RemoveItem, UnremovableItemIsTheErrorAndTheRestIsRemoved) {
  TempDir dir;
  const fs::path victim = dir / "victim";
  auto result = runUnprivileged(dir.path(), [&]() -> std::string {
    writeFile(victim / "a", "a");
    writeFile(victim / "nested" / "deeper" / "b", "b");
    writeFile(victim / "read-only folder" / "locked", "locked");
    fs::create_directories(victim / "unreadable but empty");
    ::chmod((victim / "read-only folder").c_str(), 0555);
    ::chmod((victim / "unreadable but empty").c_str(), 0);
    try {
      removeItem(victim);
      return "no error";
    } catch (const FileSystemError& error) {
      std::string problems;
      if (std::string(error.what()) !=
          "\u201Clocked\u201D couldn\u2019t be removed because you don\u2019t have permission to access it.") {
        problems += std::string("description: ") + error.what() + "\n";
      }
      if (error.code() != EACCES) problems += "code " + std::to_string(error.code()) + "\n";
      if (error.path() != victim / "read-only folder" / "locked") problems += "path " + error.path().string() + "\n";
      if (!present(victim / "read-only folder" / "locked")) problems += "the locked file went\n";
      for (const char* gone : {"a", "nested", "unreadable but empty"}) {
        if (present(victim / gone)) problems += std::string(gone) + " is still there\n";
      }
      // Nothing was made writable behind the user's back.
      struct stat status {};
      ::stat((victim / "read-only folder").c_str(), &status);
      if ((status.st_mode & 07777) != 0555) problems += "mode changed\n";
      return problems;
    }
  });
  if (!result) GTEST_SKIP() << "no unprivileged user to run as";
  EXPECT_EQ(*result, "");
}

TEST(RemoveItem, UnreadableFolderWithContentsIsReported) {
  TempDir dir;
  const fs::path victim = dir / "victim";
  auto result = runUnprivileged(dir.path(), [&]() -> std::string {
    writeFile(victim / "secret" / "inside", "x");
    writeFile(victim / "plain", "p");
    ::chmod((victim / "secret").c_str(), 0);
    try {
      removeItem(victim);
      return "no error";
    } catch (const FileSystemError& error) {
      std::string problems;
      if (std::string(error.what()) !=
          "\u201Csecret\u201D couldn\u2019t be removed because you don\u2019t have permission to access it.") {
        problems += std::string("description: ") + error.what() + "\n";
      }
      if (present(victim / "plain")) problems += "plain is still there\n";
      return problems;
    }
  });
  if (!result) GTEST_SKIP() << "no unprivileged user to run as";
  EXPECT_EQ(*result, "");
}

// A tree far deeper than any descriptor limit, removed with a low limit in force.
TEST(RemoveItem, RemovesVeryDeepTreeWithFewDescriptors) {
  TempDir dir;
  constexpr int kDepth = 10000;
  int fd = ::open(dir.path().c_str(), O_RDONLY | O_DIRECTORY);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(::mkdirat(fd, "deep", 0700), 0);
  int current = ::openat(fd, "deep", O_RDONLY | O_DIRECTORY);
  ::close(fd);
  for (int level = 0; level < kDepth; ++level) {
    if (level % 100 == 0) {
      const int file = ::openat(current, "file at this level", O_WRONLY | O_CREAT, 0600);
      ASSERT_GE(file, 0);
      ::close(file);
    }
    ASSERT_EQ(::mkdirat(current, "d", 0700), 0) << level;
    const int next = ::openat(current, "d", O_RDONLY | O_DIRECTORY);
    ASSERT_GE(next, 0);
    ::close(current);
    current = next;
  }
  ::close(current);

  rlimit original{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &original), 0);
  rlimit reduced = original;
  reduced.rlim_cur = 256;
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &reduced), 0);
  std::string failure;
  try {
    removeItem(dir / "deep");
  } catch (const std::exception& error) {
    failure = error.what();
  }
  ::setrlimit(RLIMIT_NOFILE, &original);

  EXPECT_EQ(failure, "");
  EXPECT_FALSE(present(dir / "deep"));
}

#if defined(TIDEWELL_TEST_HOOKS)
// Runs an action exactly between the removal's look at a folder and its opening of it: the
// window no scheduler can be trusted to hit.
class InWindow {
 public:
  explicit InWindow(std::function<void(const std::string& name)> action) {
    action_ = std::move(action);
    removeItemBeforeOpeningFolderHook = [](const char* name) { action_(name); };
  }
  ~InWindow() {
    removeItemBeforeOpeningFolderHook = nullptr;
    action_ = nullptr;
  }

 private:
  static inline std::function<void(const std::string&)> action_;
};

// Replaces `folder` with a link to `target` the first time the removal is about to open it.
struct SwapInWindow : InWindow {
  SwapInWindow(const fs::path& folder, const fs::path& target)
      : InWindow([folder, target, this](const std::string& name) {
          if (swaps > 0 || folder.filename() != name) return;
          ++swaps;
          fs::rename(folder, folder.string() + ".moved");
          fs::create_directory_symlink(target, folder);
        }) {}
  int swaps = 0;
};

TEST(RemoveItem, FolderSwappedForLinkBeforeOpeningIsNeverEntered) {
  TempDir dir;
  const fs::path outside = dir / "outside";
  makeOutsideFolder(outside);
  const auto before = snapshot(outside);
  const fs::path victim = dir / "victim";
  writeFile(victim / "a" / "sub" / "file", "x");
  writeFile(victim / "a" / "sub" / "inner" / "file", "y");

  SwapInWindow swap(victim / "a" / "sub", outside);
  removeItem(victim);

  EXPECT_EQ(swap.swaps, 1);
  EXPECT_EQ(snapshot(outside), before);
  // The moved folder stayed inside the selected tree, so it went too.
  EXPECT_FALSE(present(victim));
}

TEST(RemoveItem, SelectedFolderSwappedForLinkBeforeOpeningIsNeverEntered) {
  TempDir dir;
  const fs::path outside = dir / "outside";
  makeOutsideFolder(outside);
  const auto before = snapshot(outside);
  const fs::path victim = dir / "victim";
  writeFile(victim / "file", "x");

  SwapInWindow swap(victim, outside);
  removeItem(victim);

  EXPECT_EQ(swap.swaps, 1);
  EXPECT_EQ(snapshot(outside), before);
  EXPECT_FALSE(present(victim));
  // The folder that left the selected path is not followed.
  EXPECT_EQ(readFile(dir / "victim.moved" / "file"), "x");
}
// Deeper than the folders kept open, a folder of the chain is moved elsewhere in the tree
// while the removal is below it: the way back up finds its parent again by name.
TEST(RemoveItem, FolderMovedAboveTheOpenChainIsStillRemoved) {
  TempDir dir;
  const fs::path victim = dir / "victim";
  fs::path folder = victim;
  fs::path moved;
  for (int level = 1; level <= 150; ++level) {
    folder /= "L" + std::to_string(level);
    if (level == 21) moved = folder;
    writeFile(folder / "file", "x");
  }
  bool didMove = false;
  InWindow move([&](const std::string& name) {
    if (name != "L150" || didMove) return;
    didMove = true;
    fs::rename(moved, victim / "moved");
  });
  removeItem(victim);

  EXPECT_TRUE(didMove);
  EXPECT_FALSE(present(victim));
}
#endif

// While the removal runs, another thread keeps replacing a folder inside the tree with a link
// to a folder outside it and back. Whatever the removal manages, the outside stays untouched.
TEST(RemoveItem, SwappingAFolderForALinkNeverReachesOutside) {
  TempDir dir;
  const fs::path outside = dir / "outside";
  makeOutsideFolder(outside);
  for (int i = 0; i < 20; ++i) writeFile(outside / "many" / std::to_string(i), "keep");
  const auto before = snapshot(outside);

  constexpr int kRounds = 150;
  int roundsWithFailure = 0;
  for (int round = 0; round < kRounds; ++round) {
    const fs::path victim = dir / "victim";
    const fs::path parent = victim / "a";
    const fs::path sub = parent / "sub";
    for (int i = 0; i < 30; ++i) writeFile(sub / ("f" + std::to_string(i)), "x");
    for (int i = 0; i < 10; ++i) writeFile(sub / "many" / std::to_string(i), "y");
    writeFile(victim / "b" / "c", "z");

    std::atomic<bool> stop{false};
    std::thread swapper([&] {
      const std::string subName = sub.string(), realName = (parent / "sub.real").string(),
                        linkName = (parent / "link.new").string();
      while (!stop.load()) {
        (void)::symlink(outside.c_str(), linkName.c_str());
        (void)::rename(subName.c_str(), realName.c_str());
        (void)::rename(linkName.c_str(), subName.c_str());
        std::this_thread::yield();
        (void)::rename(subName.c_str(), linkName.c_str());
        (void)::rename(realName.c_str(), subName.c_str());
      }
    });
    try {
      removeItem(victim);
    } catch (const FileSystemError&) {
      ++roundsWithFailure;  // a tree that keeps changing may win a round; it must never reach outside
    }
    stop = true;
    swapper.join();

    ASSERT_EQ(snapshot(outside), before) << "round " << round;
    if (present(victim)) removeItem(victim);
    ASSERT_FALSE(present(victim));
  }
  RecordProperty("RoundsWithFailure", roundsWithFailure);
}

}  // namespace
}  // namespace tw
