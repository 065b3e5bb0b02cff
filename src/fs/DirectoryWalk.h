// The walk behind the folder measurement: every regular file below a folder, read through
// directory descriptors (openat/fstatat relative to the parent, never following a link), with
// an explicit stack instead of recursion and a bounded number of open descriptors, so a tree
// of any depth or width is measured without exhausting the stack or the descriptor table.
#pragma once

#include <cstdint>
#include <filesystem>

namespace tw {

class HardLinkTracker;
class ThreadPool;

enum class WalkMode {
  sequential,  // the calling thread alone
  parallel,    // idle threads of the pool take pending subfolders
};

// allocatedSizeOfDirectory with the walk chosen explicitly; parallel walks use `pool` (the
// shared pool when null). Both walks give the same total.
int64_t allocatedSizeOfDirectory(const std::filesystem::path& folder, HardLinkTracker* tracker, WalkMode mode,
                                 ThreadPool* pool = nullptr);

}  // namespace tw
