#include <fcntl.h>
#include <gtest/gtest.h>
#include <plist/plist.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/Error.h"
#include "platform/UserDefaults.h"
#include "support/HostilePropertyLists.h"
#include "support/TempDir.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using test::deepBinaryList;
using test::deepXmlList;
using test::readFile;
using test::TempDir;
using test::writeFile;
using Value = UserDefaults::Value;

std::vector<std::string> namesIn(const fs::path& folder, std::string_view part = "") {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) {
    auto name = entry.path().filename().string();
    if (name.find(part) != std::string::npos) names.push_back(name);
  }
  std::sort(names.begin(), names.end());
  return names;
}
std::vector<std::string> asideFilesIn(const fs::path& folder) { return namesIn(folder, ".plist.corrupt-"); }

std::string binaryPlist(plist_t root) {
  char* bytes = nullptr;
  uint32_t length = 0;
  plist_to_bin(root, &bytes, &length);
  std::string result(bytes, length);
  std::free(bytes);
  plist_free(root);
  return result;
}

struct Recorder {
  std::vector<UserDefaults::Problem> problems;
  UserDefaults::ProblemHandler handler() {
    return [this](const UserDefaults::Problem& problem) { problems.push_back(problem); };
  }
};

TEST(UserDefaults, EveryKindOfValueSurvivesTheRoundTripThroughTheFile) {
  TempDir dir;
  auto store = dir / "deep/er/settings.plist";  // folders are created on the first write
  UserDefaults defaults(store);
  const UserDefaults::Data blob{0x00, 0xFF, 0x10, 0x00, 0x7F};
  defaults.setBool("flag", false);
  defaults.setInteger("huge", INT64_MAX);
  defaults.setInteger("smallest", INT64_MIN);
  defaults.setString("text", "Dérivées <&> ☃ \"quoted\"");
  defaults.setData("blob", blob);
  defaults.setURL("folder", fs::path("/Users/ann/Xcode Stuff/"));
  defaults.setURL("relative", fs::path("Archives"));

  UserDefaults reader(store);  // a second handle reads the file, not a copy in memory
  EXPECT_EQ(reader.object("flag"), Value(false));
  EXPECT_EQ(reader.object("huge"), Value(INT64_MAX));
  EXPECT_EQ(reader.object("smallest"), Value(INT64_MIN));
  EXPECT_EQ(reader.object("text"), Value(std::string("Dérivées <&> ☃ \"quoted\"")));
  EXPECT_EQ(reader.object("blob"), Value(blob));
  EXPECT_EQ(reader.object("folder"), Value(std::string("/Users/ann/Xcode Stuff")));
  EXPECT_EQ(reader.object("relative"), Value((fs::current_path() / "Archives").string()));

  reader.removeObject("text");
  reader.setURL("folder", std::nullopt);
  reader.setURL("relative", fs::path());
  EXPECT_EQ(defaults.keys(), (std::vector<std::string>{"blob", "flag", "huge", "smallest"}));
  // Only the store and its lock file remain: no temporary files are left behind.
  EXPECT_EQ(namesIn(store.parent_path()), (std::vector<std::string>{"settings.plist", "settings.plist.lock"}));
}

TEST(UserDefaults, ReadsBinaryListsAndKeepsValuesItDoesNotUnderstand) {
  TempDir dir;
  auto store = dir / "s.plist";
  plist_t root = plist_new_dict();
  plist_dict_set_item(root, "count", plist_new_uint(7));
  plist_dict_set_item(root, "ratio", plist_new_real(2.5));
  plist_t list = plist_new_array();
  plist_array_append_item(list, plist_new_string("kept"));
  plist_dict_set_item(root, "list", list);
  writeFile(store, binaryPlist(root));
  UserDefaults defaults(store);
  EXPECT_EQ(defaults.object("count"), Value(int64_t{7}));
  EXPECT_EQ(defaults.object("ratio"), Value(2.5));
  EXPECT_EQ(defaults.object("list"), Value(UserDefaults::OtherValue{}));

  // The rewrite is a property list any other tool can read, and keeps the array no setting reads.
  defaults.setBool("added", true);
  const std::string bytes = readFile(store);
  plist_t parsed = nullptr;
  plist_from_memory(bytes.data(), static_cast<uint32_t>(bytes.size()), &parsed);
  ASSERT_NE(parsed, nullptr);
  plist_t kept = plist_dict_get_item(parsed, "list");
  EXPECT_TRUE(kept && plist_array_get_size(kept) == 1u);
  EXPECT_EQ(plist_dict_get_size(parsed), 4u);
  plist_free(parsed);
}

