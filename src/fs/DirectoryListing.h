// Reads the entries of an open directory straight from the kernel (getdents64 on Linux,
// readdir elsewhere) with their types, without a stat per entry. The hot walks use it.
#pragma once

#include <dirent.h>

#include <cstddef>
#include <memory>
#include <string_view>

namespace tw {

class DirectoryListing {
 public:
  // Reads from `directoryFd`, which stays owned by the caller and must outlive the listing.
  explicit DirectoryListing(int directoryFd);
  ~DirectoryListing();
  DirectoryListing(const DirectoryListing&) = delete;
  DirectoryListing& operator=(const DirectoryListing&) = delete;

  struct Entry {
    std::string_view name;  // valid until the next call of next()
    unsigned char type;     // DT_DIR, DT_REG, DT_LNK, ... or DT_UNKNOWN
  };

  // The next entry other than "." and ".."; false at the end or on an error (see error()).
  bool next(Entry& entry);
  // errno of the failure that ended the listing, 0 when it ended normally.
  int error() const { return error_; }

 private:
  bool refill();

  int fd_;
  int error_ = 0;
#if defined(__linux__)
  std::unique_ptr<char[]> buffer_;
  size_t filled_ = 0;
  size_t offset_ = 0;
  bool exhausted_ = false;
#else
  DIR* dir_ = nullptr;
#endif
};

}  // namespace tw
