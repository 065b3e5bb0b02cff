// How much disk space deleting an item gives back: the allocated size of every regular file
// below a folder, each multiply-linked file counted once per measurement.
#pragma once

#include <cstdint>
#include <filesystem>

#include "platform/FileIdentity.h"

namespace tw {

// The identities (device, inode) of the multiply-linked files one size calculation has
// already counted. Shared by the parallel measurements of that calculation.
class HardLinkTracker {
 public:
  HardLinkTracker();
  ~HardLinkTracker();
  HardLinkTracker(const HardLinkTracker&) = delete;
  HardLinkTracker& operator=(const HardLinkTracker&) = delete;

  // True when the file was not seen before (count it), false when it was (skip it).
  bool insertIfNew(const FileIdentity& identity);
  size_t size() const;

 private:
  struct Impl;
  Impl* impl_;
};

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
