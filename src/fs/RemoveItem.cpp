#include "fs/RemoveItem.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unicode/unistr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "fs/TrustedFolders.h"
#include "platform/Descriptors.h"
#include "platform/Error.h"
#include "platform/FileIdentity.h"
#include "platform/FolderResolution.h"

// The removal works on directory descriptors only. A name is looked at with fstatat without
// following links; a folder is entered with openat(O_NOFOLLOW) and only when the descriptor
// names the very object that was looked at (device and inode), so a folder swapped for a link
// or for another folder between the look and the open is never entered. The walk keeps its own
// stack instead of recursing, and keeps only a few folders of the current chain
// open: a shallower folder is closed when the chain gets deeper and opened again through ".."
// of its child, with the same identity check, on the way back up.

namespace tw {

#if defined(TIDEWELL_TEST_HOOKS)
void (*removeItemBeforeOpeningFolderHook)(const char* name) = nullptr;
#endif

namespace {

// Descriptors kept open for the chain of folders being emptied: a quarter of what the process
// may still open, so that a low limit (ulimit -n 16) slows the walk down instead of failing it.
size_t maxOpenFolders() { return std::clamp<size_t>(availableDescriptors() / 4, 1, 64); }

// Listing a folder again after its removal found it not empty copes with items that appear
// while it runs; the bound keeps a folder that keeps filling from holding the walk forever.
constexpr int kMaxListings = 4;
// Attempts at one name that keeps changing kind (folder, link, file) under the walk.
constexpr int kMaxAttempts = 8;

// errno-like code for a name that kept changing under the walk, or a folder that could not be
// found again on the way back up.
constexpr int kChangedWhileRemoving = EAGAIN;

constexpr int kOpenFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

// File names may hold any bytes; the description shows them as text.
std::string displayName(std::string_view name) {
  std::string text;
  icu::UnicodeString::fromUTF8(icu::StringPiece(name.data(), static_cast<int32_t>(name.size()))).toUTF8String(text);
  return text;
}

// The kind of a failure the system reported. A kernel refusing a link (ELOOP from O_NOFOLLOW or
// RESOLVE_NO_SYMLINKS) or a crossing into another mount (EXDEV) refused for safety, whatever
// rights the caller has.
RemovalFailure failureKindOf(int code) {
  switch (code) {
    case EACCES:
    case EPERM:
      return RemovalFailure::permission;
    case ELOOP:
    case EXDEV:
      return RemovalFailure::safety;
    default:
      return RemovalFailure::other;
  }
}

std::string describeFailure(int code, std::string_view name) {
  const std::string quoted = "\u201C" + displayName(name) + "\u201D";
  switch (code) {
    case ENOENT:
      return "The file " + quoted + " doesn\u2019t exist.";
    case EACCES:
    case EPERM:
      return quoted + " couldn\u2019t be removed because you don\u2019t have permission to access it.";
    case EROFS:
      return quoted + " couldn\u2019t be removed because the volume is read only.";
    case EXDEV:
      return quoted + " couldn\u2019t be removed because it is on another volume.";
    case kChangedWhileRemoving:
      return quoted + " couldn\u2019t be removed because it changed while it was being removed.";
    default:
      return quoted + " couldn\u2019t be removed. (" + std::generic_category().message(code) + ")";
  }
}

struct Entry {
  std::string name;
  unsigned char type = DT_UNKNOWN;
};

// One folder of the chain being emptied.
struct Folder {
  std::string name;  // its name inside its parent
  FileIdentity identity;
  DIR* stream = nullptr;  // owns the folder's descriptor while it is open
  std::vector<Entry> entries;
  size_t next = 0;
  int listings = 0;
  bool needsListing = true;
  bool failed = false;  // something inside could not be removed

  int fd() const { return dirfd(stream); }
};

class Remover {
 public:
  Remover(std::filesystem::path path, int baseFd, std::string name)
      : path_(std::move(path)), baseFd_(baseFd), name_(std::move(name)) {}
  ~Remover() {
    for (auto& folder : stack_) close(folder);
    ::close(baseFd_);
  }
  Remover(const Remover&) = delete;
  Remover& operator=(const Remover&) = delete;

