// The scan driver: one root entry per scan location arranged into the tree both front ends
// show, the scanners run location by location, and the deletion of what is ticked.
//
// Threads. The driver has an owner thread: the one that creates it (the window's GUI thread,
// or the command line's main thread). The shown tree (the location entries, the Apple group
// and everything below them), `state`, `reset()`, the delegates and `updateCustomFolders`
// belong to the owner thread alone. `scan` and `deleteSelected` may run on a worker:
// - A scan builds and measures each location in a detached entry nobody else can see, then
//   posts one task through the executor that installs the finished items into the location's
//   entry, recomputes the Apple group and tells the delegate. With no executor the tasks run
//   inline, which is what the command line wants.
// - The owner resets the tree before it starts a scan (a view does it inside its model reset);
//   the scan's own first task resets again, which is then a no-op.
// - A scan whose stop token is triggered stops between folders; none of its later tasks does
//   anything, so the tree keeps the locations finished before the stop.
// - A deletion reads the tree on its own thread; the owner must not change the tree until
//   `deleteFinished`. Delete-delegate calls arrive on the deleting thread.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "model/CleanupEntry.h"
#include "platform/Expected.h"

namespace tw {

class DevFilesScanDelegate;
class DevFilesDeleteDelegate;

class DevFiles : public std::enable_shared_from_this<DevFiles> {
 public:
  enum class State { initial, scanning, scanComplete };

  // Declaration order is the order of the list of all locations.
  enum class Location {
    deviceSupport,
    archives,
    derivedData,
    documentationCache,
    userDataCache,
    logs,
    oldDocumentation,
    simulators,
    simulatorRuntimes,
    packageCaches,
    toolCaches,
    ideCaches,
    aiCaches,
    browserCaches,
    appCaches,
    cloudStorage,
    systemFiles,
    projectBuilds,
  };
  static constexpr size_t kLocationCount = 18;
  static const std::array<Location, kLocationCount>& allLocations();
  static std::string_view label(Location location);
  static std::string_view tooltipText(Location location);
  static std::string_view commandLineName(Location location);

  // Runs a callback on the owner's thread (the window passes its event loop). Without one,
  // scan callbacks run on the scanning thread.
  using Executor = std::function<void(std::function<void()>)>;

  // Why no driver could be made: the folder that is missing or not writable.
  struct Refusal {
    enum class Reason { missing, notWritable };
    Reason reason;
    std::filesystem::path folder;
    std::string message() const;
  };

  // Refused (and logged) when the Developer folder, or its "Xcode" or "CoreSimulator"
  // subfolder, is missing or not writable.
  static Expected<std::shared_ptr<DevFiles>, Refusal> create(
      std::filesystem::path userDeveloperFolderUrl, std::optional<std::filesystem::path> customDerivedDataFolderUrl,
      std::optional<std::filesystem::path> customArchivesFolderUrl, Executor mainQueue = nullptr);
  ~DevFiles();
  DevFiles(const DevFiles&) = delete;
  DevFiles& operator=(const DevFiles&) = delete;

  State state() const { return state_; }
  const std::filesystem::path& userDeveloperFolderUrl() const { return userDeveloperFolderUrl_; }
  // Copies: a scan on a worker reads them while the owner may change them.
  std::optional<std::filesystem::path> customDerivedDataFolderUrl() const;
  std::optional<std::filesystem::path> customArchivesFolderUrl() const;

  void setScanDelegate(const std::shared_ptr<DevFilesScanDelegate>& delegate) { scanDelegate_ = delegate; }
  void setDeleteDelegate(const std::shared_ptr<DevFilesDeleteDelegate>& delegate) { deleteDelegate_ = delegate; }
  std::shared_ptr<DevFilesScanDelegate> scanDelegate() const { return scanDelegate_.lock(); }
  std::shared_ptr<DevFilesDeleteDelegate> deleteDelegate() const { return deleteDelegate_.lock(); }

  const std::map<Location, CleanupEntryPtr>& locations() const { return locations_; }
  const CleanupEntryPtr& entry(Location location) const { return locations_.at(location); }
  const CleanupEntryPtr& appleGroupEntry() const { return appleGroupEntry_; }
  const std::vector<CleanupEntryPtr>& rootEntries() const { return rootEntries_; }

  void reset();
  // Scans the locations in the order given (see the thread rules at the top).
  void scan(const std::vector<Location>& locations, std::stop_token stop = {});
  // Refills one location's entry at once, on the owner's thread.
  void scanLocation(Location location);
  void updateCustomFolders(std::optional<std::filesystem::path> derivedDataFolder,
                           std::optional<std::filesystem::path> archivesFolder);
  int64_t totalSize() const;

  // The deletion engine.
  int64_t selectedSize() const;
  // Deletes the ticked units one by one. A stop request ends the run between two units
  // (never inside one); deleteFinished still follows.
  void deleteSelected(bool dryRun, std::stop_token stop = {});

 private:
  DevFiles(std::filesystem::path userDeveloperFolderUrl,
           std::optional<std::filesystem::path> customDerivedDataFolderUrl,
           std::optional<std::filesystem::path> customArchivesFolderUrl, Executor mainQueue);
  // Runs `change` and then the delegate's `notify` on the owner's thread, unless the driver is
  // gone or the scan was stopped by then.
  void post(std::stop_token stop, std::function<void(DevFiles&)> change,
            std::function<void(DevFiles&, DevFilesScanDelegate&)> notify);
  // A new entry of the location's kind holding the location's items, measured. Touches
  // nothing that is shown.
  CleanupEntryPtr scanDetached(Location location) const;
  // Moves a detached entry's content into the shown location entry.
  void install(Location location, const CleanupEntryPtr& scanned);
  void updateAppleGroup();

  State state_ = State::initial;
  std::filesystem::path userDeveloperFolderUrl_;
  mutable std::mutex customFoldersMutex_;  // guards the two custom folders
  std::optional<std::filesystem::path> customDerivedDataFolderUrl_;
  std::optional<std::filesystem::path> customArchivesFolderUrl_;
  std::weak_ptr<DevFilesScanDelegate> scanDelegate_;
  std::weak_ptr<DevFilesDeleteDelegate> deleteDelegate_;
  std::map<Location, CleanupEntryPtr> locations_;
  CleanupEntryPtr appleGroupEntry_;
  std::vector<CleanupEntryPtr> rootEntries_;
  Executor mainQueue_;
};

// Told of scan progress; callbacks arrive through the driver's executor.
class DevFilesScanDelegate {
 public:
  virtual ~DevFilesScanDelegate() = default;
  virtual void scanStarted(DevFiles& devFiles) = 0;
  virtual void locationScanned(DevFiles& devFiles, DevFiles::Location location) = 0;
  virtual void scanFinished(DevFiles& devFiles) = 0;
};

// Told of deletion progress, on the deleting thread.
class DevFilesDeleteDelegate {
 public:
  virtual ~DevFilesDeleteDelegate() = default;
  virtual void deleteStarted(DevFiles& devFiles) = 0;
  virtual void deletingItem(DevFiles& devFiles, const std::string& locationLabel, const std::string& itemDescription,
                            const std::optional<std::filesystem::path>& url, size_t index, size_t count) = 0;
  virtual void deleteFailed(DevFiles& devFiles, const std::exception& error, const std::string& locationLabel,
                            const std::string& itemDescription, const std::optional<std::filesystem::path>& url) = 0;
  virtual void deleteFinished(DevFiles& devFiles) = 0;
};

}  // namespace tw
