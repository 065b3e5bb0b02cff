// Builds, measures and removes a "comb": a chain of folders in which every level holds three
// subfolders (the next level and two empty teeth) and one file. Deep chains with pending
// siblings at every level are where a walk that keeps few descriptors open can turn quadratic.
//   comb_tree build <folder> <levels>     prints nothing, makes <folder>
//   comb_tree measure <folder>            prints "<bytes> <seconds> <cpu seconds>"
//   comb_tree remove <folder>             prints "<seconds> <cpu seconds>"
// CPU seconds (user and system, all threads) are printed too: on a shared machine they vary far
// less than the elapsed time.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>

#include "fs/DirectorySize.h"
#include "fs/RemoveItem.h"

namespace {

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double cpuSeconds() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  auto seconds = [](const timeval& time) { return static_cast<double>(time.tv_sec) + time.tv_usec / 1e6; };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

int build(const char* folder, long levels) {
  if (::mkdir(folder, 0755) != 0) {
    std::perror(folder);
    return 1;
  }
  int current = ::open(folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  for (long level = 0; level < levels && current >= 0; ++level) {
    const int file = ::openat(current, "file", O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    if (file < 0 || ::write(file, "comb", 4) != 4) return 1;
    ::close(file);
    // The teeth sort on both sides of the next level, so either listing order leaves one pending.
    if (::mkdirat(current, "a", 0755) != 0 || ::mkdirat(current, "m", 0755) != 0 ||
        ::mkdirat(current, "z", 0755) != 0) {
      return 1;
    }
    const int next = ::openat(current, "m", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ::close(current);
    current = next;
  }
  if (current < 0) return 1;
  ::close(current);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: comb_tree build <folder> <levels> | measure <folder> | remove <folder>\n");
    return 2;
  }
  const std::string command = argv[1];
  try {
    if (command == "build" && argc == 4) return build(argv[2], std::strtol(argv[3], nullptr, 10));
    const auto start = std::chrono::steady_clock::now();
    const double cpuStart = cpuSeconds();
    if (command == "measure") {
      tw::HardLinkTracker tracker;
      const int64_t bytes = tw::allocatedSizeOfDirectory(argv[2], &tracker);
      std::printf("%lld %.3f %.3f\n", static_cast<long long>(bytes), secondsSince(start), cpuSeconds() - cpuStart);
      return 0;
    }
    if (command == "remove") {
      tw::removeItem(argv[2]);
      std::printf("%.3f %.3f\n", secondsSince(start), cpuSeconds() - cpuStart);
      return 0;
    }
  } catch (const std::exception& error) {
    std::fprintf(stderr, "comb_tree: %s\n", error.what());
    return 1;
  }
  std::fprintf(stderr, "comb_tree: unknown command %s\n", command.c_str());
  return 2;
}
