// Reads the items of an open folder straight from the kernel (getdents64 on Linux, readdir
// elsewhere) together with their types, without a stat per item. The hot walks (measurement,
// the project walk) list every folder through it.
#pragma once

#include <dirent.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

#if defined(__linux__)
#include <sys/syscall.h>
#endif

namespace tw {

namespace listing_detail {
// Large enough that most folders come back in one system call; one per thread, so listing
// allocates nothing.
constexpr size_t kBufferSize = 128 * 1024;
char* threadBuffer();

inline bool isDotOrDotDot(const char* name) {
  return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}
}  // namespace listing_detail

// Calls entry(const char* name, unsigned char type) for every item of the open folder `fd`
// other than "." and ".."; `type` is DT_DIR, DT_REG, DT_LNK, ... or DT_UNKNOWN when the file
// system does not say. The folder descriptor stays the caller's. Returns 0, or the errno that
// ended the listing.
template <typename Entry>
int listFolder(int fd, Entry&& entry) {
#if defined(__linux__)
  // The kernel's linux_dirent64 record: inode (8 bytes), offset (8), record length (2), type
  // (1), then the NUL-terminated name.
  constexpr size_t kRecordLengthOffset = 16;
  constexpr size_t kTypeOffset = 18;
  constexpr size_t kNameOffset = 19;
  char* buffer = listing_detail::threadBuffer();
  for (;;) {
    const long count = ::syscall(SYS_getdents64, fd, buffer, listing_detail::kBufferSize);
    if (count < 0) {
      if (errno == EINTR) continue;
      return errno;
    }
    if (count == 0) return 0;
    for (long offset = 0; offset < count;) {
      const char* record = buffer + offset;
      unsigned short length = 0;
      std::memcpy(&length, record + kRecordLengthOffset, sizeof length);
      offset += length;
      const char* name = record + kNameOffset;
      if (listing_detail::isDotOrDotDot(name)) continue;
      entry(name, static_cast<unsigned char>(record[kTypeOffset]));
    }
  }
#else
  const int own = ::dup(fd);
  if (own < 0) return errno;
  DIR* dir = ::fdopendir(own);
  if (!dir) {
    const int error = errno;
    ::close(own);
    return error;
  }
  int result = 0;
  for (;;) {
    errno = 0;
    const dirent* record = ::readdir(dir);
    if (!record) {
      result = errno;
      break;
    }
    if (listing_detail::isDotOrDotDot(record->d_name)) continue;
    entry(record->d_name, record->d_type);
  }
  ::closedir(dir);
  return result;
#endif
}

}  // namespace tw
