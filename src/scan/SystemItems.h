// The parts of the system-item and cloud-folder scans, one function per source, so that each
// can be exercised on its own. scanSystemItems() and scanCloudFolders() (Scanners.h) put them
// together.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "model/CleanupEntry.h"

namespace tw::SystemItems {

// A folder of system items that may need administrator rights to remove (downloaded OS
// updates, full OS installers) and which of its items the scan lists. The privileged remover
// accepts exactly these items and nothing else, so the scan and the remover read this one table.
struct PrivilegedLocation {
  const char* folder;                        // absolute system path, found through the host
  bool (*listsItem)(std::string_view name);  // the item names the scan lists (never hidden ones)
  const char* tooltip;                       // tooltip text of each listed item
  bool showsPath;                            // whether an item shows its path as extra information
};

// The privileged locations in the order the scan lists their items.
std::span<const PrivilegedLocation> privilegedLocations();

// Snapshot date stamps from the output of "tmutil listlocalsnapshots /", in output order.
std::vector<std::string> parseLocalSnapshots(std::string_view listing);

// The "Time Machine Local Snapshots" group, or null when tmutil lists none (or is missing).
CleanupEntryPtr timeMachineSnapshots();
// The "Trash" entry when the home folder's .Trash holds at least 1 MiB, else null.
CleanupEntryPtr trash();
// Groups of measured items of at least 1 MiB, largest first; null when nothing is left.
CleanupEntryPtr updatesAndInstallers();
CleanupEntryPtr deviceBackups();
// The device backups before measuring, labelled from their Info.plist, in name order.
std::vector<CleanupEntryPtr> deviceBackupEntries();
CleanupEntryPtr userLogs();

// The label of a synced folder from its last path component ("OneDrive-Personal" shows as
// "OneDrive – Personal").
std::string cloudDisplayName(std::string_view folderName);

}  // namespace tw::SystemItems
