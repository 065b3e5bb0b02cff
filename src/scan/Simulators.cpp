#include "scan/Scanners.h"

namespace tw {
std::vector<CleanupEntryPtr> scanUnavailableSimulators(const DevFiles&) { return {}; }
std::vector<CleanupEntryPtr> scanXCTestClones(const DevFiles&) { return {}; }
std::vector<CleanupEntryPtr> scanDyldCaches(const DevFiles&) { return {}; }
std::vector<CleanupEntryPtr> scanSimulatorRuntimes(const DevFiles&) { return {}; }
}  // namespace tw
