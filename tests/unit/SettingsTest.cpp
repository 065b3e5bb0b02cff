// Property lists, the settings store built on them (shared with other tools), the preferences kept in it, folder
// bookmarks and the logger.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <functional>
#include <sstream>
#include <thread>

#include "app/Logger.h"
#include "app/Preferences.h"
#include "platform/Bookmark.h"
#include "platform/Error.h"
#include "platform/Host.h"
#include "platform/PropertyList.h"
#include "platform/UserDefaults.h"
#include "support/HostilePropertyLists.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using Period = Preferences::Period;
using Reason = PropertyListError::Reason;
using Strings = std::vector<std::string>;
using Value = UserDefaults::Value;
using test::readFile, test::writeFile, test::deepBinaryList, test::deepXmlList, test::repeat, test::xmlList;
using ::testing::_, ::testing::AllOf, ::testing::ElementsAre, ::testing::HasSubstr, ::testing::StartsWith,
    ::testing::StrEq, ::testing::ThrowsMessage;
using namespace std::literals;
using Level = Logger::Level;

// Closings hidden from a naive scan, then openings: each round 200 levels deeper to the parser.
std::string hiding(const std::string& before, const std::string& after) {
  return xmlList(repeat(before + repeat("</array>", 200) + after + repeat("<array>", 200), 3));
}

// The reason `read` is refused for, whose message names `file`.
template <class Read>
std::optional<Reason> failureOf(Read read, const fs::path& file = {}) {
  try {
    read();
  } catch (const PropertyListError& error) {
    EXPECT_THAT(error.what(), HasSubstr(file.string()));
    return error.reason();
  }
  return std::nullopt;
}

TEST(PropertyList, NestingSizeAndKindAreCheckedBeforeTheParserRuns) {
  const uint32_t limit = PropertyList::kDeepestNesting;  // counting the root dictionary as the first level
  const std::tuple<const char*, std::string, std::optional<Reason>> cases[] = {
      {"XML at the limit with empty ones", xmlList(repeat("<array/><dict/>", 300), limit - 1), std::nullopt},
      {"XML one past the limit", xmlList("", limit), Reason::tooDeep},
      {"binary at the limit", deepBinaryList(limit - 1), std::nullopt},
      {"binary one past the limit", deepBinaryList(limit), Reason::tooDeep},
      {"binary that contains itself", deepBinaryList(3, true), Reason::tooDeep},
      // Shared arrays are copied per reference: 10^4 values are fine, 10^9 would never finish.
      {"binary repeating into ten thousand values", test::repeatingBinaryList(10, 4), std::nullopt},
      {"binary repeating into a billion values", test::repeatingBinaryList(10, 9), Reason::tooDeep},
      {"closings hidden in a DOCTYPE subset", hiding("<!DOCTYPE x [", "]>"), Reason::tooDeep},
      {"closings hidden in a quoted attribute", hiding("<string a=\"", "\">s</string>"), Reason::tooDeep},
      {"closings hidden in a comment", hiding("<!--", "-->"), Reason::tooDeep},
      {"closings hidden in CDATA", hiding("<string><![CDATA[", "]]></string>"), Reason::tooDeep},
      {"an unknown declaration", xmlList("<!ELEMENT x ANY>"), Reason::tooDeep},
      {"an unterminated processing instruction", xmlList("<?"), Reason::malformed},
      // libplist would accept these, then stop the program when the text is read.
      {"a NUL byte in XML", xmlList(std::string("<string>a\0b</string>", 20)), Reason::malformed},
      {"a NUL in a binary key", test::binaryList({"\xD1\x01\x02", "\x53\x61\0b"s, "\x51v"}, 1), Reason::malformed},
      {"empty", "", Reason::empty},
  };
  for (const auto& [name, bytes, failure] : cases)
    EXPECT_EQ(failureOf([&] { PropertyList::parse(bytes); }), failure) << name;
  test::TempDir dir;
  const fs::path huge = dir / "huge" / "Info.plist";
  test::writeSparseFile(huge, uint64_t{3} << 30);  // refused from its size alone, without reading it
  writeFile(dir / "array.plist", "<plist><array/></plist>");
  ASSERT_EQ(::mkfifo((dir / "fifo.plist").c_str(), 0600), 0);  // opening it must not hang
  const std::string backupSized(PropertyList::largestFile(PropertyList::Kind::metadata) + 1, ' ');
  writeFile(dir / "backup.plist", xmlList("<string>v</string>") + backupSized);

  const std::tuple<fs::path, PropertyList::Kind, std::optional<Reason>> files[] = {
      {huge, PropertyList::Kind::deviceBackup, Reason::tooLarge},
      {dir / "backup.plist", PropertyList::Kind::metadata, Reason::tooLarge},
      {dir / "backup.plist", PropertyList::Kind::deviceBackup, std::nullopt},
      {dir / "missing.plist", PropertyList::Kind::metadata, Reason::missing},
      {dir / "fifo.plist", PropertyList::Kind::metadata, Reason::notAFile},
      {dir / "array.plist", PropertyList::Kind::metadata, Reason::notADictionary}};
  for (const auto& [file, kind, failure] : files)
    EXPECT_EQ(failureOf([&] { PropertyList::readDictionary(file, kind); }, file), failure) << file;
}

