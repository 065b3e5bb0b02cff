#include <fcntl.h>
#include <gtest/gtest.h>
#include <plist/plist.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>

#include "platform/Error.h"
#include "platform/UserDefaults.h"
#include "support/FixtureHome.h"
#include "support/HostilePropertyLists.h"
#include "support/TempDir.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using test::readFile;
using test::writeFile;
using Value = UserDefaults::Value;
using Strings = std::vector<std::string>;

// The sorted names in `folder` that contain `part`.
Strings namesIn(const fs::path& folder, std::string_view part = "") {
  Strings names;
  for (const auto& entry : fs::directory_iterator(folder))
    if (entry.path().filename().string().find(part) != std::string::npos)
      names.push_back(entry.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

Strings asideFilesIn(const fs::path& folder) { return namesIn(folder, ".plist.corrupt-"); }

struct UserDefaultsTest : ::testing::Test {
  test::TempDir dir;
  fs::path store = dir / "s.plist";
};

TEST_F(UserDefaultsTest, EveryKindOfValueSurvivesTheRoundTripThroughTheFile) {
  auto deep = dir / "deep/er/settings.plist";  // folders are created on the first write
  UserDefaults defaults(deep);
  const UserDefaults::Data blob{0x00, 0xFF, 0x10, 0x00, 0x7F};
  defaults.setBool("flag", false);
  defaults.setInteger("huge", INT64_MAX);
  defaults.setInteger("smallest", INT64_MIN);
  defaults.setString("text", "Dérivées <&> ☃ \"quoted\"");
  defaults.setData("blob", blob);
  defaults.setURL("folder", fs::path("/Users/ann/Xcode Stuff/"));
  defaults.setURL("relative", fs::path("Archives"));
  defaults.setURL("root", fs::path("//"));  // the root keeps its one separator
  UserDefaults reader(deep);  // a second handle reads the file, not a copy in memory
  for (const auto& [key, value] :
       std::vector<std::pair<const char*, Value>>{{"flag", false},
                                                  {"huge", INT64_MAX},
                                                  {"smallest", INT64_MIN},
                                                  {"text", std::string("Dérivées <&> ☃ \"quoted\"")},
                                                  {"blob", blob},
                                                  {"folder", std::string("/Users/ann/Xcode Stuff")},
                                                  {"relative", (fs::current_path() / "Archives").string()},
                                                  {"root", std::string("/")}})
    EXPECT_EQ(reader.object(key), value) << key;
  reader.removeObject("text");
  reader.setURL("folder", std::nullopt);
  reader.setURL("relative", fs::path());
  reader.setURL("root", std::nullopt);
  EXPECT_EQ(defaults.keys(), (Strings{"blob", "flag", "huge", "smallest"}));
  // Only the store and its lock file remain: no temporary files are left behind.
  EXPECT_EQ(namesIn(deep.parent_path()), (Strings{"settings.plist", "settings.plist.lock"}));
}

TEST_F(UserDefaultsTest, ReadsBinaryListsAndKeepsValuesItDoesNotUnderstand) {
  plist_t root = plist_new_dict();
  plist_dict_set_item(root, "count", plist_new_uint(7));
  plist_dict_set_item(root, "ratio", plist_new_real(2.5));
  plist_t list = plist_new_array();
  plist_array_append_item(list, plist_new_string("kept"));
  plist_dict_set_item(root, "list", list);
  test::writePlist(store, root, test::PlistFormat::binary);
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
  test::TempDir scratch;
  plist_t root = plist_new_dict();
  plist_dict_set_item(root, "k", plist_new_string("value"));
  test::writePlist(scratch / "binary.plist", root, test::PlistFormat::binary);
  const std::string binary = readFile(scratch / "binary.plist");
  const std::vector<std::pair<const char*, std::string>> cases = {
      {"garbage", std::string("\x01\x00not a property list\xff\xfe", 23)},  // with a NUL byte
      {"truncated binary", binary.substr(0, binary.size() / 2)},
      {"root is an array", "<?xml version=\"1.0\"?><plist version=\"1.0\"><array><string>x</string></array></plist>"},
      {"empty", ""},
      {"deep XML", test::deepXmlList(200'000)},
      {"deep binary", test::deepBinaryList(200'000, false)},
      {"circular binary", test::deepBinaryList(3, true)},
  };
  for (size_t i = 0; i < cases.size(); ++i) {
    const auto& [name, contents] = cases[i];
    SCOPED_TRACE(name);
    test::TempDir dir;
    auto store = dir / "s.plist";
    writeFile(store, contents);
    std::vector<UserDefaults::Problem> problems;
    UserDefaults defaults(store, [&](const UserDefaults::Problem& problem) { problems.push_back(problem); });
    const bool writeFirst = i % 2;  // a write moves the file aside before writing, as a read does
    if (writeFirst) defaults.setInteger("k", 5);
    EXPECT_EQ(defaults.object("k"), writeFirst ? std::optional(Value(int64_t{5})) : std::nullopt);
    ASSERT_EQ(problems.size(), 1u);
    EXPECT_EQ(problems[0].kind, UserDefaults::Problem::Kind::setAside);
    auto aside = asideFilesIn(dir.path());
    ASSERT_EQ(aside.size(), 1u);
    EXPECT_EQ(aside[0].size(), std::string("s.plist.corrupt-YYYYMMDDTHHMMSSZ").size());
    EXPECT_EQ(readFile(dir / aside[0]), contents);  // the user's bytes are kept as they were
    EXPECT_NE(problems[0].message.find(store.string()), std::string::npos);
    EXPECT_NE(problems[0].message.find(aside[0]), std::string::npos);
    defaults.setInteger("k", 6);
    EXPECT_EQ(defaults.object("k"), Value(int64_t{6}));
    EXPECT_EQ(problems.size(), 1u);
    writeFile(store, contents);  // a second bad file within the same second gets a name of its own
    EXPECT_FALSE(defaults.object("k").has_value());
    EXPECT_EQ(asideFilesIn(dir.path()).size(), 2u);
  }
}

TEST_F(UserDefaultsTest, RealisticNestingIsKeptAndNonFilesInPlaceOfTheStoreAreMovedAside) {
  writeFile(store, test::deepBinaryList(20, false));
  UserDefaults defaults(store);
  defaults.setBool("b", true);
  EXPECT_EQ(defaults.object("k"), Value(UserDefaults::OtherValue{}));
  EXPECT_TRUE(asideFilesIn(dir.path()).empty());

  fs::remove(store);
  fs::create_directories(store / "inside");
  EXPECT_FALSE(defaults.object("k").has_value());
  ASSERT_EQ(asideFilesIn(dir.path()).size(), 1u);
  EXPECT_TRUE(fs::is_directory(dir / asideFilesIn(dir.path())[0] / "inside"));
  ASSERT_EQ(::mkfifo(store.c_str(), 0600), 0);  // opening must not hang
  EXPECT_FALSE(defaults.object("k").has_value());
  EXPECT_EQ(asideFilesIn(dir.path()).size(), 2u);
}

TEST_F(UserDefaultsTest, ASymlinkedStoreStaysALinkAndPermissionsAreKept) {
  auto real = dir / "dotfiles/tidewell.plist";
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

TEST_F(UserDefaultsTest, AFailedWriteOrChangeThrowsAndLeavesEverythingAsItWas) {
  writeFile(dir / "blocker", "a file where a folder should be");
  UserDefaults blocked(dir / "blocker/tidewell/s.plist");
  EXPECT_THROW(blocked.setBool("k", true), Error);
  EXPECT_FALSE(blocked.object("k").has_value());
  EXPECT_EQ(readFile(dir / "blocker"), "a file where a folder should be");

  UserDefaults defaults(store);
  defaults.setInteger("k", 1);
  EXPECT_THROW(defaults.update([](UserDefaults::Editor& editor) {
    editor.setInteger("k", 2);
    throw Error("changed my mind");
  }),
               Error);
  EXPECT_EQ(defaults.object("k"), Value(int64_t{1}));
  EXPECT_EQ(namesIn(dir.path(), "s.plist"), (Strings{"s.plist", "s.plist.lock"}));
}

TEST_F(UserDefaultsTest, AWriteRemovesTheTemporaryFilesOfKilledWritersButNoOtherFile) {
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
  Strings expected = {".other.plist.tmp-Ab3xQz", ".s.plist.tmp-toolong", "s.plist.tmp-Ab3xQz"};
  for (const auto& name : expected) writeFile(dir / name, "not ours");
  fs::create_directory(dir / ".s.plist.tmp-folder");
  fs::create_symlink(dir / "s.plist", dir / ".s.plist.tmp-linked");

  defaults.setInteger("k", -1);
  EXPECT_EQ(defaults.object("k"), Value(int64_t{-1}));
  expected.insert(expected.end(), {".s.plist.tmp-folder", ".s.plist.tmp-inUse1", ".s.plist.tmp-linked"});
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(namesIn(dir.path(), ".tmp-"), expected);
  ::close(live);
}

}  // namespace
}  // namespace tw
