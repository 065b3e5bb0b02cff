#include "platform/Bookmark.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>

#include "platform/Error.h"
#include "platform/FileIdentity.h"

// Sandboxed macOS builds need the security-scoped variant of this (CFURLCreateBookmarkData with
// kCFURLBookmarkCreationWithSecurityScope and its resolving counterpart) behind the same two
// functions; the identity bookmark below is what a build without a sandbox uses on both systems.
//
// Layout, integers little-endian:
//   "TWBOOKMK"  magic (8 bytes)
//   u32         format version (1)
//   u64 u64     device, inode
//   u8          1 when a creation time follows the flags, else 0
//   i64 u32     creation time: seconds, nanoseconds
//   u32         length of the path, then the path's bytes
//   32 bytes    SHA-256 of everything before it
// The checksum turns a damaged blob into a clear error instead of a wrong folder.

namespace tw::Bookmark {
namespace {

constexpr std::string_view kMagic = "TWBOOKMK";
constexpr uint32_t kVersion = 1;
constexpr size_t kDigestSize = 32;
// No real path comes near this; a larger length means a damaged blob.
constexpr uint32_t kMaxPathLength = 1 << 20;

// The file's identity plus its creation time, which tells a folder apart from a later one that
// reuses its inode number.
struct Identity {
  FileIdentity file;
  bool hasCreationTime = false;
  int64_t creationSeconds = 0;
  uint32_t creationNanoseconds = 0;
};

std::string quotedName(const std::filesystem::path& path) { return "\u201C" + path.filename().string() + "\u201D"; }

// Identity of what `path` names, following links (the folder as the user sees it).
Identity identityOf(const std::filesystem::path& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) {
    const int code = errno;
    if (code == ENOENT || code == ENOTDIR) {
      throw FileSystemError("The file " + quotedName(path) + " couldn\u2019t be opened because it doesn\u2019t exist.",
                            code, path);
    }
    throw FileSystemError(
        "The file " + quotedName(path) + " couldn\u2019t be opened. (" + std::generic_category().message(code) + ")",
        code, path);
  }
  Identity identity;
  identity.file = FileIdentity::of(status);
#if defined(__APPLE__)
  identity.hasCreationTime = true;
  identity.creationSeconds = status.st_birthtimespec.tv_sec;
  identity.creationNanoseconds = static_cast<uint32_t>(status.st_birthtimespec.tv_nsec);
#elif defined(STATX_BTIME)
  struct statx extended {};
  if (::statx(AT_FDCWD, path.c_str(), 0, STATX_BTIME, &extended) == 0 && (extended.stx_mask & STATX_BTIME)) {
    identity.hasCreationTime = true;
    identity.creationSeconds = extended.stx_btime.tv_sec;
    identity.creationNanoseconds = extended.stx_btime.tv_nsec;
  }
#endif
  return identity;
}

std::array<uint8_t, kDigestSize> sha256(const uint8_t* data, size_t size) {
  std::array<uint8_t, kDigestSize> digest{};
  unsigned int length = 0;
  if (!EVP_Digest(data, size, digest.data(), &length, EVP_sha256(), nullptr) || length != kDigestSize) {
    throw Error("The bookmark couldn\u2019t be checked because SHA-256 is not available.");
  }
  return digest;
}

class Writer {
 public:
  void bytes(const void* data, size_t size) {
    const auto* begin = static_cast<const uint8_t*>(data);
    out_.insert(out_.end(), begin, begin + size);
  }
  template <class T>
  void integer(T value) {
    auto bits = static_cast<std::make_unsigned_t<T>>(value);
    for (size_t index = 0; index < sizeof(T); ++index) out_.push_back(static_cast<uint8_t>(bits >> (8 * index)));
  }
  std::vector<uint8_t>& result() { return out_; }

