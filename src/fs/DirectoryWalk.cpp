#include "fs/DirectoryWalk.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "fs/DirectoryListing.h"
#include "fs/DirectorySize.h"
#include "fs/TrustedFolders.h"
#include "platform/ByteSum.h"
#include "platform/Cancellation.h"
#include "platform/Descriptors.h"
#include "platform/Error.h"
#include "platform/FolderResolution.h"
#include "platform/ThreadPool.h"

namespace tw {

namespace {

constexpr int kFolderOpenFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

// Folders whose listing is done but whose subfolders are still to be opened keep their
// descriptor, so that each subfolder opens with one openat. Past this many (a quarter of the
// descriptors the process may still open), a folder lets its descriptor go and its subfolders
// reach it again by climbing from below (see Cursor). Depth-first order keeps the count near
// the tree's depth, so the limit only bites in very deep, branching trees.
int heldDescriptorLimit(size_t available) { return static_cast<int>(std::clamp<size_t>(available / 4, 2, 256)); }

// What one walking thread may have open at once besides the folders held for their subfolders:
// its cursor, the folder it lists, two while it climbs or opens a subfolder and one for the
// mount check. Each thread may also take the held count one past the limit before it sees it.
constexpr size_t kDescriptorsPerThread = 6;

// Whether the pool's threads and the calling one can all walk at once within the descriptors
// the process may still open; otherwise the walk stays on the calling thread, whose needs a
// quarter of them always covers.
bool descriptorsAllowParallelWalk(size_t available, int heldLimit, const ThreadPool& pool) {
  const size_t threads = size_t{pool.workerCount()} + 1;
  return available >= static_cast<size_t>(heldLimit) + threads * kDescriptorsPerThread;
}

// One folder still to be listed, or listed with subfolders still to be opened. A node stays
// alive while its stack slot or any child refers to it: the children need its descriptor or,
// once that is gone, its name to reach the folder again.
struct Node {
  Node(Node* parentNode, std::string folderName)
      : parent(parentNode), name(std::move(folderName)), depth(parentNode ? parentNode->depth + 1 : 0) {}
  Node* const parent;
  const std::string name;  // relative to the parent; the root's is its whole path
  const size_t depth;
  FileIdentity identity;  // recorded when the node lets its descriptor go
  std::atomic<uint32_t> references{1};
  std::mutex mutex;  // guards fd and unopenedChildren
  int fd = -1;
  uint32_t unopenedChildren = 0;
};

// Iterative, so that a chain of thousands of nested folders doesn't unwind recursively.
void release(Node* node) {
  while (node && node->references.fetch_sub(1, std::memory_order_acq_rel) == 1) {
    Node* parent = node->parent;
    if (node->fd >= 0) ::close(node->fd);
    delete node;
    node = parent;
  }
}

// A subfolder of an open folder; -1 with EXDEV when it is the root of another mount (a bind
// mount of the same file system included), which the measurement never enters.
int openChild(int parentFd, const char* name) {
  const int fd = ::openat(parentFd, name, kFolderOpenFlags);
  if (fd >= 0 && isMountRoot(parentFd, fd)) {
    ::close(fd);
    errno = EXDEV;
    return -1;
  }
  return fd;
}

int closeKeepingErrno(int fd) {
  const int saved = errno;
  ::close(fd);
  errno = saved;
  return -1;
}

// The folder a thread last had to let go of, kept open. A depth-first walk that comes back up
// to a folder whose descriptor is gone climbs there from here through "..", one step for each
// level it went down, instead of opening the whole path again from a distant ancestor: that is
// what keeps a deep chain with pending siblings at every level (a comb) linear.
struct Cursor {
  Node* node = nullptr;  // holds a reference
  int fd = -1;
};

class Walker {
 public:
  Walker(std::filesystem::path folder, HardLinkTracker* tracker, ThreadPool* pool, size_t availableDescriptors)
      : folder_(std::move(folder)),
        tracker_(tracker),
        descriptorLimit_(heldDescriptorLimit(availableDescriptors)),
        pool_(pool && descriptorsAllowParallelWalk(availableDescriptors, descriptorLimit_, *pool) ? pool : nullptr) {}

  int64_t run() {
    // Resolved from the folder the scan started at, like the removal: a cache folder reached
    // through a link or a mount point below it measures nothing.
    const OpenedFolder opened = openFolderFromAnchor(folder_, folder_);
    if (opened.fd < 0) throw folderError(opened.error, folder_.string());
    const int rootFd = opened.fd;
    auto* root = new Node(nullptr, folder_.string());
    if (pool_) {
      ThreadPool::TaskGroup group(*pool_);
      group_ = &group;
      walkFrom(root, rootFd);
      group.wait();
    } else {
      walkFrom(root, rootFd);
    }
    if (error_) throw *error_;
    return total_;
  }

 private:
  static FileSystemError folderError(int code, const std::string& path) {
    return FileSystemError("Cannot read the folder \"" + path + "\": " + std::strerror(code), code, path);
  }
  static FileSystemError itemError(int code, const std::string& path) {
    return FileSystemError("Cannot read the attributes of \"" + path + "\": " + std::strerror(code), code, path);
  }

