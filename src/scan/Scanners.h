// The scanners the driver runs, one group per source file. Each returns the new entries of
// its location, paths and default selection set, in the order they are shown.
#pragma once

#include <filesystem>
#include <vector>

#include "model/CleanupEntry.h"

namespace tw {

class DevFiles;

// Xcode's developer folder (XcodeScanners.cpp).
std::vector<CleanupEntryPtr> scanDeviceSupport(const DevFiles& devFiles);
std::vector<CleanupEntryPtr> scanArchives(const DevFiles& devFiles);
std::vector<CleanupEntryPtr> scanDerivedData(const DevFiles& devFiles);
std::vector<CleanupEntryPtr> scanDocumentationCache(const DevFiles& devFiles);
std::vector<CleanupEntryPtr> scanUserDataCache(const DevFiles& devFiles);
std::vector<CleanupEntryPtr> scanDeviceLogs(const DevFiles& devFiles);

// Simulators and runtimes (Simulators.cpp).
std::vector<CleanupEntryPtr> scanUnavailableSimulators(const DevFiles& devFiles);
std::vector<CleanupEntryPtr> scanXCTestClones(const DevFiles& devFiles);
std::vector<CleanupEntryPtr> scanDyldCaches(const DevFiles& devFiles);
std::vector<CleanupEntryPtr> scanSimulatorRuntimes(const DevFiles& devFiles);

// The built-in catalogue of tool and app caches (DevCaches.cpp).
enum class CatalogueList { packageManagers, devTools, ides, aiTools, browsers, apps, cloudClients };
std::vector<CleanupEntryPtr> scanCatalogue(CatalogueList list);

// System items and synced cloud folders (SystemItems.cpp).
std::vector<CleanupEntryPtr> scanSystemItems();
std::vector<CleanupEntryPtr> scanCloudFolders();

// Build folders of the user's projects (ProjectBuildsScanner.cpp).
std::vector<CleanupEntryPtr> scanProjectBuilds(const std::vector<std::filesystem::path>& coveredFolders);

}  // namespace tw
