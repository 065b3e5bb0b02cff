#include "fs/DirectorySize.h"

#include <sys/stat.h>
#include <sys/statvfs.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <limits>
#include <mutex>
#include <string>
#include <unordered_map>

#include "fs/DirectoryWalk.h"
#include "platform/Error.h"
#include "platform/Log.h"

namespace tw {

namespace {

// Several threads measuring one tree insert at once; a lock per shard keeps them from queueing
// behind one another.
constexpr size_t kShardCount = 32;

struct alignas(64) Shard {
  std::mutex mutex;
  std::unordered_map<FileIdentity, int64_t, FileIdentityHash> seen;
};

}  // namespace

struct HardLinkTracker::Impl {
  Shard shards[kShardCount];
};

HardLinkTracker::HardLinkTracker() : impl_(new Impl) {}

HardLinkTracker::~HardLinkTracker() { delete impl_; }

bool HardLinkTracker::insertIfNew(const FileIdentity& identity, int64_t bytes) {
  const size_t hash = FileIdentityHash{}(identity);
  Shard& shard = impl_->shards[(hash >> 7) % kShardCount];
  std::lock_guard lock(shard.mutex);
  return shard.seen.emplace(identity, bytes).second;
}

size_t HardLinkTracker::size() const {
  size_t count = 0;
  for (Shard& shard : impl_->shards) {
    std::lock_guard lock(shard.mutex);
    count += shard.seen.size();
  }
  return count;
}

std::vector<LinkedFile> HardLinkTracker::linkedFiles() const {
  std::vector<LinkedFile> files;
  for (Shard& shard : impl_->shards) {
    std::lock_guard lock(shard.mutex);
    files.insert(files.end(), shard.seen.begin(), shard.seen.end());
  }
  return files;
}

int64_t MeasurementRecord::replay(HardLinkTracker& tracker) const {
  int64_t bytes = total;
  for (const auto& [identity, fileBytes] : linkedFiles) {
    if (!tracker.insertIfNew(identity, fileBytes)) bytes -= fileBytes;
  }
  return bytes;
}

int64_t allocatedSizeOfDirectory(const std::filesystem::path& folder, HardLinkTracker* tracker) {
  return allocatedSizeOfDirectory(folder, tracker, WalkMode::parallel);
}

int64_t allocatedSizeOfFile(const std::filesystem::path& file) {
  struct stat status {};
  if (::lstat(file.c_str(), &status) != 0) {
    const int code = errno;
    throw FileSystemError("Cannot read the attributes of \"" + file.string() + "\": " + std::strerror(code), code,
                          file);
  }
  if (!S_ISREG(status.st_mode)) return 0;
  return static_cast<int64_t>(status.st_blocks) * 512;
}

int64_t measurePath(const std::filesystem::path& path, HardLinkTracker* tracker) {
  try {
    return allocatedSizeOfDirectory(path, tracker);
  } catch (const Error&) {
  }
  try {
    return allocatedSizeOfFile(path);
  } catch (const Error&) {
  }
  return 0;
}

int64_t volumeAvailableCapacity(const std::filesystem::path& path) {
  struct statvfs volume {};
  if (::statvfs(path.c_str(), &volume) != 0) {
    const int code = errno;
    const FileSystemError error("Cannot read the volume holding \"" + path.string() + "\": " + std::strerror(code),
                                code, path);
    log::warning(std::string("FileManager+DirectorySize: Problem while requesting volume capacity: ") + error.what());
    return 0;
  }
  int64_t bytes = 0;
  if (__builtin_mul_overflow(static_cast<int64_t>(volume.f_bavail), static_cast<int64_t>(volume.f_frsize), &bytes)) {
    return std::numeric_limits<int64_t>::max();
  }
  return bytes;
}

}  // namespace tw
