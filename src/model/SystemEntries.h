// Entry kinds of the system items and the synced cloud folders: local Time Machine snapshots
// (deleted with tmutil), items that may need administrator rights to delete (OS updates and
// installers), and synced cloud folders, which are shown with their size for reference but
// can never be ticked, counted or deleted.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "model/CleanupEntry.h"

namespace tw {

// One local snapshot; it has no path and no measurable size.
class TimeMachineSnapshotFileEntry : public CleanupEntry {
 public:
  TimeMachineSnapshotFileEntry(std::string snapshotDate, bool selected);

  // The date stamp between "com.apple.TimeMachine." and ".local" in the snapshot's name.
  const std::string& snapshotDate() const { return snapshotDate_; }

  bool isEmpty() const override { return false; }
  bool hasPaths() const override { return true; }
  std::optional<Size> calculateSize(HardLinkTracker& tracker) override;
  // Runs "tmutil deletelocalsnapshots <date>"; throws Shell::CommandError when it fails.
  void deleteItem(const std::optional<std::filesystem::path>& path) override;

 private:
  std::string snapshotDate_;
};

// An item that the user may not own: removed plainly when possible; when that fails for lack of
// rights only, removed with administrator rights after the system's credential prompt, by the
// installed privileged remover or, where there is none (a development build), by "/bin/rm -rf"
// kept on one file system.
class PrivilegedFileEntry : public CleanupEntry {
 public:
  using CleanupEntry::CleanupEntry;
  void deleteItem(const std::optional<std::filesystem::path>& path) override;
};

// The shell command that removes `path` with administrator rights where no privileged remover
// is installed: rm kept on the item's own file system (-x on macOS; --one-file-system on Linux,
// with --preserve-root=all so that an item that is itself a mount point is refused), the path
// in single quotes, each single quote inside it written as '\''.
std::string privilegedRemovalCommand(const std::filesystem::path& path);

// A folder kept in sync by a cloud client. Its size is measured and shown but never
// contributes to its parent's size or to the selected total.
class CloudSyncFolderEntry : public CleanupEntry {
 public:
  CloudSyncFolderEntry(std::string label, std::filesystem::path folderUrl, std::string tooltipText);

  const std::filesystem::path& folderUrl() const { return folderUrl_; }

  bool isEmpty() const override { return false; }
  bool hasPaths() const override { return false; }
  std::vector<std::filesystem::path> displayPaths() const override { return {folderUrl_}; }
  void deleteItem(const std::optional<std::filesystem::path>&) override {}
  void select() override {}
  // Measures the folder into size() (unknown when it cannot be read) and contributes nothing.
  std::optional<Size> calculateSize(HardLinkTracker& tracker) override;
  std::optional<Size> sizeOrCalculate(HardLinkTracker& tracker) override;

 private:
  std::filesystem::path folderUrl_;
};

}  // namespace tw
