#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "app/Logger.h"
#include "app/Preferences.h"
#include "platform/Host.h"
#include "platform/UserDefaults.h"
#include "support/TempDir.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using test::TempDir;
using test::writeFile;
using Period = Preferences::Period;
using Keys = Preferences::Keys;

// Every line the main logger writes while it lives.
class CapturedLog {
 public:
  CapturedLog() {
    Logger::main().setLineObserver([this](Logger::Level level, const std::string& line) {
      std::lock_guard lock(mutex_);
      lines_.push_back({level, line});
    });
  }
  ~CapturedLog() { Logger::main().setLineObserver({}); }
  std::vector<std::pair<Logger::Level, std::string>> lines() const {
    std::lock_guard lock(mutex_);
    return lines_;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::pair<Logger::Level, std::string>> lines_;
};

class RecordingObserver : public PreferencesObserver {
 public:
  explicit RecordingObserver(std::string name, std::vector<std::string>* journal = nullptr)
      : name_(std::move(name)), journal_(journal) {}
  void preferenceDidChange(const std::string& key) override {
    keys.push_back(key);
    if (journal_) journal_->push_back(name_ + ":" + key);
  }
  std::vector<std::string> keys;

 private:
  std::string name_;
  std::vector<std::string>* journal_;
};

// A scratch folder on a memory file system where there is one. Each write syncs the file and its
// folder to disk, which makes thousands of writes take minutes on a real disk; the lock under test
// works the same without the disk.
class ScratchFolder {
 public:
  ScratchFolder() {
    std::error_code error;
    if (fs::is_directory("/dev/shm", error)) {
      std::string pattern = "/dev/shm/tidewell-test-XXXXXX";
      if (::mkdtemp(pattern.data())) path_ = pattern;
    }
    if (path_.empty()) {
      fallback_ = std::make_unique<TempDir>();
      path_ = fallback_->path();
    }
  }
  ~ScratchFolder() {
    std::error_code error;
    if (!fallback_) fs::remove_all(path_, error);
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  const fs::path& path() const { return path_; }

 private:
  fs::path path_;
  std::unique_ptr<TempDir> fallback_;
};

struct PreferencesTest : ::testing::Test {
  TempDir dir;
  fs::path store = dir / "config/tidewell/test.plist";
  Preferences preferences{store};
  UserDefaults raw{store};
};

TEST_F(PreferencesTest, NothingStoredReadsAsTheDefaults) {
  Host host;
  host.bundle = "/Applications/Tidewell.app";
  ScopedHost scoped(host);
  EXPECT_TRUE(preferences.notificationsEnabled());
  EXPECT_EQ(preferences.notificationsPeriod(), Period::everyMonth);
  EXPECT_FALSE(preferences.dryRunEnabled());
  EXPECT_EQ(preferences.totalBytesCleaned(), 0);
  EXPECT_FALSE(preferences.customArchivesFolder().has_value());
  EXPECT_FALSE(preferences.customDerivedDataFolder().has_value());
  EXPECT_EQ(preferences.appFolder(), fs::path("/Applications/Tidewell.app"));
  EXPECT_FALSE(preferences.data(Preferences::bookmarkKey("/tmp")).has_value());
  EXPECT_FALSE(fs::exists(store));  // reading never creates the file
}

TEST_F(PreferencesTest, WrittenValuesAreStoredUnderTheirKeysAndReadBack) {
  preferences.setNotificationsEnabled(false);
  preferences.setNotificationsPeriod(Period::every2Months);
  preferences.setDryRunEnabled(true);
  preferences.setTotalBytesCleaned(5'000'000'000'000);
  preferences.setCustomArchivesFolder(fs::path("/Volumes/Big/Archives"));
  preferences.setCustomDerivedDataFolder(fs::path("/Volumes/Big/DerivedData"));
  preferences.setAppFolder(fs::path("/Applications/Tidewell.app"));
  preferences.setData("TWFolderBookmark_X", {1, 0, 2});

  // A stored false stays false although the default is true.
  EXPECT_FALSE(preferences.notificationsEnabled());
  EXPECT_EQ(preferences.notificationsPeriod(), Period::every2Months);
  EXPECT_TRUE(preferences.dryRunEnabled());
  EXPECT_EQ(preferences.totalBytesCleaned(), 5'000'000'000'000);
  EXPECT_EQ(preferences.customArchivesFolder(), fs::path("/Volumes/Big/Archives"));
  EXPECT_EQ(preferences.customDerivedDataFolder(), fs::path("/Volumes/Big/DerivedData"));
  EXPECT_EQ(preferences.appFolder(), fs::path("/Applications/Tidewell.app"));
  EXPECT_EQ(preferences.data("TWFolderBookmark_X"), (std::vector<uint8_t>{1, 0, 2}));

  // The stored forms other readers of the file expect.
  using Value = UserDefaults::Value;
  EXPECT_EQ(raw.object("TWNotificationsEnabledKey"), Value(false));
  EXPECT_EQ(raw.object("TWNotificationsPeriodKey"), Value(int64_t{3}));
  EXPECT_EQ(raw.object("TWDryRunEnabledKey"), Value(true));
  EXPECT_EQ(raw.object("TWTotalBytesCleaned"), Value(int64_t{5'000'000'000'000}));
  EXPECT_EQ(raw.object("TWCustomArchivesFolderKey"), Value(std::string("/Volumes/Big/Archives")));
  EXPECT_EQ(raw.object("TWCustomDerivedDataFolderKey"), Value(std::string("/Volumes/Big/DerivedData")));
  EXPECT_EQ(raw.object("TWAppFolder"), Value(std::string("/Applications/Tidewell.app")));

  // Clearing a folder removes its value; the next read is the default again.
  preferences.setCustomArchivesFolder(std::nullopt);
  preferences.removeObject("TWFolderBookmark_X");
  EXPECT_FALSE(raw.object("TWCustomArchivesFolderKey").has_value());
  EXPECT_FALSE(preferences.customArchivesFolder().has_value());
  EXPECT_FALSE(preferences.data("TWFolderBookmark_X").has_value());
  EXPECT_EQ(preferences.customDerivedDataFolder(), fs::path("/Volumes/Big/DerivedData"));
}

TEST_F(PreferencesTest, StoredValuesOfTheWrongKindReadAsDefaults) {
  Host host;
  host.bundle = "/Applications/Tidewell.app";
  ScopedHost scoped(host);
  raw.setInteger(Keys::notificationsPeriod, 7);
  raw.setString(Keys::totalBytesCleaned, "12345");
  raw.setBool(Keys::customArchivesFolder, true);
  raw.setInteger(Keys::customDerivedDataFolder, 3);
  raw.setData(Keys::appFolder, {'/', 'x'});
  raw.setData(Keys::notificationsEnabled, {0});
  raw.setString(Keys::dryRunEnabled, "maybe");
  raw.setString("TWFolderBookmark_Y", "not data");

  EXPECT_EQ(preferences.notificationsPeriod(), Period::everyMonth);
  EXPECT_EQ(preferences.totalBytesCleaned(), 0);
  EXPECT_FALSE(preferences.customArchivesFolder().has_value());
  EXPECT_FALSE(preferences.customDerivedDataFolder().has_value());
  EXPECT_EQ(preferences.appFolder(), fs::path("/Applications/Tidewell.app"));
  EXPECT_TRUE(preferences.notificationsEnabled());
  EXPECT_FALSE(preferences.dryRunEnabled());
  EXPECT_FALSE(preferences.data("TWFolderBookmark_Y").has_value());

  raw.setInteger(Keys::notificationsPeriod, -1);
  EXPECT_EQ(preferences.notificationsPeriod(), Period::everyMonth);
}

TEST_F(PreferencesTest, ValuesWrittenByOtherToolsReadAsTheyMean) {
  // What `defaults write` and hand edits produce for the same settings.
  raw.setString(Keys::dryRunEnabled, "YES");
  raw.setString(Keys::notificationsEnabled, " no ");
  raw.setInteger(Keys::notificationsPeriod, 0);
  raw.update([](UserDefaults::Editor& editor) { editor.setInteger(Keys::totalBytesCleaned, -20); });
  EXPECT_TRUE(preferences.dryRunEnabled());
  EXPECT_FALSE(preferences.notificationsEnabled());
  EXPECT_EQ(preferences.notificationsPeriod(), Period::everyWeek);
  EXPECT_EQ(preferences.totalBytesCleaned(), -20);

  raw.setInteger(Keys::dryRunEnabled, 0);
  raw.setString(Keys::notificationsPeriod, "1");
  EXPECT_FALSE(preferences.dryRunEnabled());
  EXPECT_EQ(preferences.notificationsPeriod(), Period::every2weeks);
}

TEST_F(PreferencesTest, EveryWriteNotifiesTheLiveObserversInOrder) {
  std::vector<std::string> journal;
  auto first = std::make_shared<RecordingObserver>("first", &journal);
  auto second = std::make_shared<RecordingObserver>("second", &journal);
  preferences.addObserver(first);
  preferences.addObserver(second);

  preferences.setDryRunEnabled(true);
  preferences.setDryRunEnabled(true);  // unchanged, still a write
  EXPECT_EQ(journal, (std::vector<std::string>{"first:TWDryRunEnabledKey", "second:TWDryRunEnabledKey",
                                               "first:TWDryRunEnabledKey", "second:TWDryRunEnabledKey"}));

  first->keys.clear();
  preferences.setNotificationsEnabled(true);
  preferences.setNotificationsPeriod(Period::everyWeek);
  preferences.setTotalBytesCleaned(1);
  preferences.addToTotalBytesCleaned(2);
  preferences.setCustomArchivesFolder(fs::path("/a"));
  preferences.setCustomDerivedDataFolder(std::nullopt);
  preferences.setAppFolder(fs::path("/b"));
  preferences.setData("TWFolderBookmark_Z", {9});
  preferences.removeObject("TWFolderBookmark_Z");
  EXPECT_EQ(first->keys, (std::vector<std::string>{"TWNotificationsEnabledKey", "TWNotificationsPeriodKey",
                                                   "TWTotalBytesCleaned", "TWTotalBytesCleaned",
                                                   "TWCustomArchivesFolderKey", "TWCustomDerivedDataFolderKey",
                                                   "TWAppFolder", "TWFolderBookmark_Z", "TWFolderBookmark_Z"}));
  EXPECT_EQ(preferences.totalBytesCleaned(), 3);
}

TEST_F(PreferencesTest, AnObserverIsRegisteredOnceAndRemovedCompletely) {
  auto observer = std::make_shared<RecordingObserver>("o");
  auto other = std::make_shared<RecordingObserver>("p");
  preferences.addObserver(observer);
  preferences.addObserver(other);
  preferences.addObserver(observer);
  ASSERT_EQ(preferences.observers().size(), 2u);
  EXPECT_EQ(preferences.observers()[0].lock(), observer);
  EXPECT_EQ(preferences.observers()[1].lock(), other);

  preferences.setDryRunEnabled(false);
  EXPECT_EQ(observer->keys.size(), 1u);

  preferences.removeObserver(observer);
  ASSERT_EQ(preferences.observers().size(), 1u);
  EXPECT_EQ(preferences.observers()[0].lock(), other);
  preferences.setDryRunEnabled(false);
  EXPECT_EQ(observer->keys.size(), 1u);
  EXPECT_EQ(other->keys.size(), 2u);
}

TEST_F(PreferencesTest, AGoneObserverIsSkippedAndDroppedByTheNextRemoval) {
  auto survivor = std::make_shared<RecordingObserver>("survivor");
  auto doomed = std::make_shared<RecordingObserver>("doomed");
  auto alsoDoomed = std::make_shared<RecordingObserver>("also doomed");
  preferences.addObserver(doomed);
  preferences.addObserver(survivor);
  preferences.addObserver(alsoDoomed);
  doomed.reset();
  alsoDoomed.reset();

  preferences.setDryRunEnabled(true);
  EXPECT_EQ(survivor->keys, std::vector<std::string>{"TWDryRunEnabledKey"});
  EXPECT_EQ(preferences.observers().size(), 3u);  // gone boxes stay until a removal

  // What a destroyed observer's own unregistration looks like: its reference already reads empty.
  preferences.removeObserver(nullptr);
  ASSERT_EQ(preferences.observers().size(), 1u);
  EXPECT_EQ(preferences.observers()[0].lock(), survivor);
}

TEST(PreferencesWeak, BoxesAreEqualWhenBothAreEmptyOrHoldTheSameObject) {
  auto a = std::make_shared<RecordingObserver>("a");
  auto b = std::make_shared<RecordingObserver>("b");
  using Box = Weak<PreferencesObserver>;
  EXPECT_EQ(Box(a), Box(a));
  EXPECT_NE(Box(a), Box(b));
  EXPECT_NE(Box(a), Box());
  EXPECT_EQ(Box(), Box(nullptr));
  Box gone(b);
  b.reset();
  EXPECT_EQ(gone, Box());
  EXPECT_NE(gone, Box(a));
}

TEST_F(PreferencesTest, ObserversMayChangeTheListWhileBeingNotifiedAndFromOtherThreads) {
  struct SelfRemoving : PreferencesObserver {
    Preferences* preferences = nullptr;
    std::shared_ptr<PreferencesObserver> self;
    int calls = 0;
    void preferenceDidChange(const std::string&) override {
      ++calls;
      preferences->removeObserver(self);
    }
  };
  auto observer = std::make_shared<SelfRemoving>();
  observer->preferences = &preferences;
  observer->self = observer;
  preferences.addObserver(observer);
  preferences.notifyObservers("TWDryRunEnabledKey");
  preferences.notifyObservers("TWDryRunEnabledKey");
  EXPECT_EQ(observer->calls, 1);
  observer->self.reset();

  // One thread keeps notifying while another adds and removes observers.
  std::atomic<int> calls{0};
  struct Counting : PreferencesObserver {
    std::atomic<int>* calls;
    explicit Counting(std::atomic<int>* c) : calls(c) {}
    void preferenceDidChange(const std::string&) override { ++*calls; }
  };
  auto steady = std::make_shared<Counting>(&calls);
  preferences.addObserver(steady);
  std::thread notifier([&] {
    for (int i = 0; i < 2000; ++i) preferences.notifyObservers("k");
  });
  for (int i = 0; i < 2000; ++i) {
    auto transient = std::make_shared<Counting>(&calls);
    preferences.addObserver(transient);
    preferences.removeObserver(transient);
  }
  notifier.join();
  EXPECT_GE(calls.load(), 2000);
  EXPECT_EQ(preferences.observers().size(), 1u);
}

TEST(PreferencesBookmarkKey, IsThePrefixAndTheUpperCaseSha256OfThePath) {
  // Digests from `printf %s <path> | sha256sum`.
  EXPECT_EQ(Preferences::bookmarkKey("/tmp"),
            "TWFolderBookmark_E9671ACD244849C57167C658FA2F969752048F7AB184A3DCF5C46CB4D56AE124");
  EXPECT_EQ(Preferences::bookmarkKey("/Users/ann/Library/Developer"),
            "TWFolderBookmark_C4BB28163A9249AF861BAD901D605F3A2007D67582C9F90B03359073B32E5119");
  EXPECT_EQ(Preferences::bookmarkKey("/tmp/Dévéloper ☃"),
            "TWFolderBookmark_A55C5A774640CC7B36C87487FC981943AA4C14388ACDC932BEABC2EF6EC9C92F");
  EXPECT_EQ(Preferences::bookmarkKey("/"),
            "TWFolderBookmark_8A5EDAB282632443219E051E4ADE2D1D5BBC671C781051BF1437897CBDFEA0F1");
  EXPECT_EQ(Preferences::bookmarkKey("/tmp").size(), 81u);
  // A folder's path has no trailing separator.
  EXPECT_EQ(Preferences::bookmarkKey("/tmp/"), Preferences::bookmarkKey("/tmp"));
}

TEST(PreferencesBookmarkKey, DependsOnlyOnThePathString) {
  TempDir dir;
  fs::create_directories(dir / "real");
  fs::create_directory_symlink(dir / "real", dir / "link");
  EXPECT_NE(Preferences::bookmarkKey(dir / "real"), Preferences::bookmarkKey(dir / "link"));
  EXPECT_EQ(Preferences::bookmarkKey(dir / "real"), Preferences::bookmarkKey(fs::path((dir / "real").string())));
  fs::remove(dir / "link");
  fs::remove(dir / "real");
  // The key of a folder that no longer exists is the same as before.
  EXPECT_EQ(Preferences::bookmarkKey(dir / "real"), Preferences::bookmarkKey((dir / "real").string()));
}

TEST_F(PreferencesTest, ACorruptFileIsSetAsideLoggedOnceAndTheNextWriteSucceeds) {
  static constexpr char kGarbage[] = "\x00\x01 definitely not a plist";
  writeFile(store, std::string_view(kGarbage, sizeof kGarbage - 1));
  CapturedLog log;
  EXPECT_TRUE(preferences.notificationsEnabled());
  EXPECT_EQ(preferences.totalBytesCleaned(), 0);
  EXPECT_FALSE(preferences.dryRunEnabled());

  auto lines = log.lines();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].first, Logger::Level::warning);
  EXPECT_EQ(lines[0].second.rfind("\u26A0\uFE0F Preferences: ", 0), 0u) << lines[0].second;
  int aside = 0;
  for (const auto& entry : fs::directory_iterator(store.parent_path())) {
    aside += entry.path().filename().string().rfind("test.plist.corrupt-", 0) == 0;
  }
  EXPECT_EQ(aside, 1);

