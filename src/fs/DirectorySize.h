// How much disk space deleting an item gives back: the allocated size of every regular file
// below a folder, each multiply-linked file counted once per measurement.
#pragma once

#include <cstdint>
#include <filesystem>
#include <utility>
#include <vector>

#include "platform/FileIdentity.h"

namespace tw {

// A multiply-linked file one measurement counted: its identity and the bytes it was charged.
using LinkedFile = std::pair<FileIdentity, int64_t>;

// The identities (device, inode) of the multiply-linked files one size calculation has
// already counted, with the bytes each was counted for. Shared by the parallel measurements
// of that calculation.
class HardLinkTracker {
 public:
  HardLinkTracker();
  ~HardLinkTracker();
  HardLinkTracker(const HardLinkTracker&) = delete;
  HardLinkTracker& operator=(const HardLinkTracker&) = delete;

  // True when the file was not seen before (count it), false when it was (skip it).
  bool insertIfNew(const FileIdentity& identity, int64_t bytes = 0);
  size_t size() const;
  // Every file held, in no particular order.
  std::vector<LinkedFile> linkedFiles() const;

 private:
  struct Impl;
  Impl* impl_;
};

// What one measurement of an item's paths counted, kept so that a later calculation sharing a
// tracker with other items charges the same files without walking them again: the total and
// the multiply-linked files within it. Memory grows with the multiply-linked files only.
struct MeasurementRecord {
  int64_t total = 0;
  std::vector<LinkedFile> linkedFiles;

  // What walking the measured paths again with `tracker` would count: the total less the
  // linked files the tracker already holds. The tracker holds all of them afterwards.
  int64_t replay(HardLinkTracker& tracker) const;
};

#if defined(TIDEWELL_TEST_HOOKS)
// Called with each folder a size walk starts from, so tests can count the walks of a scan.
// Set it only while no walk runs.
using DirectoryWalkObserver = void (*)(const std::filesystem::path& folder);
void setDirectoryWalkObserver(DirectoryWalkObserver observer);
#endif

// Allocated bytes of every regular file below `folder` (hidden files included, bundles
// descended into, symbolic links never followed). Throws tw::FileSystemError when the folder
// or any folder below it cannot be read; the partial total is then discarded.
int64_t allocatedSizeOfDirectory(const std::filesystem::path& folder, HardLinkTracker* tracker);

// Allocated bytes of one regular file; 0 for anything else. Throws tw::FileSystemError when
// the item cannot be examined.
int64_t allocatedSizeOfFile(const std::filesystem::path& file);

// How callers measure one path: the folder measurement, else the file's own size, else 0.
int64_t measurePath(const std::filesystem::path& path, HardLinkTracker* tracker);

// Free space on the volume holding `path`; 0 (and a warning in the log) when unknown.
int64_t volumeAvailableCapacity(const std::filesystem::path& path);

}  // namespace tw
