#include "support/CatalogueFixture.h"

#include <fcntl.h>
#if defined(__linux__)
#include <linux/fs.h>
#include <sys/ioctl.h>
#endif
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <stdexcept>

#include "support/StandInTools.h"

namespace tw::test {
namespace {

// Sets or clears the immutable flag of a folder; false when the file system or the process
// does not allow it.
bool setImmutable(const std::filesystem::path& folder, bool immutable) {
#if defined(__linux__)
  int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return false;
  int flags = 0;
  bool done = ::ioctl(fd, FS_IOC_GETFLAGS, &flags) == 0;
  if (done) {
    flags = immutable ? (flags | FS_IMMUTABLE_FL) : (flags & ~FS_IMMUTABLE_FL);
    done = ::ioctl(fd, FS_IOC_SETFLAGS, &flags) == 0;
  }
  ::close(fd);
  return done;
#else
  struct stat info {};
  if (::lstat(folder.c_str(), &info) != 0) return false;
  return ::chflags(folder.c_str(), immutable ? (info.st_flags | UF_IMMUTABLE) : (info.st_flags & ~UF_IMMUTABLE)) == 0;
#endif
}

}  // namespace

CatalogueFixture::CatalogueFixture() : home_(temp_ / "home"), root_(temp_ / "root") {
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

std::filesystem::path CatalogueFixture::makeFolderWithData(std::string_view folderPattern, size_t bytes) const {
  std::filesystem::path file = at(folderPattern) / "data.bin";
  writeFileOfSize(file, bytes);  // creates the folder
  return file;
}

int64_t allocatedBytes(const std::filesystem::path& file) {
  struct stat info {};
  if (::lstat(file.c_str(), &info) != 0) return -1;
  return static_cast<int64_t>(info.st_blocks) * 512;
}

int64_t blockSize(const std::filesystem::path& folder) {
  struct statvfs info {};
  if (::statvfs(folder.c_str(), &info) != 0) return 4096;
  return static_cast<int64_t>(info.f_bsize);
}

RemovalBlocker::RemovalBlocker(std::filesystem::path folder) : folder_(std::move(folder)) {
  if (::geteuid() == 0) {
    usesImmutableFlag_ = true;
    active_ = setImmutable(folder_, true);
  } else {
    active_ = ::chmod(folder_.c_str(), 0555) == 0;
  }
}

RemovalBlocker::~RemovalBlocker() { lift(); }

std::string RemovalBlocker::liftCommand() const {
#if defined(__linux__)
  const char* clearFlag = "chattr -i ";
#else
  const char* clearFlag = "chflags nouchg ";
#endif
  return (usesImmutableFlag_ ? clearFlag : "chmod u+w ") + shellQuoted(folder_.string());
}

void RemovalBlocker::lift() {
  if (!active_) return;
  usesImmutableFlag_ ? (void)setImmutable(folder_, false) : (void)::chmod(folder_.c_str(), 0755);
  active_ = false;
}

}  // namespace tw::test