TEST(UserDefaults, UnusableFilesReadAsEmptyAndAreMovedAsideOnceWithoutCrashing) {
  plist_t root = plist_new_dict();
  plist_dict_set_item(root, "k", plist_new_string("value"));
  const std::string binary = binaryPlist(root);
  const uint32_t deep = 200'000;
  const std::string xml = deepXmlList(deep);
  const std::vector<std::pair<const char*, std::string>> cases = {
      {"garbage", std::string("\x01\x00not a property list\xff\xfe", 23)},  // with a NUL byte
      {"truncated binary", binary.substr(0, binary.size() / 2)},
      {"root is an array", "<?xml version=\"1.0\"?><plist version=\"1.0\"><array><string>x</string></array></plist>"},
      {"empty", ""},
      {"deep XML", xml},
      {"deep binary", deepBinaryList(deep, false)},
      {"circular binary", deepBinaryList(3, true)},
  };
  for (size_t i = 0; i < cases.size(); ++i) {
    const auto& [name, contents] = cases[i];
    SCOPED_TRACE(name);
    TempDir dir;
    auto store = dir / "s.plist";
    writeFile(store, contents);
    Recorder recorder;
    UserDefaults defaults(store, recorder.handler());
    const bool writeFirst = i % 2;  // a write moves the file aside before writing, as a read does
    if (writeFirst) defaults.setInteger("k", 5);
    EXPECT_EQ(defaults.object("k"), writeFirst ? std::optional(Value(int64_t{5})) : std::nullopt);
    ASSERT_EQ(recorder.problems.size(), 1u);
    EXPECT_EQ(recorder.problems[0].kind, UserDefaults::Problem::Kind::setAside);
    auto aside = asideFilesIn(dir.path());
    ASSERT_EQ(aside.size(), 1u);
    EXPECT_EQ(aside[0].size(), std::string("s.plist.corrupt-YYYYMMDDTHHMMSSZ").size());
    EXPECT_EQ(readFile(dir / aside[0]), contents);  // the user's bytes are kept as they were
    EXPECT_NE(recorder.problems[0].message.find(store.string()), std::string::npos);
    EXPECT_NE(recorder.problems[0].message.find(aside[0]), std::string::npos);

    defaults.setInteger("k", 6);
    EXPECT_EQ(defaults.object("k"), Value(int64_t{6}));
    EXPECT_EQ(recorder.problems.size(), 1u);
    // A second bad file within the same second gets a name of its own.
    writeFile(store, contents);
    EXPECT_FALSE(defaults.object("k").has_value());
    EXPECT_EQ(asideFilesIn(dir.path()).size(), 2u);
  }
  // Nesting a settings file can really have is read, and kept, as usual.
  TempDir dir;
  writeFile(dir / "s.plist", deepBinaryList(20, false));
  UserDefaults defaults(dir / "s.plist");
  defaults.setBool("b", true);
  EXPECT_EQ(defaults.object("k"), Value(UserDefaults::OtherValue{}));
  EXPECT_TRUE(asideFilesIn(dir.path()).empty());
}

TEST(UserDefaults, SomethingOtherThanAFileInPlaceOfTheStoreIsMovedAside) {
  TempDir dir;
  auto store = dir / "s.plist";
  fs::create_directories(store / "inside");
  UserDefaults defaults(store);
  EXPECT_FALSE(defaults.object("k").has_value());
  ASSERT_EQ(asideFilesIn(dir.path()).size(), 1u);
  EXPECT_TRUE(fs::is_directory(dir / asideFilesIn(dir.path())[0] / "inside"));

  ASSERT_EQ(::mkfifo(store.c_str(), 0600), 0);  // opening must not hang
  EXPECT_FALSE(defaults.object("k").has_value());
  EXPECT_EQ(asideFilesIn(dir.path()).size(), 2u);
}

