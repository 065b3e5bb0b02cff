#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "fs/RemoveItem.h"
#include "platform/Error.h"
#include "support/TempDir.h"
#include "support/Unprivileged.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using namespace test;

bool present(const fs::path& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0;
}

// A folder outside the removed tree, with its snapshot taken.
std::map<std::string, std::string> makeOutsideFolder(const fs::path& outside) {
  writeFile(outside / "keep.txt", "precious");
  writeFile(outside / "nested" / "deeper" / "also-keep.bin", std::string("\0\1\2", 3));
  for (int i = 0; i < 20; ++i) writeFile(outside / "many" / std::to_string(i), "keep");
  return snapshot(outside);
}

TEST(RemoveItem, RemovesTreesOfOddNamesAndLinksButNeverTheirTargets) {
  TempDir dir;
  const fs::path outside = dir / "outside";
  const auto before = makeOutsideFolder(outside);
  const fs::path victim = dir / "victim folder";
  writeFile(victim / "new\nline" / "-rf" / "--" / "file", "2");
  writeFile(victim / std::string("bad\xff\xfe utf8") / std::string("\xc3\x28"), "3");
  writeFile(victim / ".hidden" / "..." / "x", "4");
  writeFile(victim / "locked-file", "5");
  ::chmod((victim / "locked-file").c_str(), 0);
  ASSERT_EQ(::mkfifo((victim / "fifo").c_str(), 0600), 0);
  fs::create_hard_link(victim / "locked-file", dir / "hard link outside");
  fs::create_directory_symlink(outside, victim / ".hidden" / "link-to-folder");
  fs::create_symlink(outside / "keep.txt", victim / "link-to-file");
  fs::create_symlink(dir / "nowhere", victim / "dangling");
  fs::create_symlink("../../outside/nested", victim / ".hidden" / "relative-link");
  writeFile(dir / "victim folder sibling" / "keep", "keep");

  removeItem(victim.string() + "//");
  EXPECT_FALSE(present(victim));
  EXPECT_TRUE(present(dir / "hard link outside"));
  EXPECT_EQ(readFile(dir / "victim folder sibling" / "keep"), "keep");

  // A selected link goes, not its target, even spelt with a trailing slash; folders leading to
  // the item are followed as given.
  fs::create_directory_symlink(outside, dir / "link");
  removeItem((dir / "link").string() + "/");
  EXPECT_FALSE(present(dir / "link"));
  EXPECT_EQ(snapshot(outside), before);
  fs::create_directory_symlink(outside, dir / "via");
  removeItem(dir / "via" / "keep.txt");
  EXPECT_FALSE(present(outside / "keep.txt"));
  EXPECT_TRUE(fs::is_symlink(dir / "via"));
}

// Describes a FileSystemError as "code path: text", or says that none came.
std::string removalError(const fs::path& path) {
  try {
    removeItem(path);
  } catch (const FileSystemError& error) {
    return std::to_string(error.code()) + " " + error.path().string() + ": " + error.what();
  }
  return "no error";
}

TEST(RemoveItem, MissingPathOrMeaninglessNameIsAReadableError) {
  TempDir dir;
  const fs::path missing = dir / "missing parent" / "child";
  EXPECT_EQ(removalError(missing), std::to_string(ENOENT) + " " + missing.string() +
                                       ": The file \u201C"
                                       "child"
                                       "\u201D doesn\u2019t exist.");
  writeFile(dir / "keep", "k");
  for (const std::string& path : {(dir / ".").string(), dir.path().string() + "/..", std::string()}) {
    EXPECT_THROW(removeItem(path), FileSystemError) << path;
  }
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
    std::string problems = removalError(victim);
    if (problems == std::to_string(EACCES) + " " + (readOnly / "locked").string() +
                        ": \u201Clocked\u201D couldn\u2019t be removed because you don\u2019t have permission to "
                        "access it.")
      problems.clear();
    if (!present(readOnly / "locked")) problems += "the locked file went\n";
    for (const char* gone : {"a", "nested", "unreadable but empty"}) {
      if (present(victim / gone)) problems += std::string(gone) + " is still there\n";
    }
    struct stat status {};  // nothing was made writable behind the user's back
    ::stat(readOnly.c_str(), &status);
    if ((status.st_mode & 07777) != 0555) problems += "mode changed\n";
    return problems;
  });
  if (!result) GTEST_SKIP() << "no unprivileged user to run as";
  EXPECT_EQ(*result, "");
}

// A tree far deeper than any descriptor limit, removed with a low limit in force.
TEST(RemoveItem, RemovesVeryDeepTreeWithFewDescriptors) {
  TempDir dir;
  fs::create_directory(dir / "deep");
  int current = ::open((dir / "deep").c_str(), O_RDONLY | O_DIRECTORY);
  for (int level = 0; level < 10000; ++level) {
    if (level % 100 == 0) ::close(::openat(current, "file at this level", O_WRONLY | O_CREAT, 0600));
    ASSERT_EQ(::mkdirat(current, "d", 0700), 0) << level;
    const int next = ::openat(current, "d", O_RDONLY | O_DIRECTORY);
    ::close(current);
    current = next;
  }
  ::close(current);

  std::string failure = "not run";
  withDescriptorLimit(256, [&] { failure = failureOf([&] { removeItem(dir / "deep"); }); });
  EXPECT_EQ(failure, "");
  EXPECT_FALSE(present(dir / "deep"));
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
  const auto before = makeOutsideFolder(target);
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
  const fs::path outside = dir / "outside";
  const auto before = makeOutsideFolder(outside);
  for (int round = 0; round < 150; ++round) {
    const fs::path victim = dir / "victim", sub = victim / "a" / "sub";
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

}  // namespace
}  // namespace tw
