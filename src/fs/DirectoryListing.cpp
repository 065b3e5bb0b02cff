#include "fs/DirectoryListing.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace tw {

Expected<std::vector<std::string>, int> folderItemNames(const std::filesystem::path& folder, HiddenItems hidden) {
  const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return errno;
  std::vector<std::string> names;
  const int error = listFolder(fd, [&](const char* name, unsigned char) {
    if (hidden == HiddenItems::skipped && name[0] == '.') return;
    names.emplace_back(name);
  });
  ::close(fd);
  if (error != 0) return error;
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace tw