  EXPECT_EQ(preferences.addToTotalBytesCleaned(10), 10);
  preferences.setDryRunEnabled(true);
  EXPECT_EQ(preferences.totalBytesCleaned(), 10);
  EXPECT_TRUE(preferences.dryRunEnabled());
  EXPECT_EQ(log.lines().size(), 1u);
}

TEST_F(PreferencesTest, AFailedWriteIsLoggedAndStillNotifies) {
  TempDir other;
  writeFile(other / "config", "a file, not a folder");
  Preferences blocked(other / "config/tidewell/test.plist");
  auto observer = std::make_shared<RecordingObserver>("o");
  blocked.addObserver(observer);
  CapturedLog log;
  blocked.setDryRunEnabled(true);
  EXPECT_EQ(blocked.addToTotalBytesCleaned(5), 0);
  EXPECT_FALSE(blocked.dryRunEnabled());
  EXPECT_EQ(observer->keys, (std::vector<std::string>{"TWDryRunEnabledKey", "TWTotalBytesCleaned"}));
  auto lines = log.lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].first, Logger::Level::error);
  EXPECT_EQ(lines[0].second.rfind("\u274C Preferences: Cannot save TWDryRunEnabledKey: ", 0), 0u) << lines[0].second;
}

TEST(PreferencesShared, KeepsItsStoreInTheCurrentHostsConfigFolder) {
  TempDir dir;
  Host host;
  host.configDirectory = dir / "xdg";
  host.bundle = dir / "Tidewell.app";
  ScopedHost scoped(host);
  auto& shared = Preferences::shared();
  EXPECT_EQ(&shared, &Preferences::shared());
  EXPECT_EQ(shared.storePath(), dir / "xdg/tidewell/dev.tidewell.Tidewell.plist");
  shared.setAppFolder(host.bundle);
  EXPECT_EQ(UserDefaults(dir / "xdg/tidewell/dev.tidewell.Tidewell.plist").object(Keys::appFolder),
            UserDefaults::Value((dir / "Tidewell.app").string()));
  EXPECT_EQ(shared.appFolder(), dir / "Tidewell.app");
}