// The sorted names in `folder` that contain `part`.
Strings namesIn(const fs::path& folder, std::string_view part = "") {
  Strings names;
  for (const auto& entry : fs::directory_iterator(folder))
    if (auto name = entry.path().filename().string(); name.find(part) != std::string::npos) names.push_back(name);
  std::sort(names.begin(), names.end());
  return names;
}

Strings asideFilesIn(const fs::path& folder) { return namesIn(folder, ".plist.corrupt-"); }

struct RecordingObserver : PreferencesObserver {
  void preferenceDidChange(const std::string& key) override {
    keys.push_back(key);
    if (onChange) onChange();
  }
  Strings keys;
  std::function<void()> onChange;
};

struct Settings : ::testing::Test {
  // The store as another tool writes it: the given keys and values in an XML dictionary.
  void writeSettings(const std::string& entries) { writeFile(store, xmlList("<true/>" + entries)); }
  test::TempDir dir;
  fs::path store = dir / "s.plist";
  Preferences preferences{store};
  UserDefaults raw{store};
};

TEST_F(Settings, EveryValueIsStoredAsOtherToolsReadItAndTheirOwnValuesAreKept) {
  ScopedHost scoped(Host{.bundle = "/Applications/Tidewell.app"});
  EXPECT_EQ(preferences.appFolder(), "/Applications/Tidewell.app");
  EXPECT_FALSE(fs::exists(store));  // reading never creates the file

  // Bookmark keys: the prefix and the upper-case SHA-256 of the path (from `printf %s <path> | sha256sum`).
  EXPECT_EQ(Preferences::bookmarkKey("/tmp"),
            "TWFolderBookmark_E9671ACD244849C57167C658FA2F969752048F7AB184A3DCF5C46CB4D56AE124");
  EXPECT_EQ(Preferences::bookmarkKey("/tmp/"), Preferences::bookmarkKey("/tmp"));
  // Another tool's binary list {total: 7, ratio: 2.5, list: ["kept"]}, which no setting reads.
  writeFile(store, test::binaryList({"\xD3\x01\x02\x03\x04\x05\x06", "\x55total", "\x55ratio", "\x54list", "\x10\x07",
                                     "\x23\x40\x04\0\0\0\0\0\0"s, "\xA1\x07", "\x54kept"},
                                    1));
  const UserDefaults::Data blob{0x00, 0xFF, 0x10, 0x00, 0x7F};
  const std::string text = "Dérivées <&> ☃ \"quoted\"", relative = (fs::current_path() / "Archives").string();
  // Each setting as other readers of the file expect it, then values of every kind.
  const std::tuple<std::function<void()>, const char*, Value> values[] = {
      {[&] { preferences.setNotificationsEnabled(false); }, "TWNotificationsEnabledKey", false},
      {[&] { preferences.setNotificationsPeriod(Period::every2Months); }, "TWNotificationsPeriodKey", 3L},
      {[&] { preferences.setDryRunEnabled(true); }, "TWDryRunEnabledKey", true},
      {[&] { preferences.setTotalBytesCleaned(5'000'000'000'000); }, "TWTotalBytesCleaned", 5'000'000'000'000L},
      {[&] { preferences.setCustomArchivesFolder("/Volumes/A"); }, "TWCustomArchivesFolderKey", "/Volumes/A"s},
      {[&] { preferences.setCustomDerivedDataFolder("/Volumes/D"); }, "TWCustomDerivedDataFolderKey", "/Volumes/D"s},
      {[&] { preferences.setAppFolder("/Apps/T.app"); }, "TWAppFolder", "/Apps/T.app"s},
      {[&] { raw.setBool("flag", false); }, "flag", false},
      {[&] { raw.setInteger("huge", INT64_MAX); }, "huge", INT64_MAX},
      {[&] { raw.setInteger("smallest", INT64_MIN); }, "smallest", INT64_MIN},
      {[&] { raw.setString("text", text); }, "text", text},
      {[&] { raw.setData("blob", blob); }, "blob", blob},
      {[&] { raw.setURL("folder", fs::path("/Users/ann/Xcode Stuff/")); }, "folder", "/Users/ann/Xcode Stuff"s},
      {[&] { raw.setURL("relative", fs::path("Archives")); }, "relative", relative},
      {[&] { raw.setURL("root", fs::path("//")); }, "root", "/"s},  // the root keeps its one separator
      {[] {}, "total", 7L},
      {[] {}, "ratio", 2.5}};
  for (const auto& [set, key, value] : values) set();
  UserDefaults reader(store);  // a second handle reads the file, not a copy in memory
  for (const auto& [set, key, value] : values) EXPECT_EQ(reader.object(key), value) << key;
  EXPECT_EQ(reader.object("list"), Value(UserDefaults::OtherValue{}));
  reader.removeObject("text");
  reader.setURL("folder", std::nullopt);
  reader.setURL("relative", fs::path());
  EXPECT_EQ(raw.keys(),
            (Strings{"TWAppFolder", "TWCustomArchivesFolderKey", "TWCustomDerivedDataFolderKey", "TWDryRunEnabledKey",
                     "TWNotificationsEnabledKey", "TWNotificationsPeriodKey", "TWTotalBytesCleaned", "blob", "flag",
                     "huge", "list", "ratio", "root", "smallest", "total"}));
  EXPECT_THAT(readFile(store), HasSubstr("<string>kept</string>"));
  EXPECT_EQ(namesIn(dir.path()), (Strings{"s.plist", "s.plist.lock"}));  // no temporary file is left behind
}

