#include "support/TempDir.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

namespace tw::test {

TempDir::TempDir() {
  const char* base = std::getenv("TMPDIR");
  std::string pattern = std::string(base && *base ? base : "/tmp") + "/tidewell-test-XXXXXX";
  if (!::mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
  path_ = std::filesystem::canonical(pattern);
}

TempDir::~TempDir() {
  // Give every folder back its permissions so the removal can see inside it; a second round
  // reaches folders that were unreadable when the first got to them.
  std::error_code error;
  for (int round = 0; round < 2; ++round) {
    error.clear();
    ::chmod(path_.c_str(), 0700);
    for (auto it = std::filesystem::recursive_directory_iterator(
             path_, std::filesystem::directory_options::skip_permission_denied, error);
         !error && it != std::filesystem::recursive_directory_iterator(); it.increment(error)) {
      if (it->is_directory(error) && !it->is_symlink(error)) ::chmod(it->path().c_str(), 0700);
    }
    if (std::filesystem::remove_all(path_, error), !error) return;
  }
}

void writeFile(const std::filesystem::path& path, std::string_view contents) {
  std::filesystem::create_directories(path.parent_path());
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(contents.data(), static_cast<std::streamsize>(contents.size()));
  if (!out) throw std::runtime_error("cannot write " + path.string());
}

void writeFileOfSize(const std::filesystem::path& path, size_t size) { writeFile(path, std::string(size, 'x')); }

void writeSparseFile(const std::filesystem::path& path, uint64_t size) {
  writeFile(path, "");
  std::filesystem::resize_file(path, size);
}

std::string readFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream buffer;
  buffer << in.rdbuf();
  return buffer.str();
}

}  // namespace tw::test
