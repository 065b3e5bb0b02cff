#include "model/SystemEntries.h"

#include <exception>

#include "fs/DirectorySize.h"
#include "fs/RemoveItem.h"
#include "fs/Shell.h"
#include "platform/AdministratorRunner.h"
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
#if defined(__APPLE__)
  return "/bin/rm -rf -x -- " + quoteForShell(path.string());
#else
  return "/bin/rm -rf --one-file-system --preserve-root=all -- " + quoteForShell(path.string());
#endif
}

void PrivilegedFileEntry::deleteItem(const std::optional<std::filesystem::path>& path) {
  if (!path) return;
  try {
    removeItem(*path);
    return;
  } catch (const RemovalError& error) {
    // Updates and installers usually belong to the system, so a lack of rights is worth a
    // password prompt. Nothing else is: a refusal for safety (a link, another volume, a folder
    // that changed while it was being removed) must stand, and more rights do not bring back
    // a vanished item or make a read-only volume writable. Only the outcome of the second
    // attempt is reported.
    if (error.kind() != RemovalFailure::permission) throw;
  }
  if (const std::filesystem::path remover = installedPrivilegedRemover(); !remover.empty()) {
    Shell::runAsAdministrator(remover.string(), {path->string()});
  } else {
    Shell::runAsAdministrator(privilegedRemovalCommand(*path));
  }
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
