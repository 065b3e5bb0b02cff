#include "support/TempDir.h"

#include <sys/stat.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace tw::test {

namespace fs = std::filesystem;

TempDir::TempDir() {
  const char* base = std::getenv("TMPDIR");
  std::string pattern = std::string(base && *base ? base : "/tmp") + "/tidewell-test-XXXXXX";
  if (!::mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
  path_ = fs::canonical(pattern);
}

TempDir::~TempDir() {
  // Folders get their permissions back so the removal sees inside; a second round reaches those unreadable at first.
  std::error_code error;
  for (int round = 0; round < 2; ++round) {
    error.clear();
    ::chmod(path_.c_str(), 0700);
    for (fs::recursive_directory_iterator it(path_, fs::directory_options::skip_permission_denied, error), end;
         !error && it != end; it.increment(error))
      if (it->is_directory(error) && !it->is_symlink(error)) ::chmod(it->path().c_str(), 0700);
    if (fs::remove_all(path_, error), !error) return;
  }
}

void writeFile(const fs::path& path, std::string_view contents) {
  fs::create_directories(path.parent_path());
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  if (!out.write(contents.data(), static_cast<std::streamsize>(contents.size())))
    throw std::runtime_error("cannot write " + path.string());
}

void writeFileOfSize(const fs::path& path, size_t size) { writeFile(path, std::string(size, 'x')); }

void writeSparseFile(const fs::path& path, uint64_t size) {
  writeFile(path, "");
  fs::resize_file(path, size);
}

std::string readFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

}  // namespace tw::test