  void run();
  // The first failure, of the kind of the whole removal; absent when everything went.
  std::optional<RemovalError> failure() const;

 private:
  enum class Outcome { removed, failed, descend };

  Outcome removeEntry(int dirFd, const std::string& name, unsigned char type, Folder& folder);
  void list(Folder& folder);
  void finishTop();
  int openFolderAt(size_t index);
  int reopenFromBase(size_t index);
  void push(Folder folder);
  void close(Folder& folder);
  void fail(int code, std::filesystem::path where, std::string_view name);
  void fail(int code, std::filesystem::path where, std::string_view name, RemovalFailure kind);
  // Path of the folder at stack index `levels - 1` (the selected item for 1).
  std::filesystem::path pathOf(size_t levels) const;
  std::filesystem::path entryPath(std::string_view name) const {
    return stack_.empty() ? path_ : pathOf(stack_.size()) / name;
  }

  std::filesystem::path path_;
  int baseFd_;
  std::string name_;
  std::vector<Folder> stack_;
  size_t lowestOpen_ = 0;  // folders at this index and deeper are open
  const size_t maxOpenFolders_ = maxOpenFolders();
  std::optional<dev_t> device_;
  std::optional<RemovalError> firstFailure_;
  bool refusedForSafety_ = false;
};

std::filesystem::path Remover::pathOf(size_t levels) const {
  std::filesystem::path result = path_;
  for (size_t index = 1; index < levels; ++index) result /= stack_[index].name;
  return result;
}

void Remover::fail(int code, std::filesystem::path where, std::string_view name) {
  fail(code, std::move(where), name, failureKindOf(code));
}

void Remover::fail(int code, std::filesystem::path where, std::string_view name, RemovalFailure kind) {
  if (kind == RemovalFailure::safety) refusedForSafety_ = true;
  if (!firstFailure_) firstFailure_.emplace(describeFailure(code, name), code, std::move(where), kind);
}

std::optional<RemovalError> Remover::failure() const {
  if (!firstFailure_) return std::nullopt;
  const RemovalFailure kind = refusedForSafety_ ? RemovalFailure::safety : firstFailure_->kind();
  return RemovalError(firstFailure_->what(), firstFailure_->code(), firstFailure_->path(), kind);
}

void Remover::close(Folder& folder) {
  if (folder.stream) ::closedir(folder.stream);
  folder.stream = nullptr;
}

void Remover::push(Folder folder) {
  stack_.push_back(std::move(folder));
  while (stack_.size() - lowestOpen_ > maxOpenFolders_) close(stack_[lowestOpen_++]);
}

Remover::Outcome Remover::removeEntry(int dirFd, const std::string& name, unsigned char type, Folder& folder) {
  const bool topLevel = stack_.empty();
  for (int attempt = 0; attempt < kMaxAttempts; ++attempt) {
    struct stat status {};
    // A name the listing reports as a file or link is unlinked at once; if it has become a
    // folder meanwhile the unlink fails and the name is looked at again.
    const bool listedAsNonFolder = attempt == 0 && type != DT_DIR && type != DT_UNKNOWN;
    if (!listedAsNonFolder) {
      if (::fstatat(dirFd, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
        // Something else removing items inside the tree is not a failure of this removal.
        if (errno == ENOENT && !topLevel) return Outcome::removed;
        fail(errno, entryPath(name), name);
        return Outcome::failed;
      }
    }
    if (listedAsNonFolder || !S_ISDIR(status.st_mode)) {
      if (::unlinkat(dirFd, name.c_str(), 0) == 0) return Outcome::removed;
      const int code = errno;
      if (code == ENOENT) return Outcome::removed;
      // Linux answers EISDIR for a folder, macOS EPERM.
      struct stat now {};
      if ((code == EISDIR || code == EPERM) && ::fstatat(dirFd, name.c_str(), &now, AT_SYMLINK_NOFOLLOW) == 0 &&
          S_ISDIR(now.st_mode)) {
        continue;
      }
      fail(code, entryPath(name), name);
      return Outcome::failed;
    }

    // A folder. Another volume inside the tree is never entered.
    if (device_ && status.st_dev != *device_) {
      fail(EXDEV, entryPath(name), name);
      return Outcome::failed;
    }
#if defined(TIDEWELL_TEST_HOOKS)
    if (removeItemBeforeOpeningFolderHook) removeItemBeforeOpeningFolderHook(name.c_str());
#endif
    const int fd = ::openat(dirFd, name.c_str(), kOpenFolderFlags);
    if (fd < 0) {
      const int code = errno;
      if (code == ENOENT && !topLevel) return Outcome::removed;
      if (code == ELOOP || code == ENOTDIR) continue;  // replaced by a link or a file: look again
      // A folder that cannot be listed can still go when it is empty.
      if ((code == EACCES || code == EPERM) && ::unlinkat(dirFd, name.c_str(), AT_REMOVEDIR) == 0) {
        return Outcome::removed;
      }
      fail(code, entryPath(name), name);
      return Outcome::failed;
    }
    struct stat opened {};
    if (::fstat(fd, &opened) != 0 || FileIdentity::of(opened) != FileIdentity::of(status)) {
      ::close(fd);
      continue;
    }
    // Another volume mounted inside the tree, a bind mount of this one included, is never
    // entered: its files are not part of the selection.
    if (isMountRoot(dirFd, fd)) {
      ::close(fd);
      fail(EXDEV, entryPath(name), name);
      return Outcome::failed;
    }
    DIR* stream = ::fdopendir(fd);
    if (!stream) {
      const int code = errno;
      ::close(fd);
      fail(code, entryPath(name), name);
      return Outcome::failed;
    }
    if (topLevel) device_ = status.st_dev;
    folder = Folder{};
    folder.name = name;
    folder.identity = FileIdentity::of(status);
    folder.stream = stream;
    return Outcome::descend;
  }
  fail(kChangedWhileRemoving, entryPath(name), name, RemovalFailure::safety);
  return Outcome::failed;
}

void Remover::list(Folder& folder) {
  folder.needsListing = false;
  ++folder.listings;
  folder.entries.clear();
  folder.next = 0;
  ::rewinddir(folder.stream);
  for (;;) {
    errno = 0;
    const dirent* item = ::readdir(folder.stream);
    if (!item) {
      if (errno != 0) {
        folder.failed = true;
        fail(errno, pathOf(stack_.size()), folder.name);
      }
      return;
    }
    const std::string_view name(item->d_name);
    if (name == "." || name == "..") continue;
#if defined(_DIRENT_HAVE_D_TYPE) || defined(__APPLE__)
    folder.entries.push_back({std::string(name), item->d_type});
#else
    folder.entries.push_back({std::string(name), DT_UNKNOWN});
#endif
  }
}

// Walks down from the base descriptor to the folder at `index`, checking every step.
int Remover::reopenFromBase(size_t index) {
  int current = baseFd_;
  for (size_t level = 0; level <= index; ++level) {
    const int fd = ::openat(current, stack_[level].name.c_str(), kOpenFolderFlags);
    struct stat status {};
    const bool same = fd >= 0 && ::fstat(fd, &status) == 0 && FileIdentity::of(status) == stack_[level].identity;
    if (current != baseFd_) ::close(current);
    if (!same) {
      if (fd >= 0) ::close(fd);
      return -1;
    }
    current = fd;
  }
  return current;
}

int Remover::openFolderAt(size_t index) {
  if (index >= lowestOpen_) return stack_[index].fd();
  // Only the parent of the deepest folder is ever asked for, and that one is open.
  int fd = ::openat(stack_[index + 1].fd(), "..", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  struct stat status {};
  if (fd >= 0 && (::fstat(fd, &status) != 0 || FileIdentity::of(status) != stack_[index].identity)) {
    // The child was moved elsewhere: find the parent again by its names.
    ::close(fd);
    fd = -1;
  }
  if (fd < 0) fd = reopenFromBase(index);
  if (fd < 0) return -1;
  DIR* stream = ::fdopendir(fd);
  if (!stream) {
    ::close(fd);
    return -1;
  }
  stack_[index].stream = stream;
  lowestOpen_ = index;
  return fd;
}

// Removes the deepest folder once it has been emptied (or gives up on it).
void Remover::finishTop() {
  const size_t index = stack_.size() - 1;
  const int parentFd = index == 0 ? baseFd_ : openFolderAt(index - 1);
  if (parentFd < 0) {
    // The chain above was moved away while it was being emptied; nothing can be reached safely.
    fail(kChangedWhileRemoving, pathOf(index), stack_[index - 1].name, RemovalFailure::safety);
    for (auto& folder : stack_) close(folder);
    stack_.clear();
    return;
  }
  Folder& top = stack_.back();
  bool failed = top.failed;
  if (::unlinkat(parentFd, top.name.c_str(), AT_REMOVEDIR) != 0 && errno != ENOENT) {
    const int code = errno;
    if ((code == ENOTEMPTY || code == EEXIST) && !top.failed && top.listings < kMaxListings) {
      top.needsListing = true;  // items appeared meanwhile
      return;
    }
    Folder* parent = index > 0 ? &stack_[index - 1] : nullptr;
    if (code == ENOTDIR && parent && parent->listings < kMaxListings) {
      // The name now stands for something else; the parent's next listing deals with it.
      parent->needsListing = true;
    } else {
      fail(code, pathOf(index + 1), top.name);
      failed = true;
    }
  }
  close(top);
  stack_.pop_back();
  if (lowestOpen_ > stack_.size()) lowestOpen_ = stack_.size();
  if (failed && !stack_.empty()) stack_.back().failed = true;
}

void Remover::run() {
  Folder selected;
  if (removeEntry(baseFd_, name_, DT_UNKNOWN, selected) != Outcome::descend) return;
  push(std::move(selected));
  while (!stack_.empty()) {
    Folder& top = stack_.back();
    if (top.next < top.entries.size()) {
      const Entry entry = std::move(top.entries[top.next++]);
      Folder child;
      const Outcome outcome = removeEntry(top.fd(), entry.name, entry.type, child);
      if (outcome == Outcome::failed) {
        top.failed = true;
      } else if (outcome == Outcome::descend) {
        push(std::move(child));
      }
      continue;
    }
    if (top.needsListing && !top.failed && top.listings < kMaxListings) {
      list(top);
      continue;
    }
    finishTop();
  }
}

}  // namespace

void removeItem(const std::filesystem::path& path) {
  std::string text = path.native();
  while (text.size() > 1 && text.back() == '/') text.pop_back();
  const size_t slash = text.rfind('/');
  const std::string name = slash == std::string::npos ? text : text.substr(slash + 1);
  const std::string parent = slash == std::string::npos ? "." : slash == 0 ? "/" : text.substr(0, slash);
  if (name.empty()) throw RemovalError(describeFailure(ENOENT, name), ENOENT, path, RemovalFailure::other);
  if (name == "." || name == ".." || text == "/") {
    throw RemovalError(describeFailure(EINVAL, name), EINVAL, path, RemovalFailure::safety);
  }

  // The folders leading to the item are resolved from the trusted folder the scan started at
  // (the home or developer folder, say), following no link and entering no other mount below
  // it: a parent folder swapped for a link since the scan leads to a refusal, not elsewhere.
  const OpenedFolder base = openFolderFromAnchor(parent, path);
  if (base.fd < 0) {
    const int code = base.error;
    if (code == ELOOP) {
      throw RemovalError("\u201C" + displayName(name) + "\u201D couldn\u2019t be removed because \u201C" +
                             displayName(base.component) + "\u201D in its path is a symbolic link.",
                         code, path, RemovalFailure::safety);
    }
    if (code == EXDEV) {
      throw RemovalError("\u201C" + displayName(name) + "\u201D couldn\u2019t be removed because \u201C" +
                             displayName(base.component) + "\u201D in its path is on another volume.",
                         code, path, RemovalFailure::safety);
    }
    throw RemovalError(describeFailure(code == ENOTDIR ? ENOENT : code, name), code, path, failureKindOf(code));
  }
  const int baseFd = base.fd;
  Remover remover(path, baseFd, name);
  remover.run();
  if (auto failure = remover.failure()) throw *failure;
}

}  // namespace tw
