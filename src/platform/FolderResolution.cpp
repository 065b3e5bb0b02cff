#include "platform/FolderResolution.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/FolderResolutionDetail.h"

namespace tw {

namespace {
constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
}

BeneathResult openFolderBeneath(int anchorFd, std::string_view relative, BeneathResolution resolution) {
  BeneathResult result;
  if (relative.empty()) {
    result.fd = ::openat(anchorFd, ".", kFolderFlags);
    if (result.fd < 0) result.error = errno;
    return result;
  }
  // The kernel resolves the whole path at once where it can; a failure is walked again by
  // hand, to name the link or mount point that caused it (a final link reads as ENOTDIR there).
  if (resolution == BeneathResolution::automatic &&
      folder_resolution_detail::openBeneathInKernel(anchorFd, relative, result) && result.fd >= 0) {
    return result;
  }
  result = {};
  int current = anchorFd;
  size_t start = 0;
  while (start < relative.size()) {
    size_t end = relative.find('/', start);
    if (end == std::string_view::npos) end = relative.size();
    const std::string name(relative.substr(start, end - start));
    start = end + 1;
    if (name.empty()) continue;
    int next = -1;
    int error = 0;
    if (name == "." || name == "..") {
      error = EINVAL;
    } else {
      next = ::openat(current, name.c_str(), kFolderFlags);
      if (next < 0) {
        error = errno;
        struct stat status {};
        if (::fstatat(current, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(status.st_mode)) {
          error = ELOOP;
        }
      } else if (isMountRoot(current, next)) {
        ::close(next);
        next = -1;
        error = EXDEV;
      }
    }
    if (current != anchorFd) ::close(current);
    if (next < 0) {
      result.error = error;
      result.component = name;
      return result;
    }
    current = next;
  }
  if (current == anchorFd) {
    current = ::openat(anchorFd, ".", kFolderFlags);
    if (current < 0) result.error = errno;
  }
  result.fd = current;
  return result;
}

}  // namespace tw