TEST_F(Settings, UnusableStoresAreMovedAsideOnceWithoutCrashingAndALinkStaysALink) {
  const std::vector<std::pair<const char*, std::string>> cases = {
      {"garbage", std::string("\x01\x00not a property list\xff\xfe", 23)},  // with a NUL byte
      {"truncated binary", test::binaryList({"\xD1\x01\x02", "\x51k", "\x55value"}, 1).substr(0, 27)},
      {"root is an array", "<?xml version=\"1.0\"?><plist version=\"1.0\"><array><string>x</string></array></plist>"},
      {"empty", ""},
      {"deep XML", deepXmlList(200'000)},
      {"deep binary", deepBinaryList(200'000, false)}};
  for (size_t i = 0; const auto& [name, contents] : cases) {
    SCOPED_TRACE(name);
    test::TempDir folder;
    auto file = folder / "s.plist";
    writeFile(file, contents);
    std::vector<UserDefaults::Problem> problems;
    UserDefaults defaults(file, [&](const UserDefaults::Problem& problem) { problems.push_back(problem); });
    const bool writeFirst = i++ % 2;  // a write moves the file aside before writing, as a read does
    if (writeFirst) defaults.setInteger("k", 5);
    EXPECT_EQ(defaults.object("k"), writeFirst ? std::optional(Value(int64_t{5})) : std::nullopt);
    ASSERT_EQ(problems.size(), 1u);
    EXPECT_EQ(problems[0].kind, UserDefaults::Problem::Kind::setAside);
    auto aside = asideFilesIn(folder.path());
    ASSERT_THAT(aside, ElementsAre(testing::MatchesRegex("s\\.plist\\.corrupt-[0-9]{8}T[0-9]{6}Z")));
    EXPECT_EQ(readFile(folder / aside[0]), contents);  // the user's bytes are kept as they were
    EXPECT_THAT(problems[0].message, AllOf(HasSubstr(file.string()), HasSubstr(aside[0])));
    defaults.setInteger("k", 6);
    EXPECT_EQ(problems.size(), 1u);
    writeFile(file, contents);  // a second bad file within the same second gets a name of its own
    EXPECT_FALSE(defaults.object("k").has_value());
    EXPECT_EQ(asideFilesIn(folder.path()).size(), 2u);
  }
  fs::create_directories(store / "inside");  // a folder in its place is moved aside too
  EXPECT_FALSE(raw.object("k").has_value());
  ASSERT_EQ(asideFilesIn(dir.path()).size(), 1u);
  EXPECT_TRUE(fs::is_directory(dir / asideFilesIn(dir.path())[0] / "inside"));
  ASSERT_EQ(::mkfifo(store.c_str(), 0600), 0);  // opening must not hang
  EXPECT_FALSE(raw.object("k").has_value());
  EXPECT_EQ(asideFilesIn(dir.path()).size(), 2u);
  // A link stays a link, to a file whose permissions are kept.
  auto real = dir / "dotfiles/tidewell.plist";
  UserDefaults(real).setInteger("k", 1);
  ::chmod(real.c_str(), 0644);
  fs::create_symlink(real, store);
  UserDefaults(store).setInteger("k", 2);
  EXPECT_TRUE(fs::is_symlink(store));
  EXPECT_EQ(UserDefaults(real).object("k"), Value(int64_t{2}));
  EXPECT_EQ(fs::status(real).permissions(), fs::perms(0644));
}

TEST_F(Settings, FailedWritesLeaveEverythingAsItWasAndKilledWritersNoTemporaryFiles) {
  // Preferences log it, tell the caller who shows it, and still notify.
  writeFile(dir / "blocker", "a file where a folder should be");
  Preferences failing(dir / "blocker/tidewell/s.plist");
  auto observer = std::make_shared<RecordingObserver>();
  failing.addObserver(observer);
  test::LogCapture log;
  failing.setDryRunEnabled(true);
  auto failed = failing.addToTotalBytesCleaned(5);
  EXPECT_EQ(failed.total, 0);
  EXPECT_THAT(failed.saveFailure.value_or(""), HasSubstr("blocker"));
  EXPECT_FALSE(failing.dryRunEnabled());
  EXPECT_EQ(observer->keys, (Strings{"TWDryRunEnabledKey", "TWTotalBytesCleaned"}));
  EXPECT_THAT(log.lines(), ElementsAre(StartsWith("\u274C Preferences: Cannot save TWDryRunEnabledKey: "), _));
  EXPECT_EQ(readFile(dir / "blocker"), "a file where a folder should be");

  raw.setInteger("k", 1);
  const auto changeMind = [](auto& editor) { editor.setInteger("k", 2), throw Error("changed my mind"); };
  EXPECT_THROW(raw.update(changeMind), Error);
  EXPECT_EQ(raw.object("k"), Value(int64_t{1}));
  EXPECT_EQ(namesIn(dir.path(), "s.plist"), (Strings{"s.plist", "s.plist.lock"}));
  // Writers killed at random moments, some of them between creating and renaming their file.
  for (int round = 0; round < 40; ++round) {
    pid_t child = ::fork();
    if (child == 0)
      for (int64_t n = 1;; ++n) UserDefaults(store).setInteger("k", n);
    ::usleep(static_cast<useconds_t>(2000 + (round * 7919) % 20000));
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
  }
  // One abandoned for certain; one a writer still holds; other names that are not this store's.
  for (const char* name : {".s.plist.tmp-Ab3xQz", ".s.plist.tmp-inUse1", ".other.plist.tmp-Ab3xQz",
                           ".s.plist.tmp-toolong", "s.plist.tmp-Ab3xQz"})
    writeFile(dir / name, "partly written");
  int live = ::open((dir / ".s.plist.tmp-inUse1").c_str(), O_RDONLY);
  ASSERT_EQ(::flock(live, LOCK_EX), 0);
  fs::create_directory(dir / ".s.plist.tmp-folder");
  fs::create_symlink(dir / "s.plist", dir / ".s.plist.tmp-linked");

  raw.setInteger("k", -1);
  EXPECT_EQ(raw.object("k"), Value(int64_t{-1}));
  EXPECT_EQ(namesIn(dir.path(), ".tmp-"),
            (Strings{".other.plist.tmp-Ab3xQz", ".s.plist.tmp-folder", ".s.plist.tmp-inUse1", ".s.plist.tmp-linked",
                     ".s.plist.tmp-toolong", "s.plist.tmp-Ab3xQz"}));
  ::close(live);
}

TEST_F(Settings, ForeignValuesReadAsTheyMeanGarbageIsSetAsideAndTheTotalNeverWraps) {
  // As `defaults write` and hand edits store them: numbers (text or real) are on unless 0, wrong kinds are defaults.
  const std::tuple<std::string, std::string, bool, bool> cases[] = {
      {"<string>YES</string>", "<string> no </string>", true, false},
      {"<string>maybe</string>", "<data>AA==</data>", false, true},
      {"<string> 2</string>", "<string>0</string>", true, false},
      {"<real>0.5</real>", "<real>0.0</real>", true, false}};
  for (const auto& [dry, notifications, dryOn, notificationsOn] : cases) {
    writeSettings("<key>TWDryRunEnabledKey</key>" + dry + "<key>TWNotificationsEnabledKey</key>" + notifications);
    EXPECT_EQ(preferences.dryRunEnabled(), dryOn) << dry;
    EXPECT_EQ(preferences.notificationsEnabled(), notificationsOn) << notifications;
  }
  writeSettings("<key>TWNotificationsPeriodKey</key><string>1</string>");
  EXPECT_EQ(preferences.notificationsPeriod(), Period::every2weeks);
  writeSettings(
      "<key>TWNotificationsPeriodKey</key><integer>7</integer><key>TWTotalBytesCleaned</key><string>12345</string>"
      "<key>TWCustomArchivesFolderKey</key><true/><key>TWFolderBookmark_Y</key><string>not data</string>");
  EXPECT_EQ(preferences.notificationsPeriod(), Period::everyMonth);
  EXPECT_EQ(preferences.totalBytesCleaned(), 0);
  EXPECT_FALSE(preferences.customArchivesFolder().has_value());
  EXPECT_FALSE(preferences.data("TWFolderBookmark_Y").has_value());
  writeFile(store, std::string("\x00\x01 definitely not a plist", 25));  // set aside with one warning
  test::LogCapture log;
  EXPECT_TRUE(preferences.notificationsEnabled());
  // A total beyond 64 bits stays at the largest and never reads negative.
  preferences.setTotalBytesCleaned(INT64_MAX);
  auto update = preferences.addToTotalBytesCleaned(1);
  EXPECT_TRUE(update.saturated && update.total == INT64_MAX);
  EXPECT_THAT(log.lines(),
              ElementsAre(StartsWith("\u26A0\uFE0F Preferences: "),
                          StartsWith("\u26A0\uFE0F Preferences: The lifetime total of bytes cleaned cannot grow")));
  // Written as unsigned numbers by another tool: -1 and 2^64 - 1 share their bits.
  const std::pair<std::string, int64_t> numbers[] = {
      {"18446744073709551615", INT64_MAX}, {"9223372036854775808", INT64_MAX}, {"-1", -1}, {"0", 0}};
  for (const auto& [stored, expected] : numbers) {
    const std::string number = "<integer>" + stored + "</integer>";
    writeSettings("<key>TWTotalBytesCleaned</key>" + number + "<key>TWDryRunEnabledKey</key>" + number);
    EXPECT_EQ(preferences.dryRunEnabled(), expected != 0) << stored;
    EXPECT_EQ(preferences.totalBytesCleaned(), expected) << stored;
  }
}

TEST_F(Settings, ObserversAreNotifiedInOrderOnceEachAndMayChangeTheListMeanwhileFromAnyThread) {
  Strings journal;
  auto first = std::make_shared<RecordingObserver>(), second = std::make_shared<RecordingObserver>(),
       doomed = std::make_shared<RecordingObserver>();
  first->onChange = [&] { journal.push_back("first"); };
  second->onChange = [&] { journal.push_back("second"); };
  for (const auto& observer : {first, doomed, second, first}) preferences.addObserver(observer);  // first once
  doomed.reset();  // a gone observer is skipped

  preferences.setDryRunEnabled(true);
  preferences.setDryRunEnabled(true);  // unchanged, still a write
  EXPECT_EQ(journal, (Strings{"first", "second", "first", "second"}));
  preferences.addToTotalBytesCleaned(2);
  preferences.setCustomDerivedDataFolder(std::nullopt);
  preferences.removeObject("TWFolderBookmark_Z");
  EXPECT_EQ(first->keys, (Strings{"TWDryRunEnabledKey", "TWDryRunEnabledKey", "TWTotalBytesCleaned",
                                  "TWCustomDerivedDataFolderKey", "TWFolderBookmark_Z"}));

  preferences.removeObserver(first);
  preferences.removeObserver(nullptr);  // a destroyed observer's own unregistration: its reference reads empty
  EXPECT_EQ(preferences.observers(), std::vector{Weak<PreferencesObserver>(second)});
  auto leaving = std::make_shared<RecordingObserver>();
  leaving->onChange = [&] { preferences.removeObserver(leaving); };
  preferences.addObserver(leaving);
  for (int i = 0; i < 2; ++i) preferences.notifyObservers("k");
  EXPECT_EQ(leaving->keys.size(), 1u);
  auto steady = std::make_shared<RecordingObserver>(), transient = std::make_shared<RecordingObserver>();
  preferences.addObserver(steady);
  std::thread notifier([&] {  // notifies while this thread adds and removes an observer
    for (int i = 0; i < 2000; ++i) preferences.notifyObservers("k");
  });
  for (int i = 0; i < 2000; ++i) preferences.addObserver(transient), preferences.removeObserver(transient);
  notifier.join();
  EXPECT_EQ(steady->keys.size(), 2000u);
  EXPECT_EQ(preferences.observers().size(), 2u);  // second and steady
}

// Each write syncs file and folder, so the store is on a memory file system where there is one.
TEST(PreferencesConcurrency, ProcessesAndThreadsAddingAtTheSameMomentNeverLoseBytes) {
  test::TempDir fallback;
  std::string pattern = "/dev/shm/tidewell-test-XXXXXX";
  const fs::path folder = ::mkdtemp(pattern.data()) ? fs::path(pattern) : fallback.path();
  const auto store = folder / "tidewell/test.plist";
  Preferences preferences(store);
  constexpr int kProcesses = 16, kAdditions = 500;
  preferences.setTotalBytesCleaned(1'000'000);
  preferences.setDryRunEnabled(true);
  int gate[2];  // all children wait at the gate so that they really run at the same time
  ASSERT_EQ(::pipe(gate), 0);
  std::vector<pid_t> children;
  for (int amount = 1; amount <= kProcesses; ++amount) {  // a different amount per process
    if (children.emplace_back(::fork()) != 0) continue;
    ::close(gate[1]);
    for (char byte; ::read(gate[0], &byte, 1) < 0;) continue;
    Preferences mine(store);
    for (int64_t n = 0, previous = -1, total; n < kAdditions; ++n, previous = total)
      if ((total = mine.addToTotalBytesCleaned(amount).total) <= previous) ::_exit(1);  // a lost or repeated update
    if (amount == 1) mine.setCustomDerivedDataFolder(fs::path("/Volumes/Work/DD"));
    ::_exit(0);
  }
  for (int end : gate) ::close(end);  // opens the gate
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([&] {
      for (int n = 0; n < 100; ++n) Preferences(store).addToTotalBytesCleaned(1000);
    });
  for (int n = 0; n < 50; ++n) preferences.setNotificationsPeriod(n % 2 ? Period::everyWeek : Period::every2Months);
  for (auto& thread : threads) thread.join();
  for (int status = 0; pid_t child : children)
    EXPECT_TRUE(child > 0 && ::waitpid(child, &status, 0) == child && WIFEXITED(status) && !WEXITSTATUS(status));
  // 1 + 2 + ... + 16 = 136 bytes per round from the processes, 4 * 100 * 1000 from the threads.
  EXPECT_EQ(preferences.totalBytesCleaned(), 1'000'000 + 136 * kAdditions + 400'000);
  EXPECT_TRUE(preferences.dryRunEnabled());
  EXPECT_EQ(preferences.notificationsPeriod(), Period::everyWeek);
  EXPECT_EQ(preferences.customDerivedDataFolder(), fs::path("/Volumes/Work/DD"));
  if (folder != fallback.path()) fs::remove_all(folder);
}

// A logger writing to a file in `folder` and not to the console.
std::unique_ptr<Logger> fileLogger(const fs::path& folder, Level level = Level::info) {
  auto logger = std::make_unique<Logger>("MainLog", level, Logger::FileLogging::on, folder, "dev.tidewell.Tidewell");
  logger->setConsoleLogging(false);
  return logger;
}

TEST(Logger, KeepsLatestAndPreviousLogInAPrivateFolderAndWritesWhatItsLevelPassesAsGiven) {
  test::TempDir dir;
  const auto latest = dir / "state/tidewell/dev.tidewell.Tidewell-MainLog-LogFile-latest.log";
  const auto previous = dir / "state/tidewell/dev.tidewell.Tidewell-MainLog-LogFile-previous.log";
  std::optional<std::string> before;  // what the run before wrote
  for (const std::string run : {"first 100%", "second %s %n", "third {}"}) {
    std::string seen;  // the lines the observer saw
    auto logger = fileLogger(dir / "state/tidewell", Level::warning);
    logger->setLineObserver([&](Level, const std::string& line) { seen += line + "\n"; });
    EXPECT_EQ(before ? readFile(previous) : "", before.value_or(""));
    logger->info("dropped");
    logger->warning(run);
    logger->error("kept");
    EXPECT_EQ(seen, "\u26A0\uFE0F " + run + "\n\u274C kept\n");
    before = seen;
  }
  EXPECT_EQ(readFile(latest), before);
  // Without a folder, no file.
  test::writeFile(dir / "file", "not a folder");
  EXPECT_FALSE(fileLogger(dir / "file/tidewell")->isLoggingToFile());
}

TEST(Logger, ConcurrentLinesStayWhole) {
  test::TempDir dir;
  auto logger = fileLogger(dir.path());
  const std::string payload(300, 'p');
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t)
    threads.emplace_back([&, t] {
      for (int i = 0; i < 200; ++i) logger->info("thread " + std::to_string(t) + " " + payload);
    });
  for (auto& thread : threads) thread.join();
  std::istringstream contents(readFile(*logger->logFilePath()));
  size_t lines = 0;
  for (std::string line; std::getline(contents, line); ++lines)
    EXPECT_TRUE(line.rfind("\u2755 thread ", 0) == 0 && line.ends_with(" " + payload)) << line;
  EXPECT_EQ(lines, 8u * 200u);
}

TEST(Bookmark, ResolvesOnlyIntactBlobsAndIsStaleOnlyWhenThePathNamesAnotherFolder) {
  test::TempDir dir;
  const fs::path folder = dir / std::string("odd \n name \xff");
  fs::create_directories(folder);
  const auto blob = Bookmark::create(folder);
  const auto damagedMessage = ThrowsMessage<Error>(
      StrEq("The bookmark couldn\u2019t be resolved because its data isn\u2019t in the correct format."));
  for (size_t index = 0; index < blob.size(); ++index) {
    auto damaged = blob;
    damaged[index] ^= 0x20;
    EXPECT_THAT([&] { Bookmark::resolve(damaged); }, damagedMessage) << "a flipped byte at " << index;
    damaged.resize(index);
    EXPECT_THAT([&] { Bookmark::resolve(damaged); }, damagedMessage) << "cut short at " << index;
  }
  // Fields changed and the trailing checksum made to match: version, flags, path length, path.
  constexpr size_t kFlags = 8 + 4 + 8 + 8, kLength = kFlags + 1 + 8 + 4;
  for (auto [offset, value] : {std::pair<size_t, uint8_t>{8, 2},
                               {kFlags, 7},
                               {kLength + 3, static_cast<uint8_t>(blob[kLength + 3] ^ 0x40)},
                               {kLength + 4, 'x'}}) {
    auto changed = blob;
    changed[offset] = value;
    ASSERT_TRUE(EVP_Digest(changed.data(), changed.size() - 32, changed.data() + changed.size() - 32, nullptr,
                           EVP_sha256(), nullptr));
    EXPECT_THAT([&] { Bookmark::resolve(changed); },
                ThrowsMessage<Error>(testing::HasSubstr(offset == 8 ? "made by a newer version of Tidewell" : "")))
        << "a changed field at " << offset;
  }

  test::writeFile(folder / "new file", "x");  // the contents changing is not the folder changing
  EXPECT_EQ(Bookmark::resolve(blob).path, folder);
  EXPECT_FALSE(Bookmark::resolve(blob).isStale);
  fs::create_directories(dir / "elsewhere");
  fs::remove_all(folder);
  fs::create_directory_symlink(dir / "elsewhere", folder);  // a link to some other folder in its place
  EXPECT_TRUE(Bookmark::resolve(blob).isStale);
  fs::remove(folder);
  EXPECT_THAT([&] { Bookmark::resolve(blob); },
              ThrowsMessage<FileSystemError>(StrEq("The file \u201C" + folder.filename().string() +
                                                   "\u201D couldn\u2019t be opened because it doesn\u2019t exist.")));
  EXPECT_THROW(Bookmark::create(folder), FileSystemError);
}

}  // namespace
}  // namespace tw
