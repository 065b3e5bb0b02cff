// The parts of the system-item and cloud-folder scans, one function per source, so that each
// can be exercised on its own. scanSystemItems() and scanCloudFolders() (Scanners.h) put them
// together.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "model/CleanupEntry.h"

namespace tw::SystemItems {

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
