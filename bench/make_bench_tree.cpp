// Builds the trees the measurement benchmark walks, deterministically from a seed.
//   make_bench_tree tree <folder> <entries> [--empty-files]   mixed tree: fan-out 8-40, depth <= 9,
//                                                             files 1 B-32 KB, 3 % hard links, a few
//                                                             symbolic links to large folders
//   make_bench_tree chain <folder> <depth>                    one folder inside the next
//   make_bench_tree flat <folder> <entries>                   one folder with that many empty files
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

[[noreturn]] void die(const std::string& what) {
  std::fprintf(stderr, "make_bench_tree: %s: %s\n", what.c_str(), std::strerror(errno));
  std::exit(1);
}

void writeFile(const std::string& path, size_t size) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) die("create " + path);
  static const std::string data(32 * 1024, 'x');
  if (size > 0 && ::write(fd, data.data(), size) != static_cast<ssize_t>(size)) die("write " + path);
  ::close(fd);
}

int makeTree(const std::string& root, long target, bool emptyFiles) {
  std::mt19937_64 random(20240611);
  std::uniform_int_distribution<int> fanOut(8, 40);
  // Mostly small files: a log-uniform size between 1 B and 32 KB.
  std::uniform_real_distribution<double> logSize(0.0, 15.0);
  std::uniform_int_distribution<int> percent(0, 99);
  if (::mkdir(root.c_str(), 0755) != 0 && errno != EEXIST) die("mkdir " + root);

  struct Pending {
    std::string path;
    int depth;
  };
  std::vector<Pending> queue{{root, 0}};
  std::vector<std::string> files;
  std::vector<std::string> bigFolders;
  long entries = 0;
  size_t next = 0;
  // Breadth-first so that the requested count spreads over the whole tree.
  while (next < queue.size() && entries < target) {
    const Pending folder = queue[next++];
    const int children = fanOut(random);
    for (int i = 0; i < children && entries < target; ++i, ++entries) {
      const std::string path = folder.path + "/" + (percent(random) < 5 ? "." : "") + "e" + std::to_string(i);
      const bool isFolder = folder.depth < 9 && percent(random) < (folder.depth < 2 ? 45 : 12);
      if (isFolder) {
        if (::mkdir(path.c_str(), 0755) != 0) die("mkdir " + path);
        queue.push_back({path, folder.depth + 1});
        if (folder.depth == 1 && bigFolders.size() < 3) bigFolders.push_back(path);
      } else if (!files.empty() && percent(random) < 3) {
        if (::link(files[static_cast<size_t>(random() % files.size())].c_str(), path.c_str()) != 0) {
          die("link " + path);
        }
      } else {
        const size_t size = emptyFiles ? 0 : static_cast<size_t>(std::exp2(logSize(random)));
        writeFile(path, size);
        files.push_back(path);
      }
    }
  }
  for (size_t i = 0; i < bigFolders.size(); ++i) {
    const std::string link = root + "/link" + std::to_string(i);
    if (::symlink(bigFolders[i].c_str(), link.c_str()) != 0) die("symlink " + link);
  }
  std::printf("%ld entries, %zu folders\n", entries, queue.size());
  return 0;
}

int makeChain(const std::string& root, long depth) {
  if (::mkdir(root.c_str(), 0755) != 0 && errno != EEXIST) die("mkdir " + root);
  int fd = ::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) die("open " + root);
  for (long level = 0; level < depth; ++level) {
    if (::mkdirat(fd, "d", 0755) != 0) die("mkdirat");
    const int nextFd = ::openat(fd, "d", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (nextFd < 0) die("openat");
    ::close(fd);
    fd = nextFd;
  }
  const int file = ::openat(fd, "bottom", O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
  if (file < 0 || ::write(file, "x", 1) != 1) die("bottom");
  ::close(file);
  ::close(fd);
  std::printf("chain of %ld folders\n", depth);
  return 0;
}

int makeFlat(const std::string& root, long count) {
  if (::mkdir(root.c_str(), 0755) != 0 && errno != EEXIST) die("mkdir " + root);
  const int fd = ::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) die("open " + root);
  for (long i = 0; i < count; ++i) {
    const std::string name = "f" + std::to_string(i);
    const int file = ::openat(fd, name.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    if (file < 0) die("create " + name);
    ::close(file);
  }
  ::close(fd);
  std::printf("%ld files in one folder\n", count);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) {
    std::fprintf(stderr, "usage: make_bench_tree tree|chain|flat <folder> <count> [--empty-files]\n");
    return 2;
  }
  const std::string kind = argv[1];
  const std::string root = argv[2];
  const long count = std::atol(argv[3]);
  if (kind == "tree") return makeTree(root, count, argc > 4 && std::strcmp(argv[4], "--empty-files") == 0);
  if (kind == "chain") return makeChain(root, count);
  if (kind == "flat") return makeFlat(root, count);
  std::fprintf(stderr, "make_bench_tree: unknown kind %s\n", kind.c_str());
  return 2;
}
