// Linux: mount points are recognised by the kernel's own mount identity, so a bind mount of
// the same file system (same st_dev) is still seen; openat2 resolves a whole path refusing
// links and mount crossings.
#if defined(__linux__)

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <optional>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#if __has_include(<linux/openat2.h>)
#include <linux/openat2.h>
#endif

#include "platform/FolderResolution.h"
#include "platform/FolderResolutionDetail.h"

// Older C libraries lack the names; the values are the kernel's.
#ifndef STATX_MNT_ID
#define STATX_MNT_ID 0x00001000U
#endif
#ifndef STATX_ATTR_MOUNT_ROOT
#define STATX_ATTR_MOUNT_ROOT 0x00002000
#endif

namespace tw {
namespace {

bool statxOf(int fd, unsigned int mask, struct statx& result) {
  return ::statx(fd, "", AT_EMPTY_PATH | AT_SYMLINK_NOFOLLOW | AT_STATX_DONT_SYNC, mask, &result) == 0;
}

std::optional<bool> byMountRootAttribute(int folderFd) {
  struct statx status {};
  if (!statxOf(folderFd, 0, status) || !(status.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT)) return std::nullopt;
  return (status.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
}

std::optional<uint64_t> statxMountId(int fd) {
  struct statx status {};
  if (!statxOf(fd, STATX_MNT_ID, status) || !(status.stx_mask & STATX_MNT_ID)) return std::nullopt;
  return status.stx_mnt_id;
}

// The "mnt_id:" line of /proc/self/fdinfo/<fd>.
std::optional<uint64_t> fdinfoMountId(int fd) {
  char path[64];
  std::snprintf(path, sizeof path, "/proc/self/fdinfo/%d", fd);
  const int info = ::open(path, O_RDONLY | O_CLOEXEC);
  if (info < 0) return std::nullopt;
  char text[512];
  const ssize_t length = ::read(info, text, sizeof text - 1);
  ::close(info);
  if (length <= 0) return std::nullopt;
  text[length] = '\0';
  const char* line = std::strstr(text, "mnt_id:");
  if (!line) return std::nullopt;
  unsigned long long id = 0;
  if (std::sscanf(line, "mnt_id: %llu", &id) != 1) return std::nullopt;
  return id;
}

std::optional<bool> differ(std::optional<uint64_t> a, std::optional<uint64_t> b) {
  if (!a || !b) return std::nullopt;
  return *a != *b;
}

std::optional<bool> byDevice(int parentFd, int folderFd) {
  struct stat parent {};
  struct stat folder {};
  if (::fstat(parentFd, &parent) != 0 || ::fstat(folderFd, &folder) != 0) return std::nullopt;
  return parent.st_dev != folder.st_dev;
}

std::optional<bool> answer(int parentFd, int folderFd, MountDetection method) {
  switch (method) {
    case MountDetection::mountRootAttribute:
      return byMountRootAttribute(folderFd);
    case MountDetection::mountId:
      return differ(statxMountId(parentFd), statxMountId(folderFd));
    case MountDetection::mountInfo:
      return differ(fdinfoMountId(parentFd), fdinfoMountId(folderFd));
    case MountDetection::device:
      return byDevice(parentFd, folderFd);
    case MountDetection::automatic:
      break;
  }
  for (auto each : {MountDetection::mountRootAttribute, MountDetection::mountId, MountDetection::mountInfo,
                    MountDetection::device}) {
    if (auto result = answer(parentFd, folderFd, each)) return result;
  }
  return std::nullopt;
}

}  // namespace

bool isMountRoot(int parentFd, int folderFd, MountDetection method) {
  return answer(parentFd, folderFd, method).value_or(false);
}

bool mountDetectionAvailable(MountDetection method) {
  const int root = ::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (root < 0) return false;
  const bool available = answer(root, root, method).has_value();
  ::close(root);
  return available;
}

namespace folder_resolution_detail {

bool openBeneathInKernel(int anchorFd, std::string_view relative, BeneathResult& result) {
#if defined(SYS_openat2) && defined(RESOLVE_NO_SYMLINKS)
  const std::string path(relative);
  open_how how{};
  how.flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS | RESOLVE_NO_XDEV;
  const long fd = ::syscall(SYS_openat2, anchorFd, path.c_str(), &how, sizeof how);
  if (fd >= 0) {
    result.fd = static_cast<int>(fd);
    return true;
  }
  // Kernels before 5.6, or a sandbox that filters the call: walk by hand.
  if (errno == ENOSYS || errno == EPERM || errno == E2BIG) return false;
  result.error = errno;
  return true;
#else
  (void)anchorFd;
  (void)relative;
  (void)result;
  return false;
#endif
}

}  // namespace folder_resolution_detail
std::vector<std::string> mountPoints() {
  std::vector<std::string> points;
  // /proc/self/mountinfo: the fifth field is the mount point, with blanks, tabs, newlines and
  // backslashes written as octal escapes.
  std::ifstream mountinfo("/proc/self/mountinfo");
  std::string line;
  while (std::getline(mountinfo, line)) {
    std::istringstream fields(line);
    std::string field;
    for (int index = 0; index < 5 && fields >> field; ++index) {
    }
    std::string point;
    for (size_t at = 0; at < field.size(); ++at) {
      if (field[at] == '\\' && at + 3 < field.size()) {
        point += static_cast<char>(std::stoi(field.substr(at + 1, 3), nullptr, 8));
        at += 3;
      } else {
        point += field[at];
      }
    }
    points.push_back(std::move(point));
  }
  return points;
}

}  // namespace tw

#endif
