#include <dirent.h>
#include <unistd.h>

#include <cerrno>

#include "platform/FolderReader.h"

namespace tw {
namespace {

std::vector<FolderRecord>& threadRecords() {
  thread_local std::vector<FolderRecord> records;
  return records;
}

bool isDotOrDotDot(const char* name) {
  return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

}  // namespace

FolderReader::FolderReader(int fd) : fd_(fd), records_(&threadRecords()) {
  // readdir owns the descriptor it reads; the caller keeps its own.
  const int own = ::dup(fd_);
  if (own < 0) {
    error_ = errno;
    return;
  }
  DIR* stream = ::fdopendir(own);
  if (!stream) {
    error_ = errno;
    ::close(own);
    return;
  }
  stream_ = stream;
}

FolderReader::~FolderReader() {
  if (stream_) ::closedir(static_cast<DIR*>(stream_));
}

bool FolderReader::next() {
  records_->clear();
  if (!stream_) return false;
  // A name is only valid until the next readdir, so each batch holds one record.
  errno = 0;
  for (;;) {
    const dirent* record = ::readdir(static_cast<DIR*>(stream_));
    if (!record) {
      error_ = errno;
      return false;
    }
    if (isDotOrDotDot(record->d_name)) continue;
    records_->push_back({record->d_name, record->d_type});
    return true;
  }
}

}  // namespace tw
