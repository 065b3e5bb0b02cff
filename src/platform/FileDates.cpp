#include "platform/FileDates.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cstdint>

namespace tw {
namespace {

FileDate fromTimestamp(const struct statx_timestamp& stamp) {
  using namespace std::chrono;
  // A clock of nanoseconds spans about 292 years each side of 1970; stamps beyond it are clamped.
  constexpr int64_t limit = duration_cast<seconds>(FileDate::duration::max()).count() - 1;
  if (stamp.tv_sec >= limit) return FileDate::max();
  if (stamp.tv_sec <= -limit) return FileDate::min();
  return FileDate(duration_cast<FileDate::duration>(seconds(stamp.tv_sec) + nanoseconds(stamp.tv_nsec)));
}

}  // namespace

std::optional<FileDate> fileCreationDate(int directoryFd, const char* name) {
  struct statx info {};
  if (statx(directoryFd, name, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, STATX_BTIME | STATX_MTIME, &info) != 0) {
    return std::nullopt;
  }
  if (info.stx_mask & STATX_BTIME) return fromTimestamp(info.stx_btime);
  if (info.stx_mask & STATX_MTIME) return fromTimestamp(info.stx_mtime);
  return std::nullopt;
}

std::optional<FileDate> fileCreationDate(const std::filesystem::path& path) {
  return fileCreationDate(AT_FDCWD, path.c_str());
}

}  // namespace tw