TEST(UserDefaults, ASymlinkedStoreStaysALinkAndPermissionsAreKept) {
  TempDir dir;
  auto real = dir / "dotfiles/tidewell.plist";
  auto store = dir / "config/s.plist";
  fs::create_directories(store.parent_path());
  UserDefaults(real).setInteger("k", 1);
  ::chmod(real.c_str(), 0644);
  fs::create_symlink(real, store);

  UserDefaults(store).setInteger("k", 2);
  EXPECT_TRUE(fs::is_symlink(store));
  EXPECT_EQ(UserDefaults(real).object("k"), Value(int64_t{2}));
  struct stat status {};
  ASSERT_EQ(::stat(real.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0644u);
}

TEST(UserDefaults, AFailedWriteOrChangeThrowsAndLeavesEverythingAsItWas) {
  TempDir dir;
  writeFile(dir / "blocker", "a file where a folder should be");
  UserDefaults blocked(dir / "blocker/tidewell/s.plist");
  EXPECT_THROW(blocked.setBool("k", true), Error);
  EXPECT_FALSE(blocked.object("k").has_value());
  EXPECT_EQ(readFile(dir / "blocker"), "a file where a folder should be");

  UserDefaults defaults(dir / "s.plist");
  defaults.setInteger("k", 1);
  auto change = [](UserDefaults::Editor& editor) {
    editor.setInteger("k", 2);
    throw Error("changed my mind");
  };
  EXPECT_THROW(defaults.update(change), Error);
  EXPECT_EQ(defaults.object("k"), Value(int64_t{1}));
  EXPECT_EQ(namesIn(dir.path(), "s.plist"), (std::vector<std::string>{"s.plist", "s.plist.lock"}));
}

TEST(UserDefaults, AWriteRemovesTheTemporaryFilesOfKilledWritersButNoOtherFile) {
  TempDir dir;
  const auto store = dir / "s.plist";
  UserDefaults defaults(store);
  defaults.setInteger("k", 0);

  // Writers killed at random moments, some of them between creating and renaming their file.
  for (int round = 0; round < 40; ++round) {
    pid_t child = ::fork();
    if (child == 0) {
      UserDefaults mine(store);
      for (int64_t n = 1;; ++n) mine.setInteger("k", n);
    }
    ::usleep(static_cast<useconds_t>(2000 + (round * 7919) % 20000));
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
  }
  // One abandoned for certain; one a writer still holds; other names that are not this store's.
  writeFile(dir / ".s.plist.tmp-Ab3xQz", "half");
  writeFile(dir / ".s.plist.tmp-inUse1", "being written");
  int live = ::open((dir / ".s.plist.tmp-inUse1").c_str(), O_RDONLY);
  ASSERT_EQ(::flock(live, LOCK_EX), 0);
  const std::vector<std::string> others = {".other.plist.tmp-Ab3xQz", ".s.plist.tmp-toolong", "s.plist.tmp-Ab3xQz",
                                           ".s.plist.tmp-folder"};
  for (const auto& name : others) writeFile(dir / name, "not ours");
  fs::remove(dir / ".s.plist.tmp-folder");
  fs::create_directory(dir / ".s.plist.tmp-folder");
  fs::create_symlink(dir / "s.plist", dir / ".s.plist.tmp-linked");

  defaults.setInteger("k", -1);
  EXPECT_EQ(defaults.object("k"), Value(int64_t{-1}));
  std::vector<std::string> left = namesIn(dir.path(), ".tmp-");
  std::vector<std::string> expected = others;
  expected.push_back(".s.plist.tmp-inUse1");
  expected.push_back(".s.plist.tmp-linked");
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(left, expected);
  ::close(live);
}

}  // namespace
}  // namespace tw
