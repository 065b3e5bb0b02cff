#include "scan/PrivilegedRemoval.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>
#include <vector>

#include "fs/RemoveItem.h"
#include "platform/FolderResolution.h"
#include "platform/Host.h"
#include "scan/SystemItems.h"

namespace tw::PrivilegedRemoval {
namespace {

constexpr int kOpenFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

Refusal refuse(std::string_view path, std::string_view why) {
  return {"refusing \u201C" + std::string(path) + "\u201D: " + std::string(why)};
}

// The components of an absolute path; false when one of them is empty, "." or "..".
bool splitStrictly(std::string_view path, std::vector<std::string>& components) {
  size_t start = 1;
  while (start <= path.size()) {
    size_t end = path.find('/', start);
    if (end == std::string_view::npos) end = path.size();
    const std::string_view component = path.substr(start, end - start);
    if (component.empty() || component == "." || component == "..") return false;
    components.emplace_back(component);
    start = end + 1;
  }
  return !components.empty();
}

// Whether a volume is mounted at `item` or anywhere inside it. The remover would refuse to
// enter another device on its own, but a bind mount of the same volume looks like any folder;
// nothing that runs as root may take that chance.
bool holdsAMount(const std::string& item) {
  for (const std::string& point : mountPoints()) {
    if (point == item || (point.size() > item.size() && point.starts_with(item) && point[item.size()] == '/')) {
      return true;
    }
  }
  return false;
}

}  // namespace

Target::Target(int folderFd, std::string path, std::string name)
    : folderFd_(folderFd), path_(std::move(path)), name_(std::move(name)) {}

Target::~Target() {
  if (folderFd_ >= 0) ::close(folderFd_);
}

Target::Target(Target&& other) noexcept
    : folderFd_(std::exchange(other.folderFd_, -1)), path_(std::move(other.path_)), name_(std::move(other.name_)) {}

std::variant<Target, Refusal> check(std::string_view path) {
  if (!path.starts_with('/')) return refuse(path, "not an absolute path");
  std::vector<std::string> components;
  if (!splitStrictly(path, components)) return refuse(path, "empty, \u201C.\u201D or \u201C..\u201D components");

  const std::string name = components.back();
  const std::filesystem::path folder = std::filesystem::path(path).parent_path();
  const Host& host = Host::current();
  bool listed = false;
  for (const SystemItems::PrivilegedLocation& location : SystemItems::privilegedLocations()) {
    if (host.system(location.folder).lexically_normal() == folder && location.listsItem(name)) listed = true;
  }
  if (!listed) return refuse(path, "not a system item that Tidewell removes with administrator rights");

  // Down from "/" one folder at a time, never following a link, so what was checked is what
  // gets removed even if a folder on the way is swapped for a link afterwards.
  int fd = ::open("/", kOpenFolderFlags);
  if (fd < 0) return refuse(path, "cannot open /: " + std::generic_category().message(errno));
  for (size_t index = 0; index + 1 < components.size(); ++index) {
    const int next = ::openat(fd, components[index].c_str(), kOpenFolderFlags);
    const int code = errno;
    ::close(fd);
    if (next < 0) {
      if (code == ELOOP || code == ENOTDIR) {
        return refuse(path, "\u201C" + components[index] + "\u201D is a symbolic link or not a folder");
      }
      return refuse(path,
                    "cannot open \u201C" + components[index] + "\u201D: " + std::generic_category().message(code));
    }
    fd = next;
  }
  Target target(fd, std::string(path), name);

  struct stat folderStatus {};
  struct stat itemStatus {};
  if (::fstat(fd, &folderStatus) != 0 || ::fstatat(fd, name.c_str(), &itemStatus, AT_SYMLINK_NOFOLLOW) != 0) {
    return refuse(path, std::generic_category().message(errno));
  }
  if (S_ISLNK(itemStatus.st_mode)) return refuse(path, "it is a symbolic link");
  // The mount list also names bind mounts of the same volume, which share its device number.
  if (itemStatus.st_dev != folderStatus.st_dev) return refuse(path, "it is another volume mounted there");
  if (holdsAMount(std::string(path))) return refuse(path, "another volume is mounted at it or inside it");
  return target;
}

void remove(const Target& target) {
  // The remover takes a path; a relative one from a working folder that is the checked
  // descriptor starts exactly there. The program that calls this is single-threaded.
  const int previous = ::open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (::fchdir(target.folderFd()) != 0) {
    const int code = errno;
    if (previous >= 0) ::close(previous);
    throw RemovalError(
        "\u201C" + target.name() + "\u201D couldn\u2019t be removed. (" + std::generic_category().message(code) + ")",
        code, target.path(), RemovalFailure::other);
  }
  struct Restore {
    int fd;
    ~Restore() {
      if (fd >= 0) {
        (void)::fchdir(fd);
        ::close(fd);
      }
    }
  } restore{previous};
  removeItem(target.name());
}

}  // namespace tw::PrivilegedRemoval
