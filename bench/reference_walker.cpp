// A minimal disk-usage walker to hold Tidewell's measurement against: two threads share one
// stack of folder paths; each lists a folder with getdents64, stats regular (and untyped)
// entries relative to the folder's descriptor and counts multiply-linked files once.
//   reference_walker <folder>
//   reference_walker -        (measures each folder named on a line of the standard input, as
//                              a disk cleaner measures what a finder such as fd reports)
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

std::mutex mutex;
std::condition_variable changed;
std::vector<std::string> pending;
int busy = 0;
std::set<std::pair<dev_t, ino_t>> seen;
std::mutex seenMutex;
int64_t total = 0;

void worker() {
  std::vector<char> buffer(64 * 1024);
  int64_t subtotal = 0;
  for (;;) {
    std::string folder;
    {
      std::unique_lock lock(mutex);
      changed.wait(lock, [] { return !pending.empty() || busy == 0; });
      if (pending.empty()) break;
      folder = std::move(pending.back());
      pending.pop_back();
      ++busy;
    }
    std::vector<std::string> subfolders;
    const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd >= 0) {
      for (;;) {
        const long count = ::syscall(SYS_getdents64, fd, buffer.data(), buffer.size());
        if (count <= 0) break;
        for (long offset = 0; offset < count;) {
          const char* record = buffer.data() + offset;
          unsigned short length = 0;
          std::memcpy(&length, record + 16, sizeof length);
          offset += length;
          const unsigned char type = static_cast<unsigned char>(record[18]);
          const char* name = record + 19;
          if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0) continue;
          if (type == DT_DIR) {
            subfolders.push_back(folder + "/" + name);
          } else if (type == DT_REG || type == DT_UNKNOWN) {
            struct stat status {};
            if (::fstatat(fd, name, &status, AT_SYMLINK_NOFOLLOW) != 0) continue;
            if (S_ISDIR(status.st_mode)) {
              subfolders.push_back(folder + "/" + name);
              continue;
            }
            if (!S_ISREG(status.st_mode)) continue;
            if (status.st_nlink > 1) {
              std::lock_guard lock(seenMutex);
              if (!seen.insert({status.st_dev, status.st_ino}).second) continue;
            }
            subtotal += static_cast<int64_t>(status.st_blocks) * 512;
          }
        }
      }
      ::close(fd);
    }
    {
      std::lock_guard lock(mutex);
      for (auto& subfolder : subfolders) pending.push_back(std::move(subfolder));
      --busy;
    }
    changed.notify_all();
  }
  std::lock_guard lock(mutex);
  total += subtotal;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: reference_walker <folder> | -\n");
    return 2;
  }
  auto measure = [](std::string folder) {
    pending.push_back(std::move(folder));
    std::thread second(worker);
    worker();
    second.join();
    std::printf("%lld\n", static_cast<long long>(total));
    total = 0;
    seen.clear();
  };
  if (std::strcmp(argv[1], "-") != 0) {
    measure(argv[1]);
    return 0;
  }
  for (std::string line; std::getline(std::cin, line);) {
    if (!line.empty()) measure(line);
  }
  return 0;
}
