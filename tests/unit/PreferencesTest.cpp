#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <thread>

#include "app/Preferences.h"
#include "platform/Host.h"
#include "platform/UserDefaults.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using Period = Preferences::Period;
using Keys = Preferences::Keys;
using Value = UserDefaults::Value;
using Strings = std::vector<std::string>;

struct RecordingObserver : PreferencesObserver {
  void preferenceDidChange(const std::string& key) override {
    keys.push_back(key);
    if (onChange) onChange();
  }
  Strings keys;
  std::function<void()> onChange;
};

struct PreferencesTest : ::testing::Test {
  test::TempDir dir;
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
  for (const auto& [key, value] : std::vector<std::pair<const char*, Value>>{
           {"TWNotificationsEnabledKey", false},
           {"TWNotificationsPeriodKey", int64_t{3}},
           {"TWDryRunEnabledKey", true},
           {"TWTotalBytesCleaned", int64_t{5'000'000'000'000}},
           {"TWCustomArchivesFolderKey", std::string("/Volumes/Big/Archives")},
           {"TWCustomDerivedDataFolderKey", std::string("/Volumes/Big/DerivedData")},
           {"TWAppFolder", std::string("/Apps/T.app")}})
    EXPECT_EQ(raw.object(key), value) << key;
  EXPECT_FALSE(preferences.notificationsEnabled());  // a stored false, although the default is true
  EXPECT_EQ(preferences.customDerivedDataFolder(), fs::path("/Volumes/Big/DerivedData"));
  EXPECT_EQ(preferences.data("TWFolderBookmark_X"), (std::vector<uint8_t>{1, 0, 2}));
  preferences.setCustomArchivesFolder(std::nullopt);
  EXPECT_FALSE(raw.object("TWCustomArchivesFolderKey").has_value());
  // Bookmark keys: the prefix and the upper-case SHA-256 of the path (from `printf %s <path> | sha256sum`).
  EXPECT_EQ(Preferences::bookmarkKey("/tmp"),
            "TWFolderBookmark_E9671ACD244849C57167C658FA2F969752048F7AB184A3DCF5C46CB4D56AE124");
  EXPECT_EQ(Preferences::bookmarkKey("/tmp/Dévéloper ☃"),
            "TWFolderBookmark_A55C5A774640CC7B36C87487FC981943AA4C14388ACDC932BEABC2EF6EC9C92F");
  EXPECT_EQ(Preferences::bookmarkKey("/tmp/"), Preferences::bookmarkKey("/tmp"));
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

  // Numbers, as text or reals: anything but zero is on.
  raw.setString(Keys::dryRunEnabled, " 2");
  raw.setString(Keys::notificationsEnabled, "0");
  EXPECT_TRUE(preferences.dryRunEnabled());
  EXPECT_FALSE(preferences.notificationsEnabled());
  test::writeFile(store, std::string("<plist version=\"1.0\"><dict><key>") + Keys::dryRunEnabled +
                             "</key><real>0.5</real><key>" + Keys::notificationsEnabled +
                             "</key><real>0.0</real></dict></plist>");
  EXPECT_TRUE(preferences.dryRunEnabled());
  EXPECT_FALSE(preferences.notificationsEnabled());
}

