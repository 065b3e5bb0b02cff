#include <dirent.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "platform/FolderReader.h"

namespace tw {
namespace {

// Large enough that most folders come back in one system call.
constexpr size_t kBufferSize = 128 * 1024;

// The kernel's linux_dirent64 record: inode (8 bytes), offset (8), record length (2), type (1),
// then the NUL-terminated name.
constexpr size_t kRecordLengthOffset = 16;
constexpr size_t kTypeOffset = 18;
constexpr size_t kNameOffset = 19;

struct ThreadBatch {
  std::unique_ptr<char[]> buffer{new char[kBufferSize]};
  std::vector<FolderRecord> records;
};

ThreadBatch& threadBatch() {
  thread_local ThreadBatch batch;
  return batch;
}

bool isDotOrDotDot(const char* name) {
  return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

}  // namespace

FolderReader::FolderReader(int fd) : fd_(fd), records_(&threadBatch().records) {}

FolderReader::~FolderReader() = default;

bool FolderReader::next() {
  ThreadBatch& batch = threadBatch();
  batch.records.clear();
  for (;;) {
    const long count = ::syscall(SYS_getdents64, fd_, batch.buffer.get(), kBufferSize);
    if (count < 0) {
      if (errno == EINTR) continue;
      error_ = errno;
      return false;
    }
    if (count == 0) return false;
    for (long offset = 0; offset < count;) {
      const char* record = batch.buffer.get() + offset;
      unsigned short length = 0;
      std::memcpy(&length, record + kRecordLengthOffset, sizeof length);
      offset += length;
      const char* name = record + kNameOffset;
      if (!isDotOrDotDot(name)) batch.records.push_back({name, static_cast<unsigned char>(record[kTypeOffset])});
    }
    // A batch of only "." and ".." is not the end of the folder.
    if (!batch.records.empty()) return true;
  }
}

}  // namespace tw
