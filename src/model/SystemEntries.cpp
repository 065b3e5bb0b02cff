#include "model/SystemEntries.h"

#include <exception>

#include "fs/DirectorySize.h"
#include "fs/RemoveItem.h"
#include "fs/Shell.h"
#include "model/SystemImages.h"

namespace tw {
namespace {

const char* const kSnapshotTooltip =
    "Local APFS snapshot made by Time Machine. macOS purges them automatically when disk space is needed; deleting "
    "frees the space immediately. Size of individual snapshots cannot be determined.";

}  // namespace

TimeMachineSnapshotFileEntry::TimeMachineSnapshotFileEntry(std::string snapshotDate, bool selected)
    : CleanupEntry("Snapshot " + snapshotDate, "", std::string(kSnapshotTooltip), Icon::system(systemImage::computer),
                   true, selected),
      snapshotDate_(std::move(snapshotDate)) {}

// The system does not tell how much space one snapshot holds: the size stays as it is (unknown).
std::optional<CleanupEntry::Size> TimeMachineSnapshotFileEntry::calculateSize(HardLinkTracker&) { return size(); }

void TimeMachineSnapshotFileEntry::deleteItem(const std::optional<std::filesystem::path>&) {
  Shell::Result result = Shell::run("/usr/bin/tmutil", {"deletelocalsnapshots", snapshotDate_});
  if (result.status != 0) {
    throw Shell::CommandError("tmutil deletelocalsnapshots " + snapshotDate_, std::move(result.output));
  }
}

std::string privilegedRemovalCommand(const std::filesystem::path& path) {
  std::string quoted = "'";
  for (char character : path.string()) {
    if (character == '\'') {
      quoted += "'\\''";
    } else {
      quoted += character;
    }
  }
  quoted += "'";
  return "/bin/rm -rf " + quoted;
}

void PrivilegedFileEntry::deleteItem(const std::optional<std::filesystem::path>& path) {
  if (!path) return;
  try {
    removeItem(*path);
    return;
  } catch (const std::exception&) {
    // Updates and installers usually belong to the system: try again with administrator
    // rights. Only the outcome of that second attempt is reported.
  }
  Shell::runAsAdministrator(privilegedRemovalCommand(*path));
}

CloudSyncFolderEntry::CloudSyncFolderEntry(std::string label, std::filesystem::path folderUrl, std::string tooltipText)
    : CleanupEntry(std::move(label), "", std::move(tooltipText), Icon::system(systemImage::network), true, false),
      folderUrl_(std::move(folderUrl)) {}

std::optional<CleanupEntry::Size> CloudSyncFolderEntry::calculateSize(HardLinkTracker& tracker) {
  try {
    setSize(Size::value(allocatedSizeOfDirectory(folderUrl_, &tracker)));
  } catch (const std::exception&) {
    // An unreadable synced folder keeps an unknown size; it is only shown, never cleaned.
  }
  return std::nullopt;
}

std::optional<CleanupEntry::Size> CloudSyncFolderEntry::sizeOrCalculate(HardLinkTracker& tracker) {
  if (size().isUnknown()) calculateSize(tracker);
  return std::nullopt;
}

}  // namespace tw
