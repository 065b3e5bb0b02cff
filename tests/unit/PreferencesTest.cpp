#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "app/Preferences.h"
#include "platform/Host.h"
#include "platform/UserDefaults.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using test::TempDir;
using Period = Preferences::Period;
using Keys = Preferences::Keys;
using Value = UserDefaults::Value;

struct RecordingObserver : PreferencesObserver {
  void preferenceDidChange(const std::string& key) override {
    keys.push_back(key);
    if (onChange) onChange();
  }
  std::vector<std::string> keys;
  std::function<void()> onChange;
};

// Each write syncs the file and its folder, which makes thousands of writes take minutes on a
// real disk; the lock under test works the same on a memory file system.
struct ScratchFolder {
  ScratchFolder() {
    std::string pattern = "/dev/shm/tidewell-test-XXXXXX";
    path = ::mkdtemp(pattern.data()) ? fs::path(pattern) : fallback.path();
  }
  ~ScratchFolder() {
    std::error_code error;
    if (path != fallback.path()) fs::remove_all(path, error);
  }
  TempDir fallback;
  fs::path path;
};

// Runs `body` in a child process that exits with the body's result (2 when it throws).
pid_t spawn(const std::function<int()>& body) {
  pid_t child = ::fork();
  if (child == 0) {
    int status = 2;
    try {
      status = body();
    } catch (...) {
    }
    ::_exit(status);
  }
  return child;
}

int waitForExit(pid_t child) {
  int status = 0;
  if (child < 0 || ::waitpid(child, &status, 0) != child || !WIFEXITED(status)) return -1;
  return WEXITSTATUS(status);
}

struct PreferencesTest : ::testing::Test {
  TempDir dir;
  fs::path store = dir / "config/tidewell/test.plist";
  Preferences preferences{store};
  UserDefaults raw{store};
};

TEST_F(PreferencesTest, DefaultsThenWrittenValuesUnderTheirStoredKeys) {
  Host host;
  host.bundle = "/Applications/Tidewell.app";
  ScopedHost scoped(host);
  EXPECT_TRUE(preferences.notificationsEnabled());
  EXPECT_EQ(preferences.notificationsPeriod(), Period::everyMonth);
  EXPECT_FALSE(preferences.dryRunEnabled());
  EXPECT_EQ(preferences.totalBytesCleaned(), 0);
  EXPECT_FALSE(preferences.customArchivesFolder().has_value());
  EXPECT_EQ(preferences.appFolder(), host.bundle);
  EXPECT_FALSE(fs::exists(store));  // reading never creates the file

  preferences.setNotificationsEnabled(false);
  preferences.setNotificationsPeriod(Period::every2Months);
  preferences.setDryRunEnabled(true);
  preferences.setTotalBytesCleaned(5'000'000'000'000);
  preferences.setCustomArchivesFolder(fs::path("/Volumes/Big/Archives"));
  preferences.setCustomDerivedDataFolder(fs::path("/Volumes/Big/DerivedData"));
  preferences.setAppFolder(fs::path("/Apps/T.app"));
  preferences.setData("TWFolderBookmark_X", {1, 0, 2});
  // The stored forms other readers of the file expect.
  EXPECT_EQ(raw.object("TWNotificationsEnabledKey"), Value(false));
  EXPECT_EQ(raw.object("TWNotificationsPeriodKey"), Value(int64_t{3}));
  EXPECT_EQ(raw.object("TWDryRunEnabledKey"), Value(true));
  EXPECT_EQ(raw.object("TWTotalBytesCleaned"), Value(int64_t{5'000'000'000'000}));
  EXPECT_EQ(raw.object("TWCustomArchivesFolderKey"), Value(std::string("/Volumes/Big/Archives")));
  EXPECT_EQ(raw.object("TWCustomDerivedDataFolderKey"), Value(std::string("/Volumes/Big/DerivedData")));
  EXPECT_EQ(raw.object("TWAppFolder"), Value(std::string("/Apps/T.app")));
  EXPECT_FALSE(preferences.notificationsEnabled());  // a stored false, although the default is true
  EXPECT_EQ(preferences.customDerivedDataFolder(), fs::path("/Volumes/Big/DerivedData"));
  EXPECT_EQ(preferences.data("TWFolderBookmark_X"), (std::vector<uint8_t>{1, 0, 2}));

  preferences.setCustomArchivesFolder(std::nullopt);
  EXPECT_FALSE(raw.object("TWCustomArchivesFolderKey").has_value());
}

