// The file system's identity of a file: the device that holds it and its inode number, equal
// for every hard link to one file and for a folder reached by two names. One type for every
// place that asks "is this the same file?": counting hard links once, checking that a folder
// opened by name is the one that was looked at, recognising a stored folder or settings file.
#pragma once

#include <sys/stat.h>

#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>

namespace tw {

struct FileIdentity {
  uint64_t device = 0;
  uint64_t inode = 0;

  static FileIdentity of(const struct stat& status) {
    return {static_cast<uint64_t>(status.st_dev), static_cast<uint64_t>(status.st_ino)};
  }

  friend bool operator==(const FileIdentity&, const FileIdentity&) = default;
  friend std::strong_ordering operator<=>(const FileIdentity&, const FileIdentity&) = default;
};

struct FileIdentityHash {
  size_t operator()(const FileIdentity& identity) const noexcept {
    // Inode numbers are dense and devices few: mix them so that neighbouring inodes spread over
    // the buckets (and over the shards of a sharded set) alike.
    uint64_t value = identity.inode * 0x9E3779B97F4A7C15ull;
    value ^= identity.device + 0x632BE59BD9B4E019ull + (value << 6) + (value >> 2);
    value ^= value >> 31;
    return static_cast<size_t>(value);
  }
};

}  // namespace tw

template <>
struct std::hash<tw::FileIdentity> : tw::FileIdentityHash {};