TEST_F(PreferencesTest, ObserversAreNotifiedOfEveryWriteInOrderAndRegisteredOnce) {
  Strings journal;
  auto first = std::make_shared<RecordingObserver>(), second = std::make_shared<RecordingObserver>(),
       doomed = std::make_shared<RecordingObserver>();
  first->onChange = [&] { journal.push_back("first"); };
  second->onChange = [&] { journal.push_back("second"); };
  for (const auto& observer : {first, doomed, second, first}) preferences.addObserver(observer);  // first once
  doomed.reset();  // a gone observer is skipped; its box stays until a removal
  ASSERT_EQ(preferences.observers().size(), 3u);

  preferences.setDryRunEnabled(true);
  preferences.setDryRunEnabled(true);  // unchanged, still a write
  EXPECT_EQ(journal, (Strings{"first", "second", "first", "second"}));
  preferences.addToTotalBytesCleaned(2);
  preferences.setCustomDerivedDataFolder(std::nullopt);
  preferences.removeObject("TWFolderBookmark_Z");
  EXPECT_EQ(first->keys, (Strings{"TWDryRunEnabledKey", "TWDryRunEnabledKey", "TWTotalBytesCleaned",
                                  "TWCustomDerivedDataFolderKey", "TWFolderBookmark_Z"}));

  preferences.removeObserver(first);
  ASSERT_EQ(preferences.observers().size(), 2u);
  preferences.removeObserver(nullptr);  // a destroyed observer's own unregistration: its reference reads empty
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

TEST_F(PreferencesTest, ACorruptFileIsSetAsideLoggedOnceAndTheNextWriteSucceeds) {
  test::writeFile(store, std::string("\x00\x01 definitely not a plist", 25));
  test::LogCapture log;
  EXPECT_TRUE(preferences.notificationsEnabled());
  EXPECT_EQ(preferences.totalBytesCleaned(), 0);
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_EQ(log.lines()[0].rfind("\u26A0\uFE0F Preferences: ", 0), 0u) << log.lines()[0];
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
  EXPECT_EQ(observer->keys, (Strings{"TWDryRunEnabledKey", "TWTotalBytesCleaned"}));
  ASSERT_EQ(log.lines().size(), 2u);
  EXPECT_EQ(log.lines()[0].rfind("\u274C Preferences: Cannot save TWDryRunEnabledKey: ", 0), 0u) << log.lines()[0];
}

TEST(PreferencesShared, KeepsItsStoreInTheCurrentHostsConfigFolder) {
  test::TempDir dir;
  Host host;
  host.configDirectory = dir / "xdg";
  ScopedHost scoped(host);
  auto& shared = Preferences::shared();
  EXPECT_EQ(shared.storePath(), dir / "xdg/tidewell/dev.tidewell.Tidewell.plist");
  shared.setAppFolder(dir / "Tidewell.app");
  EXPECT_EQ(UserDefaults(shared.storePath()).object(Keys::appFolder), Value((dir / "Tidewell.app").string()));
}

// Processes and threads adding at the same moment, while this process changes other settings
// through the same lock: no byte is lost and every process sees what the others wrote. The
// store is on a memory file system where there is one, as each write syncs file and folder.
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
  for (int i = 0; i < kProcesses; ++i) {
    if ((children.emplace_back(::fork())) != 0) continue;
    int status = 2;
    try {
      ::close(gate[1]);
      char byte;
      while (::read(gate[0], &byte, 1) < 0) {
      }
      Preferences mine(store);
      int64_t previous = -1;
      status = 0;
      for (int n = 0; n < kAdditions && status == 0; ++n) {
        int64_t total = mine.addToTotalBytesCleaned(i + 1).total;  // a different amount per process
        if (total <= previous) status = 1;                         // a lost or repeated update
        previous = total;
      }
      if (i == 0) mine.setCustomDerivedDataFolder(fs::path("/Volumes/Work/DD"));
    } catch (...) {
    }
    ::_exit(status);
  }
  ::close(gate[0]);
  ::close(gate[1]);  // opens the gate
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      Preferences mine(store);
      for (int n = 0; n < 100; ++n) mine.addToTotalBytesCleaned(1000);
    });
  }
  for (int n = 0; n < 50; ++n) preferences.setNotificationsPeriod(n % 2 ? Period::everyWeek : Period::every2Months);
  for (auto& thread : threads) thread.join();
  for (pid_t child : children) {
    int status = 0;
    EXPECT_TRUE(child > 0 && ::waitpid(child, &status, 0) == child && WIFEXITED(status) && !WEXITSTATUS(status));
  }
  // 1 + 2 + ... + 16 = 136 bytes per round from the processes, 4 * 100 * 1000 from the threads.
  EXPECT_EQ(preferences.totalBytesCleaned(), 1'000'000 + 136 * kAdditions + 400'000);
  EXPECT_TRUE(preferences.dryRunEnabled());
  EXPECT_EQ(preferences.notificationsPeriod(), Period::everyWeek);
  EXPECT_EQ(preferences.customDerivedDataFolder(), fs::path("/Volumes/Work/DD"));
  std::error_code error;
  if (folder != fallback.path()) fs::remove_all(folder, error);
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