  // Depth-first from `start`, handing the oldest pending subfolder (the largest piece of work
  // likely left) to the pool whenever a thread there is idle.
  void walkFrom(Node* start, int startFd = -1) {
    Cursor cursor;
    std::deque<Node*> stack{start};
    int64_t subtotal = 0;
    while (!stack.empty()) {
      // A failed walk is abandoned, and so is one whose job was asked to stop (its partial
      // total is thrown away with the scan).
      if (failed_.load(std::memory_order_relaxed) || cancellationRequested()) {
        for (Node* node : stack) abandon(node);
        break;
      }
      // Only a folder whose parent still holds its descriptor is handed over: another thread
      // could reach any other one only by opening its whole path again.
      if (group_ && stack.size() > 1 && pool_->idleThreadCount() > handedOver_.load(std::memory_order_relaxed) &&
          parentHoldsDescriptor(stack.front())) {
        Node* oldest = stack.front();
        stack.pop_front();
        handedOver_.fetch_add(1, std::memory_order_relaxed);
        group_->run([this, oldest] {
          handedOver_.fetch_sub(1, std::memory_order_relaxed);
          walkFrom(oldest);
        });
      }
      Node* node = stack.back();
      stack.pop_back();
      listFolderNode(node, std::exchange(startFd, -1), stack, subtotal, cursor);
      release(node);
    }
    moveCursor(cursor, nullptr, -1);
    std::lock_guard lock(totalMutex_);
    total_ = addSizes(total_, subtotal);
  }

  // A subfolder that will never be listed (the walk failed) still lets its parent's
  // descriptor go.
  void abandon(Node* node) {
    if (node->parent) childSettled(node->parent);
    release(node);
  }

  void childSettled(Node* parent) {
    std::lock_guard lock(parent->mutex);
    if (--parent->unopenedChildren == 0 && parent->fd >= 0) {
      ::close(parent->fd);
      parent->fd = -1;
      heldDescriptors_.fetch_sub(1, std::memory_order_relaxed);
    }
  }

  static bool parentHoldsDescriptor(Node* node) {
    if (!node->parent) return true;
    std::lock_guard lock(node->parent->mutex);
    return node->parent->fd >= 0;
  }

  void moveCursor(Cursor& cursor, Node* node, int fd) {
    if (cursor.fd >= 0) ::close(cursor.fd);
    if (node) node->references.fetch_add(1, std::memory_order_relaxed);
    if (cursor.node) release(cursor.node);
    cursor = {node, fd};
  }

  // The parent of `node` through ".." from the cursor, when the cursor lies below it; -1 when
  // it does not or when the folder found there is not the one listed before.
  int climbToParent(Node* node, Cursor& cursor) {
    Node* parent = node->parent;
    if (!cursor.node || cursor.node->depth < parent->depth) return -1;
    size_t steps = cursor.node->depth - parent->depth;
    Node* ancestor = cursor.node;
    for (size_t step = 0; step < steps; ++step) ancestor = ancestor->parent;
    if (ancestor != parent) return -1;
    int fd = ::dup(cursor.fd);
    for (; fd >= 0 && steps > 0; --steps) {
      const int up = ::openat(fd, "..", kFolderOpenFlags);
      ::close(fd);
      fd = up;
    }
    struct stat status {};
    if (fd < 0 || ::fstat(fd, &status) != 0 || FileIdentity::of(status) != parent->identity) {
      if (fd >= 0) ::close(fd);
      return -1;
    }
    moveCursor(cursor, parent, ::dup(fd));
    return fd;
  }

  int openNode(Node* node, Cursor& cursor) {
    Node* parent = node->parent;
    int fd = -1;
    bool reopen = false;
    {
      std::lock_guard lock(parent->mutex);
      if (parent->fd >= 0) {
        fd = openChild(parent->fd, node->name.c_str());
      } else {
        reopen = true;
      }
    }
    if (reopen) {
      const int parentFd = climbToParent(node, cursor);
      if (parentFd >= 0) {
        fd = openChild(parentFd, node->name.c_str());
        closeKeepingErrno(parentFd);
      } else {
        fd = reopenThroughAncestors(node);
      }
    }
    const int savedErrno = errno;
    childSettled(parent);
    errno = savedErrno;
    return fd;
  }

  // The parent let its descriptor go: open the path down from the nearest ancestor that
  // still has one (or from the root's path), one component at a time, never following links.
  int reopenThroughAncestors(Node* node) {
    std::vector<const std::string*> names{&node->name};
    int fd = -1;
    for (Node* ancestor = node->parent;; ancestor = ancestor->parent) {
      std::lock_guard lock(ancestor->mutex);
      if (ancestor->fd >= 0) {
        fd = openChild(ancestor->fd, names.back()->c_str());
        names.pop_back();
        break;
      }
      if (!ancestor->parent) {
        fd = ::open(ancestor->name.c_str(), kFolderOpenFlags);
        break;
      }
      names.push_back(&ancestor->name);
    }
    while (fd >= 0 && !names.empty()) {
      const int next = openChild(fd, names.back()->c_str());
      names.pop_back();
      if (next < 0) return closeKeepingErrno(fd);
      ::close(fd);
      fd = next;
    }
    return fd;
  }