TEST_F(PreferencesTest, ForeignValuesReadAsTheyMeanAndWrongKindsAsDefaults) {
  // What `defaults write` and hand edits produce.
  raw.setString(Keys::dryRunEnabled, "YES");
  raw.setString(Keys::notificationsEnabled, " no ");
  raw.setString(Keys::notificationsPeriod, "1");
  EXPECT_TRUE(preferences.dryRunEnabled());
  EXPECT_FALSE(preferences.notificationsEnabled());
  EXPECT_EQ(preferences.notificationsPeriod(), Period::every2weeks);

  raw.setInteger(Keys::notificationsPeriod, 7);
  raw.setString(Keys::totalBytesCleaned, "12345");
  raw.setBool(Keys::customArchivesFolder, true);
  raw.setData(Keys::notificationsEnabled, {0});
  raw.setString(Keys::dryRunEnabled, "maybe");
  raw.setString("TWFolderBookmark_Y", "not data");
  EXPECT_EQ(preferences.notificationsPeriod(), Period::everyMonth);
  EXPECT_EQ(preferences.totalBytesCleaned(), 0);
  EXPECT_FALSE(preferences.customArchivesFolder().has_value());
  EXPECT_TRUE(preferences.notificationsEnabled());
  EXPECT_FALSE(preferences.dryRunEnabled());
  EXPECT_FALSE(preferences.data("TWFolderBookmark_Y").has_value());
}

TEST_F(PreferencesTest, ObserversAreNotifiedOfEveryWriteInOrderAndRegisteredOnce) {
  std::vector<std::string> journal;
  auto first = std::make_shared<RecordingObserver>();
  auto second = std::make_shared<RecordingObserver>();
  auto doomed = std::make_shared<RecordingObserver>();
  first->onChange = [&] { journal.push_back("first"); };
  second->onChange = [&] { journal.push_back("second"); };
  preferences.addObserver(first);
  preferences.addObserver(doomed);
  preferences.addObserver(second);
  preferences.addObserver(first);  // already there: still one box
  doomed.reset();                  // a gone observer is skipped; its box stays until a removal
  ASSERT_EQ(preferences.observers().size(), 3u);

  preferences.setDryRunEnabled(true);
  preferences.setDryRunEnabled(true);  // unchanged, still a write
  EXPECT_EQ(journal, (std::vector<std::string>{"first", "second", "first", "second"}));
  preferences.addToTotalBytesCleaned(2);
  preferences.setCustomDerivedDataFolder(std::nullopt);
  preferences.removeObject("TWFolderBookmark_Z");
  EXPECT_EQ(first->keys, (std::vector<std::string>{"TWDryRunEnabledKey", "TWDryRunEnabledKey", "TWTotalBytesCleaned",
                                                   "TWCustomDerivedDataFolderKey", "TWFolderBookmark_Z"}));

  preferences.removeObserver(first);
  ASSERT_EQ(preferences.observers().size(), 2u);
  // What a destroyed observer's own unregistration looks like: its reference already reads empty.
  preferences.removeObserver(nullptr);
  ASSERT_EQ(preferences.observers().size(), 1u);
  EXPECT_EQ(preferences.observers()[0].lock(), second);
  preferences.setDryRunEnabled(false);
  EXPECT_EQ(first->keys.size(), 5u);
  EXPECT_EQ(second->keys.size(), 6u);
}

TEST_F(PreferencesTest, ObserversMayChangeTheListWhileBeingNotifiedAndFromOtherThreads) {
  auto leaving = std::make_shared<RecordingObserver>();
  leaving->onChange = [&] { preferences.removeObserver(leaving); };
  preferences.addObserver(leaving);
  preferences.notifyObservers("k");
  preferences.notifyObservers("k");
  EXPECT_EQ(leaving->keys.size(), 1u);

  // One thread keeps notifying while another adds and removes observers.
  auto steady = std::make_shared<RecordingObserver>();
  preferences.addObserver(steady);
  std::thread notifier([&] {
    for (int i = 0; i < 2000; ++i) preferences.notifyObservers("k");
  });
  for (int i = 0; i < 2000; ++i) {
    auto transient = std::make_shared<RecordingObserver>();
    preferences.addObserver(transient);
    preferences.removeObserver(transient);
  }
  notifier.join();
  EXPECT_EQ(steady->keys.size(), 2000u);
  EXPECT_EQ(preferences.observers().size(), 1u);
}

