// How many more file descriptors the process may open: the walks that keep folders open size
// themselves by it, so that a low limit (`ulimit -n 16`) slows them down instead of failing them.
#pragma once

#include <cstddef>

namespace tw {

// RLIMIT_NOFILE less the descriptors in use now; a large number when the limit is high enough
// not to matter.
size_t availableDescriptors();

}  // namespace tw