  void listFolderNode(Node* node, int fd, std::deque<Node*>& stack, int64_t& subtotal, Cursor& cursor) {
    if (fd < 0) {
      fd = openNode(node, cursor);
      if (fd < 0) {
        // Gone since its parent was listed: it no longer takes any space. Another mount inside
        // the folder is not part of it.
        if (errno == ENOENT || errno == ENOTDIR || errno == EXDEV) return;
        fail(folderError(errno, pathOf(node)));
        return;
      }
    }
    heldDescriptors_.fetch_add(1, std::memory_order_relaxed);
    std::vector<Node*> children;
    int itemErrno = 0;
    std::string failedItem;
    const int listErrno = listFolder(fd, [&](const char* name, unsigned char type) {
      if (itemErrno) return;
      if (type == DT_DIR) {
        children.push_back(new Node(node, name));
        return;
      }
      if (type != DT_REG && type != DT_UNKNOWN) return;  // links, devices, sockets, pipes
      struct stat status {};
      if (::fstatat(fd, name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
        if (errno == ENOENT) return;
        itemErrno = errno;
        failedItem = name;
        return;
      }
      if (S_ISDIR(status.st_mode)) {
        children.push_back(new Node(node, name));
        return;
      }
      if (!S_ISREG(status.st_mode)) return;
      const int64_t bytes = static_cast<int64_t>(status.st_blocks) * 512;
      if (tracker_ && status.st_nlink > 1 && !tracker_->insertIfNew(FileIdentity::of(status), bytes)) return;
      subtotal = addSizes(subtotal, bytes);
    });
    if (listErrno || itemErrno) {
      ::close(fd);
      heldDescriptors_.fetch_sub(1, std::memory_order_relaxed);
      for (Node* child : children) delete child;
      fail(listErrno ? folderError(listErrno, pathOf(node)) : itemError(itemErrno, pathOf(node) + "/" + failedItem));
      return;
    }
    if (children.empty()) {
      ::close(fd);
      heldDescriptors_.fetch_sub(1, std::memory_order_relaxed);
      return;
    }
    {
      std::lock_guard lock(node->mutex);
      node->unopenedChildren = static_cast<uint32_t>(children.size());
      if (heldDescriptors_.load(std::memory_order_relaxed) > descriptorLimit_) {
        // Its subfolders will find it again from below; the cursor keeps one descriptor.
        struct stat status {};
        if (::fstat(fd, &status) == 0) node->identity = FileIdentity::of(status);
        moveCursor(cursor, node, fd);
        heldDescriptors_.fetch_sub(1, std::memory_order_relaxed);
      } else {
        node->fd = fd;
      }
    }
    node->references.fetch_add(static_cast<uint32_t>(children.size()), std::memory_order_relaxed);
    stack.insert(stack.end(), children.begin(), children.end());
  }

  void fail(FileSystemError error) {
    std::lock_guard lock(errorMutex_);
    if (!error_) error_ = std::move(error);
    failed_.store(true, std::memory_order_relaxed);
  }

  std::string pathOf(const Node* node) const {
    std::vector<const std::string*> names;
    for (; node; node = node->parent) names.push_back(&node->name);
    std::string path;
    for (auto it = names.rbegin(); it != names.rend(); ++it) {
      if (!path.empty() && path.back() != '/') path += '/';
      path += **it;
    }
    return path;
  }

  const std::filesystem::path folder_;
  HardLinkTracker* const tracker_;
  const int descriptorLimit_;
  ThreadPool* const pool_;
  ThreadPool::TaskGroup* group_ = nullptr;
  std::atomic<unsigned> handedOver_{0};
  std::atomic<int> heldDescriptors_{0};
  std::atomic<bool> failed_{false};
  std::mutex errorMutex_;
  std::optional<FileSystemError> error_;
  std::mutex totalMutex_;
  int64_t total_ = 0;
};

}  // namespace

#if defined(TIDEWELL_TEST_HOOKS)
namespace {
std::atomic<DirectoryWalkObserver> walkObserver{nullptr};
}  // namespace

void setDirectoryWalkObserver(DirectoryWalkObserver observer) { walkObserver.store(observer); }
#endif

int64_t allocatedSizeOfDirectory(const std::filesystem::path& folder, HardLinkTracker* tracker, WalkMode mode,
                                 ThreadPool* pool) {
#if defined(TIDEWELL_TEST_HOOKS)
  if (DirectoryWalkObserver observer = walkObserver.load()) observer(folder);
#endif
  ThreadPool* walkPool = nullptr;
  if (mode == WalkMode::parallel) walkPool = pool ? pool : &ThreadPool::shared();
  return Walker(folder, tracker, walkPool, availableDescriptors()).run();
}

}  // namespace tw
