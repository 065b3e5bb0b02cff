// Opening folders below a trusted one without ever following a symbolic link or entering
// another mount, and telling mount points apart from plain folders. A bind mount of the same
// file system has the same device number as the folder around it, so comparing devices is not
// enough where the system has bind mounts; the Linux implementation asks the kernel for the
// mount itself, the portable one compares devices.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tw {

// How a mount point is recognised, from the most direct to the last resort. isMountRoot tries
// them in this order and uses the first one the running system answers.
enum class MountDetection {
  automatic,
  mountRootAttribute,  // statx STATX_ATTR_MOUNT_ROOT (Linux 5.8)
  mountId,             // statx STATX_MNT_ID of both folders (Linux 5.8)
  mountInfo,           // "mnt_id" of /proc/self/fdinfo (Linux 3.15)
  device,              // st_dev of both folders
};

// Whether the open folder `folderFd`, entered from the open folder `parentFd`, is the root of
// another mount. With a method the system cannot answer, false.
bool isMountRoot(int parentFd, int folderFd, MountDetection method = MountDetection::automatic);

// The mount points of the system as this process sees them (bind mounts included).
std::vector<std::string> mountPoints();

// Whether `method` can tell anything on this system (for tests).
bool mountDetectionAvailable(MountDetection method);

struct BeneathResult {
  int fd = -1;            // the opened folder, or -1
  int error = 0;          // errno when fd is -1: ELOOP for a link, EXDEV for a mount point
  std::string component;  // the name that stopped the resolution, when one did
};

enum class BeneathResolution {
  automatic,             // in one kernel call where the system has one (openat2), else by component
  componentByComponent,  // openat(O_NOFOLLOW) and a mount check for each component
};

// Opens the folder at `relative` ("a/b/c", no "." or "..") below the open folder `anchorFd`,
// following no symbolic link in any component and entering no other mount. An empty
// `relative` opens the anchor itself again.
BeneathResult openFolderBeneath(int anchorFd, std::string_view relative,
                                BeneathResolution resolution = BeneathResolution::automatic);

}  // namespace tw
