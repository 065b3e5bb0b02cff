#include "fs/DirectoryWalk.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
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
#include "model/CleanupEntry.h"
#include "platform/Cancellation.h"
#include "platform/Error.h"
#include "platform/ThreadPool.h"

namespace tw {

namespace {

constexpr int kFolderOpenFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

// Folders whose listing is done but whose subfolders are still to be opened keep their
// descriptor, so that each subfolder opens with one openat. Past this many, a folder lets
// its descriptor go and its subfolders are reached again from the nearest ancestor that still
// has one. Depth-first order keeps the count near the tree's depth, so the limit only bites in
// very deep, branching trees.
int heldDescriptorLimit() {
  rlimit limits{};
  int result = 256;
  if (::getrlimit(RLIMIT_NOFILE, &limits) == 0 && limits.rlim_cur != RLIM_INFINITY) {
    result = std::min<int>(result, static_cast<int>(limits.rlim_cur / 4));
  }
  return std::max(result, 8);
}

// One folder still to be listed, or listed with subfolders still to be opened. A node stays
// alive while its stack slot or any child refers to it: the children need its descriptor or,
// once that is gone, its name to reach the folder again.
struct Node {
  Node(Node* parentNode, std::string folderName) : parent(parentNode), name(std::move(folderName)) {}
  Node* const parent;
  const std::string name;  // relative to the parent; the root's is its whole path
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

int closeKeepingErrno(int fd) {
  const int saved = errno;
  ::close(fd);
  errno = saved;
  return -1;
}

class Walker {
 public:
  Walker(std::filesystem::path folder, HardLinkTracker* tracker, ThreadPool* pool)
      : folder_(std::move(folder)), tracker_(tracker), pool_(pool) {}

  int64_t run() {
    const int rootFd = ::open(folder_.c_str(), kFolderOpenFlags);
    if (rootFd < 0) throw folderError(errno, folder_.string());
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
    std::deque<Node*> stack{start};
    int64_t subtotal = 0;
    while (!stack.empty()) {
      // A failed walk is abandoned, and so is one whose job was asked to stop (its partial
      // total is thrown away with the scan).
      if (failed_.load(std::memory_order_relaxed) || cancellationRequested()) {
        for (Node* node : stack) abandon(node);
        break;
      }
      if (group_ && stack.size() > 1 && pool_->idleThreadCount() > handedOver_.load(std::memory_order_relaxed)) {
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
      listFolderNode(node, std::exchange(startFd, -1), stack, subtotal);
      release(node);
    }
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

  int openNode(Node* node) {
    Node* parent = node->parent;
    int fd = -1;
    bool reopen = false;
    {
      std::lock_guard lock(parent->mutex);
      if (parent->fd >= 0) {
        fd = ::openat(parent->fd, node->name.c_str(), kFolderOpenFlags);
      } else {
        reopen = true;
      }
    }
    if (reopen) fd = reopenThroughAncestors(node);
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
        fd = ::openat(ancestor->fd, names.back()->c_str(), kFolderOpenFlags);
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
      const int next = ::openat(fd, names.back()->c_str(), kFolderOpenFlags);
      names.pop_back();
      if (next < 0) return closeKeepingErrno(fd);
      ::close(fd);
      fd = next;
    }
    return fd;
  }

  void listFolderNode(Node* node, int fd, std::deque<Node*>& stack, int64_t& subtotal) {
    if (fd < 0) {
      fd = openNode(node);
      if (fd < 0) {
        // Gone since its parent was listed: it no longer takes any space.
        if (errno == ENOENT || errno == ENOTDIR) return;
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
      if (tracker_ && status.st_nlink > 1 && !tracker_->insertIfNew(status.st_dev, status.st_ino)) return;
      subtotal = addSizes(subtotal, static_cast<int64_t>(status.st_blocks) * 512);
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
        ::close(fd);
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
  ThreadPool* const pool_;
  const int descriptorLimit_ = heldDescriptorLimit();
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

int64_t allocatedSizeOfDirectory(const std::filesystem::path& folder, HardLinkTracker* tracker, WalkMode mode,
                                 ThreadPool* pool) {
  ThreadPool* walkPool = nullptr;
  if (mode == WalkMode::parallel) walkPool = pool ? pool : &ThreadPool::shared();
  return Walker(folder, tracker, walkPool).run();
}

}  // namespace tw
