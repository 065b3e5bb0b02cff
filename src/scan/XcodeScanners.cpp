#include "scan/Scanners.h"

namespace tw {
std::vector<CleanupEntryPtr> scanDeviceSupport(const DevFiles&) { return {}; }
std::vector<CleanupEntryPtr> scanArchives(const DevFiles&) { return {}; }
std::vector<CleanupEntryPtr> scanDerivedData(const DevFiles&) { return {}; }
std::vector<CleanupEntryPtr> scanDocumentationCache(const DevFiles&) { return {}; }
std::vector<CleanupEntryPtr> scanUserDataCache(const DevFiles&) { return {}; }
std::vector<CleanupEntryPtr> scanDeviceLogs(const DevFiles&) { return {}; }
}  // namespace tw
