// The items of an open folder as the kernel reports them, a batch at a time, each with its
// type and without a stat per item: getdents64 on Linux, readdir elsewhere (the build picks
// the file). The hot walks (measurement, the project walk) list every folder through it.
#pragma once

#include <vector>

namespace tw {

struct FolderRecord {
  const char* name;    // valid until the next batch
  unsigned char type;  // DT_DIR, DT_REG, DT_LNK, ... or DT_UNKNOWN when the file system does not say
};

// Reads the folder open at `fd` (which stays the caller's) batch by batch, "." and ".." left
// out. Batches live in a buffer of the calling thread, so a thread reads one folder at a time.
class FolderReader {
 public:
  explicit FolderReader(int fd);
  ~FolderReader();
  FolderReader(const FolderReader&) = delete;
  FolderReader& operator=(const FolderReader&) = delete;

  // The next batch into records(); false at the end of the folder or on an error.
  bool next();
  const std::vector<FolderRecord>& records() const { return *records_; }
  // The errno that ended the listing, 0 when it simply ended.
  int error() const { return error_; }

 private:
  int fd_;
  void* stream_ = nullptr;  // the readdir stream where there is one
  std::vector<FolderRecord>* records_;
  int error_ = 0;
};

}  // namespace tw
