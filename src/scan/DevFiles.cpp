#include "scan/DevFiles.h"

#include <sys/stat.h>
#include <unistd.h>

#include <utility>

#include "app/Logger.h"
#include "fs/DirectorySize.h"
#include "model/CleanupEntry.h"
#include "model/XcodeEntries.h"
#include "platform/Cancellation.h"
#include "platform/SecurityScope.h"
#include "scan/Scanners.h"

namespace tw {
namespace {

struct LocationInfo {
  DevFiles::Location location;
  std::string_view commandLineName;
  std::string_view label;
  std::string_view tooltipText;
};

// In declaration order; the command-line names are what users type after "clean".
constexpr std::array<LocationInfo, DevFiles::kLocationCount> kLocationInfo{{
    {DevFiles::Location::deviceSupport, "device-support", "Device Support",
     "System debug symbols retained for each version. You usually only need the most recent ones."},
    {DevFiles::Location::archives, "archives", "Archives",
     "Archived apps. Delete only if you're sure you don't need them."},
    {DevFiles::Location::derivedData, "derived-data", "Derived Data", "Cached project data and symbol index."},
    {DevFiles::Location::documentationCache, "docs-cache", "Documentation Cache",
     "Documentation cache for each version of Xcode."},
    {DevFiles::Location::userDataCache, "user-data-cache", "UserData Cache",
     "Regenerable caches stored in Xcode/UserData. This excludes editor preferences and other persistent settings."},
    {DevFiles::Location::logs, "old-logs", "Old Logs",
     "Old device logs and crash databases. Usually, only the most recent ones are needed as they are duplicates of "
     "earlier logs."},
    {DevFiles::Location::oldDocumentation, "old-documentation", "Old Documentation Downloads",
     "Old offline documentations, not used anymore in modern Xcodes"},
    {DevFiles::Location::simulators, "simulators", "Simulators",
     "Unavailable simulator devices and orphaned XCTest device clones left behind when UI tests are killed mid-run."},
    {DevFiles::Location::simulatorRuntimes, "runtimes", "Platform Runtimes",
     "Simulator platform runtimes (iOS, watchOS, tvOS, visionOS). Deleted safely via simctl and can be downloaded "
     "again in Xcode."},
    {DevFiles::Location::packageCaches, "package-caches", "Package Managers",
     "Global caches of Swift Package Manager, Carthage & CocoaPods. Packages are re-downloaded when needed."},
    {DevFiles::Location::toolCaches, "tool-caches", "Dev Caches",
     "Caches of development tools found on this Mac: package managers, toolchains, build tools & VMs. Check tooltips "
     "of individual items – some are more than just caches."},
    {DevFiles::Location::ideCaches, "ide-caches", "IDEs Caches",
     "Caches of code editors & IDEs (VS Code, JetBrains). Editors re-index projects after cleaning."},
    {DevFiles::Location::aiCaches, "ai-caches", "AI Caches",
     "Downloaded models & caches of AI tools (Hugging Face, Ollama, LM Studio, PyTorch, Claude Code, Codex)."},
    {DevFiles::Location::browserCaches, "browser-caches", "Browser Caches",
     "Caches of installed web browsers. Browsers recreate them, but pages will load slower on first visit."},
    {DevFiles::Location::appCaches, "app-caches", "App Caches",
     "Caches of messengers & media apps (Slack, Discord, Telegram, Teams, Zoom, Spotify). Content is re-downloaded "
     "when needed."},
    {DevFiles::Location::cloudStorage, "cloud-caches", "Cloud Storage",
     "Caches & logs of cloud sync clients (Google Drive, Dropbox, OneDrive, iCloud…). The synced folders themselves "
     "are listed for reference only and are never deleted – their size is not counted as cleanable."},
    {DevFiles::Location::systemFiles, "system", "System",
     "Local Time Machine snapshots & downloaded macOS updates and installers."},
    {DevFiles::Location::projectBuilds, "project-builds", "Project Build Folders",
     "Build folders & dependency caches found in project folders across the disk (Rust target, SwiftPM .build, "
     "node_modules, Gradle, Flutter, Pods, local DerivedData…). Recreated on the next build."},
}};

const LocationInfo& info(DevFiles::Location location) {
  const auto& found = kLocationInfo[static_cast<size_t>(location)];
  return found;
}

constexpr size_t kAppleLocationCount = 10;  // deviceSupport ... packageCaches

constexpr std::string_view kAppleGroupLabel = "Apple";
constexpr std::string_view kAppleGroupTooltip = "Xcode, simulators & Apple platform caches.";

// The scanners write into the Developer folder's "Xcode" and "CoreSimulator" trees and the
// deletion removes from them, so both must be there and writable before anything is shown.
// The check stops at the first folder that fails.
std::optional<DevFiles::Refusal> cacheFoldersRefusal(const std::filesystem::path& developerFolder) {
  using Reason = DevFiles::Refusal::Reason;
  struct stat status {};
  if (::stat(developerFolder.c_str(), &status) != 0) return DevFiles::Refusal{Reason::missing, developerFolder};
  for (const char* subfolder : {"Xcode", "CoreSimulator"}) {
    const std::filesystem::path folder = developerFolder / subfolder;
    if (::stat(folder.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) {
      return DevFiles::Refusal{Reason::missing, folder};
    }
    if (::access(folder.c_str(), W_OK) != 0) return DevFiles::Refusal{Reason::notWritable, folder};
  }
  return std::nullopt;
}

CleanupEntryPtr makeLocationEntry(DevFiles::Location location) {
  // The old documentation downloads are one fixed folder, so that location's entry is the item
  // itself (and describes itself with the empty text when it is deleted).
  if (location == DevFiles::Location::oldDocumentation) return std::make_shared<OldDocumentationFileEntry>(false);
  const LocationInfo& locationInfo = info(location);
  return std::make_shared<CleanupEntry>(std::string(locationInfo.label), std::string(),
                                        std::string(locationInfo.tooltipText), std::nullopt, /*tooltip=*/true,
                                        /*selected=*/false);
}

// The group's size is the sum of its locations'. Every installed location knows its size, and
// locations left out of this scan are empty and keep their unknown size (the command line
// shows them without one), so a plain sum equals a full recomputation and measures nothing:
// this runs on the owner's thread.
void updateGroupSize(CleanupEntry& group) {
  int64_t total = 0;
  for (const auto& item : group.items()) total = addSizes(total, item->size().bytesOrZero());
  group.setSize(CleanupEntry::Size::value(total));
}

void startAccess(const std::optional<std::filesystem::path>& folder) {
  if (folder) startAccessingSecurityScope(*folder);
}

void stopAccess(const std::optional<std::filesystem::path>& folder) {
  if (folder) stopAccessingSecurityScope(*folder);
}

}  // namespace

const std::array<DevFiles::Location, DevFiles::kLocationCount>& DevFiles::allLocations() {
  static const std::array<Location, kLocationCount> all = [] {
    std::array<Location, kLocationCount> list{};
    for (size_t index = 0; index < kLocationCount; ++index) list[index] = kLocationInfo[index].location;
    return list;
  }();
  return all;
}

std::string_view DevFiles::label(Location location) { return info(location).label; }
std::string_view DevFiles::tooltipText(Location location) { return info(location).tooltipText; }
std::string_view DevFiles::commandLineName(Location location) { return info(location).commandLineName; }

std::string DevFiles::Refusal::message() const {
  return "\"" + folder.string() + (reason == Reason::missing ? "\" is missing" : "\" is not writable");
}

Expected<std::shared_ptr<DevFiles>, DevFiles::Refusal> DevFiles::create(
    std::filesystem::path userDeveloperFolderUrl, std::optional<std::filesystem::path> customDerivedDataFolderUrl,
    std::optional<std::filesystem::path> customArchivesFolderUrl, Executor mainQueue) {
  // The constructor enters the folders' access scopes before the check (the check itself needs
  // the access); a refused driver leaves them again through its destructor.
  std::shared_ptr<DevFiles> devFiles(new DevFiles(std::move(userDeveloperFolderUrl),
                                                  std::move(customDerivedDataFolderUrl),
                                                  std::move(customArchivesFolderUrl), std::move(mainQueue)));
  if (auto refusal = cacheFoldersRefusal(devFiles->userDeveloperFolderUrl_)) {
    log::error(
        "DevFiles: Cannot create because Xcode cache folders doesn't seem to exist or we don't have proper access to "
        "them!");
    return *refusal;
  }

  for (Location location : allLocations()) devFiles->locations_.emplace(location, makeLocationEntry(location));

  devFiles->appleGroupEntry_ =
      std::make_shared<CleanupEntry>(std::string(kAppleGroupLabel), std::string(), std::string(kAppleGroupTooltip),
                                     std::nullopt, /*tooltip=*/true, /*selected=*/false);
  devFiles->rootEntries_.push_back(devFiles->appleGroupEntry_);
  for (size_t index = 0; index < kLocationCount; ++index) {
    const CleanupEntryPtr& entry = devFiles->locations_.at(allLocations()[index]);
    if (index < kAppleLocationCount) {
      devFiles->appleGroupEntry_->addItem(entry);
    } else {
      devFiles->rootEntries_.push_back(entry);
    }
  }
  return devFiles;
}

DevFiles::DevFiles(std::filesystem::path userDeveloperFolderUrl,
                   std::optional<std::filesystem::path> customDerivedDataFolderUrl,
                   std::optional<std::filesystem::path> customArchivesFolderUrl, Executor mainQueue)
    : userDeveloperFolderUrl_(std::move(userDeveloperFolderUrl)),
      customDerivedDataFolderUrl_(std::move(customDerivedDataFolderUrl)),
      customArchivesFolderUrl_(std::move(customArchivesFolderUrl)),
      mainQueue_(std::move(mainQueue)) {
  startAccessingSecurityScope(userDeveloperFolderUrl_);
  startAccess(customDerivedDataFolderUrl_);
  startAccess(customArchivesFolderUrl_);
}

DevFiles::~DevFiles() {
  stopAccessingSecurityScope(userDeveloperFolderUrl_);
  stopAccess(customDerivedDataFolderUrl_);
  stopAccess(customArchivesFolderUrl_);
}

void DevFiles::reset() {
  for (const auto& [location, entry] : locations_) entry->clear();
}

std::optional<std::filesystem::path> DevFiles::customDerivedDataFolderUrl() const {
  std::lock_guard lock(customFoldersMutex_);
  return customDerivedDataFolderUrl_;
}

std::optional<std::filesystem::path> DevFiles::customArchivesFolderUrl() const {
  std::lock_guard lock(customFoldersMutex_);
  return customArchivesFolderUrl_;
}

void DevFiles::post(std::stop_token stop, std::function<void(DevFiles&)> change,
                    std::function<void(DevFiles&, DevFilesScanDelegate&)> notify) {
  // The task may run long after the scan posted it (a window's event loop): it must neither
  // keep the driver alive nor reach a delegate that has gone away meanwhile, and a stop
  // requested in between (the window closing) cancels it.
  auto task = [weakSelf = weak_from_this(), stop = std::move(stop), change = std::move(change),
               notify = std::move(notify)] {
    std::shared_ptr<DevFiles> self = weakSelf.lock();
    if (!self || stop.stop_requested()) return;
    if (change) change(*self);
    if (std::shared_ptr<DevFilesScanDelegate> delegate = self->scanDelegate()) notify(*self, *delegate);
  };
  if (mainQueue_) {
    mainQueue_(std::move(task));
  } else {
    task();
  }
}

void DevFiles::scan(const std::vector<Location>& locations, std::stop_token stop) {
  // The deep loops (measurement, project walk, catalogue) see the token through the scope.
  CancellationScope cancellation(stop);
  post(
      stop,
      [](DevFiles& devFiles) {
        devFiles.state_ = State::scanning;
        devFiles.reset();
      },
      [](DevFiles& devFiles, DevFilesScanDelegate& delegate) { delegate.scanStarted(devFiles); });
  for (Location location : locations) {
    if (stop.stop_requested()) return;
    CleanupEntryPtr scanned = scanDetached(location);
    // A location cut short by the stop is incomplete: it is never shown.
    if (stop.stop_requested()) return;
    post(
        stop, [location, scanned = std::move(scanned)](DevFiles& devFiles) { devFiles.install(location, scanned); },
        [location](DevFiles& devFiles, DevFilesScanDelegate& delegate) {
          delegate.locationScanned(devFiles, location);
        });
  }
  post(
      stop,
      [](DevFiles& devFiles) {
        devFiles.updateAppleGroup();
        devFiles.state_ = State::scanComplete;
      },
      [](DevFiles& devFiles, DevFilesScanDelegate& delegate) { delegate.scanFinished(devFiles); });
}

void DevFiles::scanLocation(Location location) { install(location, scanDetached(location)); }

CleanupEntryPtr DevFiles::scanDetached(Location location) const {
  CleanupEntryPtr entry = makeLocationEntry(location);
  switch (location) {
    case Location::deviceSupport:
      entry->addItems(scanDeviceSupport(*this));
      break;
    case Location::archives:
      entry->addItems(scanArchives(*this));
      break;
    case Location::derivedData:
      entry->addItems(scanDerivedData(*this));
      break;
    case Location::documentationCache:
      entry->addItems(scanDocumentationCache(*this));
      break;
    case Location::userDataCache:
      entry->addItems(scanUserDataCache(*this));
      break;
    case Location::logs:
      entry->addItems(scanDeviceLogs(*this));
      break;
    case Location::oldDocumentation:
      entry->addPaths({userDeveloperFolderUrl_ / "Shared" / "Documentation"});
      break;
    case Location::simulators: {
      std::vector<CleanupEntryPtr> items = scanUnavailableSimulators(*this);
      for (auto& clone : scanXCTestClones(*this)) items.push_back(std::move(clone));
      for (auto& cache : scanDyldCaches(*this)) items.push_back(std::move(cache));
      entry->addItems(items);
      break;
    }
    case Location::simulatorRuntimes:
      entry->addItems(scanSimulatorRuntimes(*this));
      break;
    case Location::packageCaches:
      entry->addItems(scanCatalogue(CatalogueList::packageManagers));
      break;
    case Location::toolCaches:
      entry->addItems(scanCatalogue(CatalogueList::devTools));
      break;
    case Location::ideCaches:
      entry->addItems(scanCatalogue(CatalogueList::ides));
      break;
    case Location::aiCaches:
      entry->addItems(scanCatalogue(CatalogueList::aiTools));
      break;
    case Location::browserCaches:
      entry->addItems(scanCatalogue(CatalogueList::browsers));
      break;
    case Location::appCaches:
      entry->addItems(scanCatalogue(CatalogueList::apps));
      break;
    case Location::cloudStorage:
      entry->addItems(scanCatalogue(CatalogueList::cloudClients));
      entry->addItems(scanCloudFolders());
      break;
    case Location::systemFiles:
      entry->addItems(scanSystemItems());
      break;
    case Location::projectBuilds: {
      std::vector<std::filesystem::path> coveredFolders;
      if (auto folder = customDerivedDataFolderUrl()) coveredFolders.push_back(std::move(*folder));
      if (auto folder = customArchivesFolderUrl()) coveredFolders.push_back(std::move(*folder));
      entry->addItems(scanProjectBuilds(coveredFolders));
      break;
    }
  }

  entry->updateSize();
  entry->updateSelection();
  return entry;
}

void DevFiles::install(Location location, const CleanupEntryPtr& scanned) {
  const CleanupEntryPtr& entry = locations_.at(location);
  entry->clear();
  // Items re-parent themselves to the shown entry as they are added.
  entry->addItems(scanned->items());
  entry->addPaths(scanned->paths());
  entry->setSize(scanned->size());
  // A location with items takes its selection from them; the old documentation downloads have
  // none and keep the selection the user gave the shown entry.
  entry->updateSelection();
  if (static_cast<size_t>(location) < kAppleLocationCount) updateAppleGroup();
}

void DevFiles::updateAppleGroup() {
  updateGroupSize(*appleGroupEntry_);
  appleGroupEntry_->updateSelection();
}

void DevFiles::updateCustomFolders(std::optional<std::filesystem::path> derivedDataFolder,
                                   std::optional<std::filesystem::path> archivesFolder) {
  std::lock_guard lock(customFoldersMutex_);
  stopAccess(customDerivedDataFolderUrl_);
  stopAccess(customArchivesFolderUrl_);
  customDerivedDataFolderUrl_ = std::move(derivedDataFolder);
  customArchivesFolderUrl_ = std::move(archivesFolder);
  startAccess(customDerivedDataFolderUrl_);
  startAccess(customArchivesFolderUrl_);
}

int64_t DevFiles::totalSize() const {
  int64_t total = 0;
  for (const auto& [location, entry] : locations_) total = addSizes(total, entry->size().bytesOrZero());
  return total;
}

}  // namespace tw