 private:
  std::vector<uint8_t> out_;
};

class Reader {
 public:
  Reader(const uint8_t* data, size_t size) : data_(data), size_(size) {}
  bool bytes(void* out, size_t size) {
    if (size_ - offset_ < size) return false;
    std::memcpy(out, data_ + offset_, size);
    offset_ += size;
    return true;
  }
  template <class T>
  bool integer(T& value) {
    if (size_ - offset_ < sizeof(T)) return false;
    std::make_unsigned_t<T> bits = 0;
    for (size_t index = 0; index < sizeof(T); ++index) {
      bits |= static_cast<std::make_unsigned_t<T>>(data_[offset_ + index]) << (8 * index);
    }
    offset_ += sizeof(T);
    value = static_cast<T>(bits);
    return true;
  }
  bool atEnd() const { return offset_ == size_; }

 private:
  const uint8_t* data_;
  size_t size_;
  size_t offset_ = 0;
};

[[noreturn]] void corrupt() {
  throw Error("The bookmark couldn\u2019t be resolved because its data isn\u2019t in the correct format.");
}

}  // namespace

std::vector<uint8_t> create(const std::filesystem::path& folder) {
  std::error_code error;
  std::filesystem::path absolute = std::filesystem::absolute(folder, error);
  if (error)
    throw FileSystemError("The file " + quotedName(folder) + " couldn\u2019t be opened.", error.value(), folder);
  absolute = absolute.lexically_normal();
  const std::string& path = absolute.native();
  if (path.size() > 1 && path.back() == '/') absolute = path.substr(0, path.size() - 1);
  const Identity identity = identityOf(absolute);

  Writer writer;
  writer.bytes(kMagic.data(), kMagic.size());
  writer.integer(kVersion);
  writer.integer(identity.file.device);
  writer.integer(identity.file.inode);
  writer.integer(static_cast<uint8_t>(identity.hasCreationTime ? 1 : 0));
  writer.integer(identity.creationSeconds);
  writer.integer(identity.creationNanoseconds);
  writer.integer(static_cast<uint32_t>(absolute.native().size()));
  writer.bytes(absolute.native().data(), absolute.native().size());
  const auto digest = sha256(writer.result().data(), writer.result().size());
  writer.bytes(digest.data(), digest.size());
  return std::move(writer.result());
}

Resolved resolve(const std::vector<uint8_t>& blob) {
  if (blob.size() < kMagic.size() + kDigestSize) corrupt();
  const size_t bodySize = blob.size() - kDigestSize;
  const auto digest = sha256(blob.data(), bodySize);
  if (std::memcmp(digest.data(), blob.data() + bodySize, kDigestSize) != 0) corrupt();
  Reader reader(blob.data(), bodySize);
  char magic[kMagic.size()];
  uint32_t version = 0;
  Identity recorded;
  uint8_t flags = 0;
  uint32_t pathLength = 0;
  if (!reader.bytes(magic, sizeof magic) || std::string_view(magic, sizeof magic) != kMagic) corrupt();
  if (!reader.integer(version)) corrupt();
  if (version != kVersion) {
    throw Error("The bookmark couldn\u2019t be resolved because it was made by a newer version of Tidewell.");
  }
  if (!reader.integer(recorded.file.device) || !reader.integer(recorded.file.inode) || !reader.integer(flags) ||
      !reader.integer(recorded.creationSeconds) || !reader.integer(recorded.creationNanoseconds) ||
      !reader.integer(pathLength) || flags > 1 || pathLength == 0 || pathLength > kMaxPathLength) {
    corrupt();
  }
  recorded.hasCreationTime = flags == 1;
  std::string path(pathLength, '\0');
  if (!reader.bytes(path.data(), pathLength) || !reader.atEnd() || path.front() != '/' ||
      path.find('\0') != std::string::npos) {
    corrupt();
  }

  Resolved resolved{path, false};
  const Identity current = identityOf(resolved.path);
  resolved.isStale = current.file != recorded.file ||
                     (current.hasCreationTime && recorded.hasCreationTime &&
                      (current.creationSeconds != recorded.creationSeconds ||
                       current.creationNanoseconds != recorded.creationNanoseconds));
  return resolved;
}

}  // namespace tw::Bookmark
