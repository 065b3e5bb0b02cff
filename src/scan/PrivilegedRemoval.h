// What the privileged remover (the small program that runs with administrator rights behind
// Tidewell's own polkit action) agrees to remove, and the removal itself. It takes a path from
// an unprivileged caller, so it trusts nothing in it: the path must name, exactly and without a
// single symbolic link on the way, an item that the system-items scan lists directly inside
// one of its privileged locations (SystemItems::privilegedLocations), on that location's volume,
// with no other volume mounted at it or anywhere inside it.
#pragma once

#include <string>
#include <string_view>
#include <variant>

namespace tw::PrivilegedRemoval {

// An accepted path: its location folder, opened from "/" one component at a time without
// following links, and the item's name in it. Owns the descriptor.
class Target {
 public:
  Target(int folderFd, std::string path, std::string name);
  ~Target();
  Target(Target&& other) noexcept;
  Target& operator=(Target&&) = delete;
  Target(const Target&) = delete;
  Target& operator=(const Target&) = delete;

  int folderFd() const { return folderFd_; }
  const std::string& path() const { return path_; }
  const std::string& name() const { return name_; }

 private:
  int folderFd_;
  std::string path_;
  std::string name_;
};

// Why a path is refused, in a sentence that names the path.
struct Refusal {
  std::string reason;
};

// The target `path` stands for, or why it is refused: a relative path; an empty, "." or ".."
// component; a path that is not an item the scan lists in a privileged location (locations
// found through the host); a symbolic link anywhere in it; an item that does not exist; an
// item on another volume than its location, a mount point itself, or one holding a mount point.
std::variant<Target, Refusal> check(std::string_view path);

// Removes an accepted target with the race-safe remover, starting from the folder descriptor
// that was checked (never from the path again). Throws the remover's RemovalError.
void remove(const Target& target);

}  // namespace tw::PrivilegedRemoval
