#include "scan/Scanners.h"

namespace tw {
std::vector<CleanupEntryPtr> scanSystemItems() { return {}; }
std::vector<CleanupEntryPtr> scanCloudFolders() { return {}; }
}  // namespace tw
