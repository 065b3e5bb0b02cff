#include <gtest/gtest.h>
#include <plist/plist.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/Error.h"
#include "platform/Host.h"
#include "platform/UserDefaults.h"
#include "support/TempDir.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using test::readFile;
using test::TempDir;
using test::writeFile;
using Value = UserDefaults::Value;

std::vector<std::string> namesIn(const fs::path& folder) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) names.push_back(entry.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

std::vector<std::string> asideFilesIn(const fs::path& folder) {
  std::vector<std::string> names;
  for (const auto& name : namesIn(folder)) {
    if (name.find(".plist.corrupt-") != std::string::npos) names.push_back(name);
  }
  return names;
}

// Serialises a dictionary built by `fill` with libplist, in binary or XML form.
std::string plistBytes(const std::function<void(plist_t)>& fill, bool binary) {
  plist_t root = plist_new_dict();
  fill(root);
  char* bytes = nullptr;
  uint32_t length = 0;
  if (binary) {
    plist_to_bin(root, &bytes, &length);
  } else {
    plist_to_xml(root, &bytes, &length);
  }
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

TEST(UserDefaults, StandardStoreLivesInTheConfigFolderUnderTheBundleIdentifier) {
  Host host;
  host.configDirectory = "/home/ann/.config";
  EXPECT_EQ(UserDefaults::standardStorePath(host), fs::path("/home/ann/.config/tidewell/dev.tidewell.Tidewell.plist"));
}

TEST(UserDefaults, EveryKindOfValueSurvivesTheRoundTripThroughTheFile) {
  TempDir dir;
  auto store = dir / "deep/er/settings.plist";  // folders are created on the first write
  UserDefaults defaults(store);
  EXPECT_FALSE(defaults.object("anything").has_value());

  const UserDefaults::Data blob{0x00, 0xFF, 0x10, 0x00, 0x7F};
  defaults.setBool("flag", false);
  defaults.setInteger("negative", -42);
  defaults.setInteger("huge", INT64_MAX);
  defaults.setInteger("smallest", INT64_MIN);
  defaults.setString("text", "Dérivées <&> ☃ \"quoted\"");
  defaults.setData("blob", blob);
  defaults.setURL("folder", fs::path("/Users/ann/Xcode Stuff/"));

  UserDefaults reader(store);  // a second handle reads the file, not a copy in memory
  EXPECT_EQ(reader.object("flag"), Value(false));
  EXPECT_EQ(reader.object("negative"), Value(int64_t{-42}));
  EXPECT_EQ(reader.object("huge"), Value(INT64_MAX));
  EXPECT_EQ(reader.object("smallest"), Value(INT64_MIN));
  EXPECT_EQ(reader.object("text"), Value(std::string("Dérivées <&> ☃ \"quoted\"")));
  EXPECT_EQ(reader.object("blob"), Value(blob));
  EXPECT_EQ(reader.object("folder"), Value(std::string("/Users/ann/Xcode Stuff")));
  EXPECT_EQ(reader.keys(),
            (std::vector<std::string>{"blob", "flag", "folder", "huge", "negative", "smallest", "text"}));

  // The file is a property list any other tool can read.
  plist_t parsed = nullptr;
  auto bytes = readFile(store);
  plist_from_memory(bytes.data(), static_cast<uint32_t>(bytes.size()), &parsed);
  ASSERT_NE(parsed, nullptr);
  EXPECT_EQ(plist_get_node_type(parsed), PLIST_DICT);
  EXPECT_EQ(plist_dict_get_size(parsed), 7u);
  plist_free(parsed);

  reader.removeObject("text");
  reader.setURL("folder", std::nullopt);
  EXPECT_FALSE(defaults.object("text").has_value());
  EXPECT_FALSE(defaults.object("folder").has_value());
  // Only the store and its lock file remain: no temporary files are left behind.
  EXPECT_EQ(namesIn(store.parent_path()), (std::vector<std::string>{"settings.plist", "settings.plist.lock"}));
}

TEST(UserDefaults, FileURLsAreStoredAsAbsolutePaths) {
  TempDir dir;
  UserDefaults defaults(dir / "s.plist");
  defaults.setURL("relative", fs::path("Archives"));
  defaults.setURL("root", fs::path("/"));
  defaults.setURL("empty", fs::path());
  EXPECT_EQ(defaults.object("relative"), Value((fs::current_path() / "Archives").string()));
  EXPECT_EQ(defaults.object("root"), Value(std::string("/")));
  EXPECT_FALSE(defaults.object("empty").has_value());
}

TEST(UserDefaults, ReadsBinaryListsAndKeepsValuesItDoesNotUnderstand) {
  TempDir dir;
  auto store = dir / "s.plist";
  writeFile(store, plistBytes(
                       [](plist_t root) {
                         plist_dict_set_item(root, "count", plist_new_uint(7));
                         plist_dict_set_item(root, "ratio", plist_new_real(2.5));
                         plist_t list = plist_new_array();
                         plist_array_append_item(list, plist_new_string("kept"));
                         plist_dict_set_item(root, "list", list);
                         plist_dict_set_item(root, "when", plist_new_date(1000, 0));
                       },
                       /*binary=*/true));
  UserDefaults defaults(store);
  EXPECT_EQ(defaults.object("count"), Value(int64_t{7}));
  EXPECT_EQ(defaults.object("ratio"), Value(2.5));
  EXPECT_EQ(defaults.object("list"), Value(UserDefaults::OtherValue{}));
  EXPECT_EQ(defaults.object("when"), Value(UserDefaults::OtherValue{}));

  defaults.setBool("added", true);
  // The rewrite kept the array and the date that no setting reads.
  plist_t parsed = nullptr;
  auto bytes = readFile(store);
  plist_from_memory(bytes.data(), static_cast<uint32_t>(bytes.size()), &parsed);
  ASSERT_NE(parsed, nullptr);
  plist_t list = plist_dict_get_item(parsed, "list");
  ASSERT_NE(list, nullptr);
  ASSERT_EQ(plist_array_get_size(list), 1u);
  char* text = nullptr;
  plist_get_string_val(plist_array_get_item(list, 0), &text);
  EXPECT_STREQ(text, "kept");
  std::free(text);
  EXPECT_EQ(plist_get_node_type(plist_dict_get_item(parsed, "when")), PLIST_DATE);
  plist_free(parsed);
  EXPECT_EQ(defaults.object("added"), Value(true));
}

TEST(UserDefaults, UnusableFilesReadAsEmptyAndAreMovedAsideOnce) {
  struct Case {
    const char* name;
    std::string contents;
  };
  auto binary = plistBytes([](plist_t root) { plist_dict_set_item(root, "k", plist_new_string("value")); }, true);
  std::string rootArray = "<?xml version=\"1.0\"?><plist version=\"1.0\"><array><string>x</string></array></plist>";
  const std::vector<Case> cases = {
      {"garbage", std::string("\x01\x00not a property list\xff\xfe", 23)},  // with a NUL byte
      {"truncated binary", binary.substr(0, binary.size() / 2)},
      {"root is an array", rootArray},
      {"empty", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    TempDir dir;
    auto store = dir / "s.plist";
    writeFile(store, c.contents);
    Recorder recorder;
    UserDefaults defaults(store, recorder.handler());

    EXPECT_FALSE(defaults.object("k").has_value());
    EXPECT_FALSE(defaults.object("k").has_value());
    ASSERT_EQ(recorder.problems.size(), 1u);
    EXPECT_EQ(recorder.problems[0].kind, UserDefaults::Problem::Kind::setAside);
    EXPECT_NE(recorder.problems[0].message.find(store.string()), std::string::npos);

    auto aside = asideFilesIn(dir.path());
    ASSERT_EQ(aside.size(), 1u);
    // "s.plist.corrupt-" + "YYYYMMDDTHHMMSSZ"
    EXPECT_EQ(aside[0].size(), std::string("s.plist.corrupt-").size() + 16);
    EXPECT_EQ(aside[0].back(), 'Z');
    EXPECT_EQ(readFile(dir / aside[0]), c.contents);  // the user's bytes are kept as they were
    EXPECT_NE(recorder.problems[0].message.find(aside[0]), std::string::npos);

    defaults.setInteger("k", 5);
    EXPECT_EQ(defaults.object("k"), Value(int64_t{5}));
    EXPECT_EQ(asideFilesIn(dir.path()).size(), 1u);
    EXPECT_EQ(recorder.problems.size(), 1u);
  }
}

// A binary property list whose root dictionary holds {"k": [[[...]]]} nested `depth` arrays
// deep; with `cycle` the innermost array contains the outermost one instead of nothing.
std::string deepBinaryList(uint32_t depth, bool cycle) {
  std::string bytes = "bplist00";
  std::vector<uint32_t> offsets;
  auto putBig = [&](uint64_t value, int size) {
    for (int shift = (size - 1) * 8; shift >= 0; shift -= 8) bytes += static_cast<char>((value >> shift) & 0xFF);
  };
  uint32_t objects = depth + 2;  // dictionary, key, arrays
  offsets.push_back(static_cast<uint32_t>(bytes.size()));
  bytes += '\xD1';
  putBig(1, 4);
  putBig(2, 4);
  offsets.push_back(static_cast<uint32_t>(bytes.size()));
  bytes += "\x51k";
  for (uint32_t level = 0; level < depth; ++level) {
    offsets.push_back(static_cast<uint32_t>(bytes.size()));
    bool innermost = level + 1 == depth;
    if (innermost && !cycle) {
      bytes += '\xA0';
    } else {
      bytes += '\xA1';
      putBig(innermost ? 2 : level + 3, 4);
    }
  }
  uint64_t table = bytes.size();
  for (uint32_t offset : offsets) putBig(offset, 4);
  bytes += std::string(6, '\0');
  bytes += '\x04';  // offset size
  bytes += '\x04';  // reference size
  putBig(objects, 8);
  putBig(0, 8);
  putBig(table, 8);
  return bytes;
}

TEST(UserDefaults, ListsNestedTooDeeplyOrInACircleAreMovedAsideWithoutCrashing) {
  const uint32_t deep = 200'000;
  std::string xml = "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>k</key>";
  for (uint32_t i = 0; i < deep; ++i) xml += "<array>";
  for (uint32_t i = 0; i < deep; ++i) xml += "</array>";
  xml += "</dict></plist>";
  struct Case {
    const char* name;
    std::string contents;
  };
  const std::vector<Case> cases = {
      {"deep XML", xml},
      {"deep binary", deepBinaryList(deep, false)},
      {"circular binary", deepBinaryList(3, true)},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    TempDir dir;
    writeFile(dir / "s.plist", c.contents);
    Recorder recorder;
    UserDefaults defaults(dir / "s.plist", recorder.handler());
    EXPECT_FALSE(defaults.object("k").has_value());
    ASSERT_EQ(recorder.problems.size(), 1u);
    EXPECT_EQ(asideFilesIn(dir.path()).size(), 1u);
  }
  // Nesting a settings file can really have is read as usual.
  TempDir dir;
  writeFile(dir / "s.plist", deepBinaryList(20, false));
  UserDefaults defaults(dir / "s.plist");
  EXPECT_EQ(defaults.object("k"), UserDefaults::Value(UserDefaults::OtherValue{}));
  defaults.setBool("b", true);
  EXPECT_EQ(defaults.object("k"), UserDefaults::Value(UserDefaults::OtherValue{}));
  EXPECT_TRUE(asideFilesIn(dir.path()).empty());
}

TEST(UserDefaults, AWriteToACorruptFileMovesItAsideBeforeWriting) {
  TempDir dir;
  auto store = dir / "s.plist";
  writeFile(store, "<plist><dict><key>half");
  Recorder recorder;
  UserDefaults defaults(store, recorder.handler());
  defaults.setBool("fresh", true);
  ASSERT_EQ(recorder.problems.size(), 1u);
  auto aside = asideFilesIn(dir.path());
  ASSERT_EQ(aside.size(), 1u);
  EXPECT_EQ(readFile(dir / aside[0]), "<plist><dict><key>half");
  EXPECT_EQ(defaults.keys(), std::vector<std::string>{"fresh"});

  // A second bad file within the same second gets a name of its own.
  writeFile(store, "junk");
  EXPECT_FALSE(defaults.object("fresh").has_value());
  aside = asideFilesIn(dir.path());
  ASSERT_EQ(aside.size(), 2u);
  EXPECT_EQ(recorder.problems.size(), 2u);
}

TEST(UserDefaults, SomethingOtherThanAFileInPlaceOfTheStoreIsMovedAside) {
  TempDir dir;
  auto store = dir / "s.plist";
  fs::create_directories(store / "inside");
  Recorder recorder;
  UserDefaults defaults(store, recorder.handler());
  EXPECT_FALSE(defaults.object("k").has_value());
  ASSERT_EQ(recorder.problems.size(), 1u);
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

  UserDefaults defaults(store);
  EXPECT_EQ(defaults.object("k"), Value(int64_t{1}));
  defaults.setInteger("k", 2);
  EXPECT_TRUE(fs::is_symlink(store));
  EXPECT_EQ(UserDefaults(real).object("k"), Value(int64_t{2}));
  struct stat status {};
  ASSERT_EQ(::stat(real.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0644u);
}

TEST(UserDefaults, AStoreThatCannotBeWrittenThrowsAndKeepsItsFile) {
  TempDir dir;
  writeFile(dir / "blocker", "a file where a folder should be");
  UserDefaults defaults(dir / "blocker/tidewell/s.plist");
  EXPECT_THROW(defaults.setBool("k", true), Error);
  EXPECT_FALSE(defaults.object("k").has_value());
  EXPECT_EQ(readFile(dir / "blocker"), "a file where a folder should be");
}

TEST(UserDefaults, NothingIsWrittenWhenTheChangeThrows) {
  TempDir dir;
  UserDefaults defaults(dir / "s.plist");
  defaults.setInteger("k", 1);
  EXPECT_THROW(defaults.update([](UserDefaults::Editor& editor) {
    editor.setInteger("k", 2);
    throw Error("changed my mind");
  }),
               Error);
  EXPECT_EQ(defaults.object("k"), Value(int64_t{1}));
  EXPECT_EQ(namesIn(dir.path()), (std::vector<std::string>{"s.plist", "s.plist.lock"}));
}

}  // namespace
}  // namespace tw