TEST_F(PreferencesTest, AnotherProcessReadsWhatThisOneWrote) {
  preferences.setTotalBytesCleaned(1234);
  pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    // The child sees the parent's value and leaves its own for the parent.
    int status = 0;
    {
      Preferences mine(store);
      if (mine.totalBytesCleaned() != 1234) status = 1;
      mine.setDryRunEnabled(true);
      mine.setCustomDerivedDataFolder(fs::path("/Volumes/Work/DD"));
    }
    ::_exit(status);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_TRUE(preferences.dryRunEnabled());
  EXPECT_EQ(preferences.customDerivedDataFolder(), fs::path("/Volumes/Work/DD"));
  EXPECT_EQ(preferences.totalBytesCleaned(), 1234);
}

TEST(PreferencesConcurrency, ProcessesAddingAtTheSameMomentNeverLoseBytes) {
  ScratchFolder scratch;
  auto store = scratch.path() / "tidewell/test.plist";
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
    pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      ::close(gate[1]);
      char byte;
      while (::read(gate[0], &byte, 1) < 0) {
      }
      int status = 0;
      try {
        Preferences mine(store);
        int64_t previous = -1;
        for (int n = 0; n < kAdditions; ++n) {
          int64_t total = mine.addToTotalBytesCleaned(i + 1);  // a different amount per process
          if (total <= previous) status = 1;                   // a lost or repeated update
          previous = total;
        }
      } catch (...) {
        status = 2;
      }
      ::_exit(status);
    }
    children.push_back(child);
  }
  ::close(gate[0]);
  ::close(gate[1]);  // opens the gate

  // Meanwhile this process keeps changing another setting through the same lock.
  for (int n = 0; n < 50; ++n) preferences.setNotificationsPeriod(n % 2 ? Period::everyWeek : Period::every2Months);

  for (pid_t child : children) {
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "child status " << status;
  }
  // 1 + 2 + ... + 16 = 136 bytes per round.
  EXPECT_EQ(preferences.totalBytesCleaned(), 1'000'000 + 136 * kAdditions);
  EXPECT_TRUE(preferences.dryRunEnabled());
  EXPECT_EQ(preferences.notificationsPeriod(), Period::everyWeek);
}

TEST(PreferencesConcurrency, ThreadsAddingAtTheSameMomentNeverLoseBytes) {
  ScratchFolder scratch;
  auto store = scratch.path() / "tidewell/test.plist";
  Preferences preferences(store);
  constexpr int kThreads = 4;
  constexpr int kAdditions = 100;
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      Preferences mine(store);
      for (int n = 0; n < kAdditions; ++n) mine.addToTotalBytesCleaned(3);
    });
  }
  for (int n = 0; n < kAdditions; ++n) preferences.addToTotalBytesCleaned(1);
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(preferences.totalBytesCleaned(), kThreads * kAdditions * 3 + kAdditions);
}

TEST_F(PreferencesTest, ATotalBeyondSixtyFourBitsStopsAndKeepsTheStoredTotal) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  preferences.setTotalBytesCleaned(INT64_MAX - 5);
  EXPECT_EQ(preferences.addToTotalBytesCleaned(5), INT64_MAX);
  EXPECT_DEATH(preferences.addToTotalBytesCleaned(1), "overflows");
  EXPECT_EQ(preferences.totalBytesCleaned(), INT64_MAX);
}

}  // namespace
}  // namespace tw