TEST(PreferencesBookmarkKey, IsThePrefixAndTheUpperCaseSha256OfThePath) {
  // Digests from `printf %s <path> | sha256sum`.
  EXPECT_EQ(Preferences::bookmarkKey("/tmp"),
            "TWFolderBookmark_E9671ACD244849C57167C658FA2F969752048F7AB184A3DCF5C46CB4D56AE124");
  EXPECT_EQ(Preferences::bookmarkKey("/tmp/Dévéloper ☃"),
            "TWFolderBookmark_A55C5A774640CC7B36C87487FC981943AA4C14388ACDC932BEABC2EF6EC9C92F");
  EXPECT_EQ(Preferences::bookmarkKey("/tmp/"), Preferences::bookmarkKey("/tmp"));
}

TEST_F(PreferencesTest, ACorruptFileIsSetAsideLoggedOnceAndTheNextWriteSucceeds) {
  test::writeFile(store, std::string("\x00\x01 definitely not a plist", 25));
  test::LogCapture log;
  EXPECT_TRUE(preferences.notificationsEnabled());
  EXPECT_EQ(preferences.totalBytesCleaned(), 0);
  auto lines = log.lines();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].rfind("\u26A0\uFE0F Preferences: ", 0), 0u) << lines[0];
  EXPECT_FALSE(fs::exists(store));  // set aside, as the store's own tests check in detail

  EXPECT_EQ(preferences.addToTotalBytesCleaned(10).total, 10);
  EXPECT_EQ(preferences.totalBytesCleaned(), 10);
  EXPECT_EQ(log.lines().size(), 1u);
}

TEST_F(PreferencesTest, AFailedWriteIsLoggedAndStillNotifies) {
  test::writeFile(dir / "blocked", "a file, not a folder");
  Preferences blocked(dir / "blocked/tidewell/test.plist");
  auto observer = std::make_shared<RecordingObserver>();
  blocked.addObserver(observer);
  test::LogCapture log;
  blocked.setDryRunEnabled(true);
  auto failed = blocked.addToTotalBytesCleaned(5);
  EXPECT_EQ(failed.total, 0);
  ASSERT_TRUE(failed.saveFailure.has_value());  // for the caller to show, not only the log
  EXPECT_NE(failed.saveFailure->find("blocked"), std::string::npos) << *failed.saveFailure;
  EXPECT_FALSE(blocked.dryRunEnabled());
  EXPECT_EQ(observer->keys, (std::vector<std::string>{"TWDryRunEnabledKey", "TWTotalBytesCleaned"}));
  auto lines = log.lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].rfind("\u274C Preferences: Cannot save TWDryRunEnabledKey: ", 0), 0u) << lines[0];
}

TEST(PreferencesShared, KeepsItsStoreInTheCurrentHostsConfigFolder) {
  TempDir dir;
  Host host;
  host.configDirectory = dir / "xdg";
  ScopedHost scoped(host);
  auto& shared = Preferences::shared();
  EXPECT_EQ(shared.storePath(), dir / "xdg/tidewell/dev.tidewell.Tidewell.plist");
  shared.setAppFolder(dir / "Tidewell.app");
  EXPECT_EQ(UserDefaults(shared.storePath()).object(Keys::appFolder), Value((dir / "Tidewell.app").string()));
}

TEST_F(PreferencesTest, AnotherProcessReadsWhatThisOneWrote) {
  preferences.setTotalBytesCleaned(1234);
  pid_t child = spawn([&] {
    Preferences mine(store);
    mine.setCustomDerivedDataFolder(fs::path("/Volumes/Work/DD"));
    return mine.totalBytesCleaned() == 1234 ? 0 : 1;
  });
  EXPECT_EQ(waitForExit(child), 0);
  EXPECT_EQ(preferences.customDerivedDataFolder(), fs::path("/Volumes/Work/DD"));
  EXPECT_EQ(preferences.totalBytesCleaned(), 1234);
}

