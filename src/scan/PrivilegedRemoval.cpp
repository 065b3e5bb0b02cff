#include "scan/PrivilegedRemoval.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#if defined(__APPLE__)
#include <sys/mount.h>
#include <sys/param.h>
#endif

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>
#include <utility>
#include <vector>

#include "fs/RemoveItem.h"
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

// Whether `item` is the root of a mount (a bind mount of the same volume included).
bool isMountRoot([[maybe_unused]] int folderFd, [[maybe_unused]] const std::string& item) {
#if defined(STATX_ATTR_MOUNT_ROOT)
  struct statx status {};
  if (::statx(folderFd, item.c_str(), AT_SYMLINK_NOFOLLOW, STATX_BASIC_STATS, &status) == 0 &&
      (status.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT) != 0) {
    return (status.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
  }
#endif
  return false;
}

// The mount points of the system as this process sees them.
std::vector<std::string> mountPoints() {
  std::vector<std::string> points;
#if defined(__APPLE__)
  struct statfs* mounts = nullptr;
  const int count = ::getmntinfo(&mounts, MNT_NOWAIT);
  for (int index = 0; index < count; ++index) points.emplace_back(mounts[index].f_mntonname);
#else
  // /proc/self/mountinfo: the fifth field is the mount point, with blanks, tabs, newlines and
  // backslashes written as octal escapes.
  std::ifstream mountinfo("/proc/self/mountinfo");
  std::string line;
  while (std::getline(mountinfo, line)) {
    std::istringstream fields(line);
    std::string field;
    for (int index = 0; index < 5 && fields >> field; ++index) {
    }
    std::string point;
    for (size_t at = 0; at < field.size(); ++at) {
      if (field[at] == '\\' && at + 3 < field.size()) {
        point += static_cast<char>(std::stoi(field.substr(at + 1, 3), nullptr, 8));
        at += 3;
      } else {
        point += field[at];
      }
    }
    points.push_back(std::move(point));
  }
#endif
  return points;
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
  if (itemStatus.st_dev != folderStatus.st_dev || isMountRoot(fd, name)) {
    return refuse(path, "it is another volume mounted there");
  }
  if (holdsAMount(std::string(path))) return refuse(path, "another volume is mounted inside it");
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
