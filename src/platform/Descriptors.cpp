#include "platform/Descriptors.h"

#include <fcntl.h>
#include <sys/resource.h>

namespace tw {

size_t availableDescriptors() {
  // Above this limit nobody runs short; counting the open descriptors is not worth it.
  constexpr rlim_t kPlenty = 4096;
  rlimit limits{};
  if (::getrlimit(RLIMIT_NOFILE, &limits) != 0 || limits.rlim_cur == RLIM_INFINITY || limits.rlim_cur >= kPlenty) {
    return kPlenty;
  }
  size_t inUse = 0;
  for (int fd = 0; fd < static_cast<int>(limits.rlim_cur); ++fd) {
    if (::fcntl(fd, F_GETFD) != -1) ++inUse;
  }
  const size_t limit = static_cast<size_t>(limits.rlim_cur);
  return limit > inUse ? limit - inUse : 0;
}

}  // namespace tw
