// The one settings store of the application: every setting lives in the per-user property-list
// store (platform/UserDefaults.h), each read goes to that store and falls back to the setting's
// default, and every write notifies the registered observers on the writing thread. It also
// derives the key under which a folder's access bookmark is kept.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "fs/FolderAccess.h"

namespace tw {

class UserDefaults;

class PreferencesObserver {
 public:
  virtual ~PreferencesObserver() = default;
  virtual void preferenceDidChange(const std::string& key) = 0;
};

// A box that holds an object weakly. Two boxes are equal when both are empty (their objects are
// gone or were never there) or when both hold the same object.
template <class T>
class Weak {
 public:
  Weak() = default;
  explicit Weak(const std::shared_ptr<T>& object) : value(object) {}

  std::shared_ptr<T> lock() const { return value.lock(); }

  friend bool operator==(const Weak& a, const Weak& b) {
    auto left = a.value.lock();
    auto right = b.value.lock();
    if (!left || !right) return !left && !right;
    return left.get() == right.get();
  }

  std::weak_ptr<T> value;
};

class Preferences : public GrantSettings {
 public:
  enum class Period { everyWeek = 0, every2weeks = 1, everyMonth = 2, every2Months = 3 };

  // The key strings are stored data shared with earlier installations: never change them.
  struct Keys {
    static constexpr const char* notificationsEnabled = "TWNotificationsEnabledKey";
    static constexpr const char* notificationsPeriod = "TWNotificationsPeriodKey";
    static constexpr const char* dryRunEnabled = "TWDryRunEnabledKey";
    static constexpr const char* totalBytesCleaned = "TWTotalBytesCleaned";
    static constexpr const char* customArchivesFolder = "TWCustomArchivesFolderKey";
    static constexpr const char* customDerivedDataFolder = "TWCustomDerivedDataFolderKey";
    static constexpr const char* appFolder = "TWAppFolder";
    static constexpr const char* folderBookmarkPrefix = "TWFolderBookmark_";
    // Whether the user agreed to automatic update checks; absent until asked.
    static constexpr const char* automaticUpdateChecks = "TWAutomaticUpdateChecksKey";
    // How often the window has been started (the update check asks for consent on the second start).
    static constexpr const char* launchCount = "TWLaunchCountKey";
  };

  // The process-wide instance, created on first use. It keeps its store at
  // UserDefaults::standardStorePath(Host::current()), looked up on every access, so that a
  // test that installs its own host never reaches the real user's settings.
  static Preferences& shared();

  // An instance that keeps its settings in the property list at `storePath` (tests, tools).
  explicit Preferences(std::filesystem::path storePath);
  ~Preferences();
  Preferences(const Preferences&) = delete;
  Preferences& operator=(const Preferences&) = delete;

  bool notificationsEnabled() const;
  void setNotificationsEnabled(bool enabled);
  Period notificationsPeriod() const;
  void setNotificationsPeriod(Period period);
  bool dryRunEnabled() const;
  void setDryRunEnabled(bool enabled);
  int64_t totalBytesCleaned() const;
  void setTotalBytesCleaned(int64_t bytes);
  // What adding to the lifetime total did.
  struct TotalUpdate {
    int64_t total = 0;                       // the lifetime total now (the stored one when saving failed)
    bool saturated = false;                  // the sum was beyond a signed 64-bit count: the total stays at the largest
    std::optional<std::string> saveFailure;  // why the new total could not be saved
  };
  // Adds `bytes` to the lifetime total in one step that no other process or thread can split
  // and notifies the observers. The total is a counter shown to people, not a size anything
  // is deleted by: a sum beyond a signed 64-bit count stays at the largest one (with a log
  // line) instead of stopping a run whose work is already done.
  TotalUpdate addToTotalBytesCleaned(int64_t bytes);

  std::optional<std::filesystem::path> customArchivesFolder() const override;
  void setCustomArchivesFolder(std::optional<std::filesystem::path> folder);
  std::optional<std::filesystem::path> customDerivedDataFolder() const override;
  void setCustomDerivedDataFolder(std::optional<std::filesystem::path> folder);
  // Where the running application lives; the host's bundle when nothing is stored.
  std::filesystem::path appFolder() const;
  void setAppFolder(std::optional<std::filesystem::path> folder);

  // Absent until the user answered the question whether to check for updates automatically.
  std::optional<bool> automaticUpdateChecks() const;
  void setAutomaticUpdateChecks(bool enabled);
  int64_t launchCount() const;
  void setLaunchCount(int64_t count);

  // Byte blobs (folder bookmarks); absent unless data is stored under the key.
  std::optional<std::vector<uint8_t>> data(const std::string& key) const;
  void setData(const std::string& key, const std::vector<uint8_t>& data);
  void removeObject(const std::string& key);

  // Folder bookmarks, each under its bookmarkKey.
  std::optional<std::vector<uint8_t>> folderBookmark(const std::filesystem::path& folder) const override;
  void setFolderBookmark(const std::filesystem::path& folder, const std::vector<uint8_t>& bookmark) override;
  void removeFolderBookmark(const std::filesystem::path& folder) override;

  // Adding an observer that is already registered changes nothing. Removing drops every box
  // equal to the observer's; an observer that unregisters from its destructor, where no
  // shared_ptr to it exists any more, passes nullptr, which drops every box whose object is gone.
  void addObserver(const std::shared_ptr<PreferencesObserver>& observer);
  void removeObserver(const std::shared_ptr<PreferencesObserver>& observer);
  // Calls every live observer in registration order on this thread.
  void notifyObservers(const std::string& key);
  // A copy of the observer list as it is now, gone observers included.
  std::vector<Weak<PreferencesObserver>> observers() const;

  // "TWFolderBookmark_" followed by the upper-case hexadecimal SHA-256 of the path's bytes. Two
  // spellings of one folder (through a symbolic link, say) give two keys.
  static std::string bookmarkKey(const std::filesystem::path& folder);

  // The store this instance reads and writes now.
  std::filesystem::path storePath() const;

 private:
  Preferences();
  UserDefaults defaults() const;

  std::optional<std::filesystem::path> storePath_;
  mutable std::mutex observersMutex_;
  std::vector<Weak<PreferencesObserver>> observers_;
};

}  // namespace tw
