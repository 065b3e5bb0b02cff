#include "fs/RemoveItem.h"

#include "platform/Error.h"

// Stand-in until the race-safe removal lands: refuses to delete anything.
namespace tw {
void removeItem(const std::filesystem::path& path) {
  throw FileSystemError("Removal is not available in this build", 0, path);
}
}  // namespace tw
