// What each system's implementation of FolderResolution.h adds to the portable part.
#pragma once

#include <string_view>

#include "platform/FolderResolution.h"

namespace tw::folder_resolution_detail {

// Resolves `relative` below `anchorFd` in one kernel call refusing links and mount crossings.
// False when the system has no such call (the caller then walks the components itself).
bool openBeneathInKernel(int anchorFd, std::string_view relative, BeneathResult& result);

}  // namespace tw::folder_resolution_detail
