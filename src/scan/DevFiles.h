// The scan driver: one root entry per scan location arranged into the tree both front ends
// show, the scanners run location by location, and the deletion of what is ticked.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "model/CleanupEntry.h"

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

  // Nothing when the Developer folder, or its "Xcode" or "CoreSimulator" subfolder, is
  // missing or not writable (logged).
  static std::shared_ptr<DevFiles> create(std::filesystem::path userDeveloperFolderUrl,
                                          std::optional<std::filesystem::path> customDerivedDataFolderUrl,
                                          std::optional<std::filesystem::path> customArchivesFolderUrl,
                                          Executor mainQueue = nullptr);
  ~DevFiles();
  DevFiles(const DevFiles&) = delete;
  DevFiles& operator=(const DevFiles&) = delete;

  State state() const { return state_; }
  const std::filesystem::path& userDeveloperFolderUrl() const { return userDeveloperFolderUrl_; }
  const std::optional<std::filesystem::path>& customDerivedDataFolderUrl() const { return customDerivedDataFolderUrl_; }
  const std::optional<std::filesystem::path>& customArchivesFolderUrl() const { return customArchivesFolderUrl_; }

  void setScanDelegate(const std::shared_ptr<DevFilesScanDelegate>& delegate) { scanDelegate_ = delegate; }
  void setDeleteDelegate(const std::shared_ptr<DevFilesDeleteDelegate>& delegate) { deleteDelegate_ = delegate; }
  std::shared_ptr<DevFilesScanDelegate> scanDelegate() const { return scanDelegate_.lock(); }
  std::shared_ptr<DevFilesDeleteDelegate> deleteDelegate() const { return deleteDelegate_.lock(); }

  const std::map<Location, CleanupEntryPtr>& locations() const { return locations_; }
  const CleanupEntryPtr& entry(Location location) const { return locations_.at(location); }
  const CleanupEntryPtr& appleGroupEntry() const { return appleGroupEntry_; }
  const std::vector<CleanupEntryPtr>& rootEntries() const { return rootEntries_; }

  void reset();
  void scan(const std::vector<Location>& locations);
  void scanLocation(Location location);
  void updateCustomFolders(std::optional<std::filesystem::path> derivedDataFolder,
                           std::optional<std::filesystem::path> archivesFolder);
  int64_t totalSize() const;

  // The deletion engine.
  int64_t selectedSize() const;
  void deleteSelected(bool dryRun);

 private:
  DevFiles(std::filesystem::path userDeveloperFolderUrl, std::optional<std::filesystem::path> customDerivedDataFolderUrl,
           std::optional<std::filesystem::path> customArchivesFolderUrl, Executor mainQueue);
  void post(std::function<void(DevFiles&, DevFilesScanDelegate&)> callback);

  State state_ = State::initial;
  std::filesystem::path userDeveloperFolderUrl_;
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
