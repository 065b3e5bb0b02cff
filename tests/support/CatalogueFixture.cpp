#include "support/CatalogueFixture.h"

#include <fcntl.h>
#if defined(__linux__)
#include <linux/fs.h>
#include <sys/ioctl.h>
#endif
#include <sys/stat.h>
#include <unistd.h>

#include <stdexcept>

#include "support/StandInTools.h"

namespace tw::test {
namespace {

// Sets or clears the immutable flag of a folder; false when the file system or the process does not allow it.
bool setImmutable(const std::filesystem::path& folder, bool immutable) {
#if defined(__linux__)
  const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  int flags = 0;
  bool done = fd >= 0 && ::ioctl(fd, FS_IOC_GETFLAGS, &flags) == 0;
  flags = immutable ? (flags | FS_IMMUTABLE_FL) : (flags & ~FS_IMMUTABLE_FL);
  done = done && ::ioctl(fd, FS_IOC_SETFLAGS, &flags) == 0;
  if (fd >= 0) ::close(fd);
  return done;
#else
  struct stat info {};
  if (::lstat(folder.c_str(), &info) != 0) return false;
  return ::chflags(folder.c_str(), immutable ? (info.st_flags | UF_IMMUTABLE) : (info.st_flags & ~UF_IMMUTABLE)) == 0;
#endif
}

}  // namespace

CatalogueFixture::CatalogueFixture() {
  std::filesystem::create_directories(home_);
  std::filesystem::create_directories(root_);
  host_.emplace(
      Host{.home = home_, .root = root_, .temporaryDirectory = root_ / "tmp", .configDirectory = home_ / ".config"});
}

std::filesystem::path CatalogueFixture::at(std::string_view pattern) const {
  if (pattern.starts_with("~/")) return home_ / std::string(pattern.substr(2));
  if (pattern == "~") return home_;
  if (pattern.starts_with('/')) return root_ / std::string(pattern.substr(1));
  throw std::invalid_argument("not a home or system path: " + std::string(pattern));
}

std::filesystem::path CatalogueFixture::file(std::string_view pattern, size_t bytes) const {
  const std::filesystem::path path = at(pattern);
  writeFileOfSize(path, bytes);
  return path;
}

int64_t allocatedBytes(const std::filesystem::path& file) {
  struct stat info {};
  return ::lstat(file.c_str(), &info) == 0 ? static_cast<int64_t>(info.st_blocks) * 512 : -1;
}

RemovalBlocker::RemovalBlocker(std::filesystem::path folder)
    : folder_(std::move(folder)), usesImmutableFlag_(::geteuid() == 0) {
  active_ = usesImmutableFlag_ ? setImmutable(folder_, true) : ::chmod(folder_.c_str(), 0555) == 0;
}

void RemovalBlocker::lift() {
  if (!active_) return;
  usesImmutableFlag_ ? (void)setImmutable(folder_, false) : (void)::chmod(folder_.c_str(), 0755);
  active_ = false;
}

std::string RemovalBlocker::liftCommand() const {
#if defined(__linux__)
  const char* clearFlag = "chattr -i ";
#else
  const char* clearFlag = "chflags nouchg ";
#endif
  return (usesImmutableFlag_ ? clearFlag : "chmod u+w ") + shellQuoted(folder_.string());
}

}  // namespace tw::test
