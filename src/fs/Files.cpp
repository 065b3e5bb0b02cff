#include "fs/Files.h"

#include "platform/Host.h"

// Stand-in until folder grants land: no grant.
namespace tw::Files {
std::filesystem::path userHomeFolder() { return Host::current().home; }
std::filesystem::path developerFolder() { return Host::current().developerFolder(); }
std::optional<std::filesystem::path> developerFolderGrant(FolderAccessUI*) { return std::nullopt; }
std::optional<std::filesystem::path> customDerivedDataFolderGrant(FolderAccessUI*) { return std::nullopt; }
std::optional<std::filesystem::path> customArchivesFolderGrant(FolderAccessUI*) { return std::nullopt; }
}  // namespace tw::Files