TEST(PreferencesConcurrency, ProcessesAddingAtTheSameMomentNeverLoseBytes) {
  ScratchFolder scratch;
  auto store = scratch.path / "tidewell/test.plist";
  Preferences preferences(store);
  constexpr int kProcesses = 16;
  constexpr int kAdditions = 500;
  preferences.setTotalBytesCleaned(1'000'000);
  preferences.setDryRunEnabled(true);

  // All children wait at the gate so that they really run at the same time.
  int gate[2];
  ASSERT_EQ(::pipe(gate), 0);
  std::vector<pid_t> children;
  for (int i = 0; i < kProcesses; ++i) {
    children.push_back(spawn([&, i] {
      ::close(gate[1]);
      char byte;
      while (::read(gate[0], &byte, 1) < 0) {
      }
      Preferences mine(store);
      int64_t previous = -1;
      for (int n = 0; n < kAdditions; ++n) {
        int64_t total = mine.addToTotalBytesCleaned(i + 1).total;  // a different amount per process
        if (total <= previous) return 1;                           // a lost or repeated update
        previous = total;
      }
      return 0;
    }));
  }
  ::close(gate[0]);
  ::close(gate[1]);  // opens the gate

  // Meanwhile this process keeps changing another setting through the same lock.
  for (int n = 0; n < 50; ++n) preferences.setNotificationsPeriod(n % 2 ? Period::everyWeek : Period::every2Months);
  for (pid_t child : children) EXPECT_EQ(waitForExit(child), 0);
  // 1 + 2 + ... + 16 = 136 bytes per round.
  EXPECT_EQ(preferences.totalBytesCleaned(), 1'000'000 + 136 * kAdditions);
  EXPECT_TRUE(preferences.dryRunEnabled());
  EXPECT_EQ(preferences.notificationsPeriod(), Period::everyWeek);
}

TEST(PreferencesConcurrency, ThreadsAddingAtTheSameMomentNeverLoseBytes) {
  ScratchFolder scratch;
  auto store = scratch.path / "tidewell/test.plist";
  Preferences preferences(store);
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      Preferences mine(store);
      for (int n = 0; n < 100; ++n) mine.addToTotalBytesCleaned(3);
    });
  }
  for (int n = 0; n < 100; ++n) preferences.addToTotalBytesCleaned(1);
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(preferences.totalBytesCleaned(), 4 * 100 * 3 + 100);
}

TEST_F(PreferencesTest, ATotalBeyondSixtyFourBitsStaysAtTheLargestAndNeverReadsNegative) {
  preferences.setTotalBytesCleaned(INT64_MAX - 5);
  EXPECT_EQ(preferences.addToTotalBytesCleaned(5).total, INT64_MAX);
  test::LogCapture log;
  auto update = preferences.addToTotalBytesCleaned(1);
  EXPECT_TRUE(update.saturated);
  EXPECT_EQ(update.total, INT64_MAX);
  EXPECT_EQ(preferences.totalBytesCleaned(), INT64_MAX);
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_EQ(log.lines()[0].rfind("\u26A0\uFE0F Preferences: The lifetime total of bytes cleaned cannot grow", 0), 0u);

  // Written as unsigned numbers by another tool: -1 and 2^64 - 1 share their bits.
  for (const auto& [stored, expected] : std::vector<std::pair<std::string, int64_t>>{
           {"18446744073709551615", INT64_MAX}, {"9223372036854775808", INT64_MAX}, {"-1", -1}, {"0", 0}}) {
    SCOPED_TRACE(stored);
    const std::string number = "<integer>" + stored + "</integer>";
    test::writeFile(store, "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>TWTotalBytesCleaned</key>" +
                               number + "<key>TWDryRunEnabledKey</key>" + number + "</dict></plist>");
    EXPECT_EQ(preferences.dryRunEnabled(), expected != 0);
    EXPECT_EQ(preferences.totalBytesCleaned(), expected);
  }
}

}  // namespace
}  // namespace tw
