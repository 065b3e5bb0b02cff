// Systems other than Linux (macOS): no bind mounts, so a folder on another device is a mount
// point and one on the same device is not; paths are resolved component by component.
#if !defined(__linux__)

#include "platform/FolderResolution.h"

#include <sys/mount.h>
#include <sys/param.h>
#include <sys/stat.h>

#include "platform/FolderResolutionDetail.h"

namespace tw {

bool isMountRoot(int parentFd, int folderFd, MountDetection method) {
  if (method != MountDetection::automatic && method != MountDetection::device) return false;
  struct stat parent {};
  struct stat folder {};
  if (::fstat(parentFd, &parent) != 0 || ::fstat(folderFd, &folder) != 0) return false;
  return parent.st_dev != folder.st_dev;
}

bool mountDetectionAvailable(MountDetection method) {
  return method == MountDetection::automatic || method == MountDetection::device;
}

namespace folder_resolution_detail {
bool openBeneathInKernel(int, std::string_view, BeneathResult&) { return false; }
}  // namespace folder_resolution_detail

std::vector<std::string> mountPoints() {
  std::vector<std::string> points;
  struct statfs* mounts = nullptr;
  const int count = ::getmntinfo(&mounts, MNT_NOWAIT);
  for (int index = 0; index < count; ++index) points.emplace_back(mounts[index].f_mntonname);
  return points;
}

}  // namespace tw

#endif
