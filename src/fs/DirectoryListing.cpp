#include "fs/DirectoryListing.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#if defined(__linux__)
#include <sys/syscall.h>
#endif

namespace tw {
namespace {

bool isDotOrDotDot(const char* name) {
  return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

}  // namespace

#if defined(__linux__)

namespace {
// Large enough that most folders come back in one system call.
constexpr size_t kBufferSize = 64 * 1024;

// Layout of a linux_dirent64 record: d_ino (8 bytes), d_off (8), d_reclen (2), d_type (1),
// then the NUL-terminated name.
constexpr size_t kRecordLengthOffset = 16;
constexpr size_t kTypeOffset = 18;
constexpr size_t kNameOffset = 19;
}  // namespace

DirectoryListing::DirectoryListing(int directoryFd) : fd_(directoryFd), buffer_(new char[kBufferSize]) {}

DirectoryListing::~DirectoryListing() = default;

bool DirectoryListing::refill() {
  if (exhausted_) return false;
  for (;;) {
    long read = ::syscall(SYS_getdents64, fd_, buffer_.get(), kBufferSize);
    if (read < 0) {
      if (errno == EINTR) continue;
      error_ = errno;
      exhausted_ = true;
      return false;
    }
    if (read == 0) {
      exhausted_ = true;
      return false;
    }
    filled_ = static_cast<size_t>(read);
    offset_ = 0;
    return true;
  }
}

bool DirectoryListing::next(Entry& entry) {
  for (;;) {
    if (offset_ >= filled_ && !refill()) return false;
    const char* record = buffer_.get() + offset_;
    unsigned short length = 0;
    std::memcpy(&length, record + kRecordLengthOffset, sizeof length);
    offset_ += length;
    const char* name = record + kNameOffset;
    if (isDotOrDotDot(name)) continue;
    entry.name = std::string_view(name);
    entry.type = static_cast<unsigned char>(record[kTypeOffset]);
    return true;
  }
}

#else

DirectoryListing::DirectoryListing(int directoryFd) : fd_(directoryFd) {
  // fdopendir takes the descriptor over; give it a copy so the caller's stays usable.
  int copy = ::fcntl(directoryFd, F_DUPFD_CLOEXEC, 0);
  if (copy < 0) {
    error_ = errno;
    return;
  }
  dir_ = ::fdopendir(copy);
  if (!dir_) {
    error_ = errno;
    ::close(copy);
  }
}

DirectoryListing::~DirectoryListing() {
  if (dir_) ::closedir(dir_);
}

bool DirectoryListing::refill() { return false; }

bool DirectoryListing::next(Entry& entry) {
  if (!dir_) return false;
  for (;;) {
    errno = 0;
    dirent* record = ::readdir(dir_);
    if (!record) {
      error_ = errno;
      return false;
    }
    if (isDotOrDotDot(record->d_name)) continue;
    entry.name = std::string_view(record->d_name);
    entry.type = record->d_type;
    return true;
  }
}

#endif

}  // namespace tw
