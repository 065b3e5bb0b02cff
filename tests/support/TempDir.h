// A temporary folder for one test, removed with everything inside, unreadable folders too.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

namespace tw::test {

class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::filesystem::path& path() const { return path_; }
  std::filesystem::path operator/(std::string_view relative) const { return path_ / relative; }

 private:
  std::filesystem::path path_;
};

// Writes `contents` to `path`, creating the parent folders.
void writeFile(const std::filesystem::path& path, std::string_view contents);
// Writes a file of `size` bytes (non-zero data, so that the blocks are really allocated).
void writeFileOfSize(const std::filesystem::path& path, size_t size);
std::string readFile(const std::filesystem::path& path);
// A file of `size` bytes that takes no space (parent folders created), for size limits.
void writeSparseFile(const std::filesystem::path& path, uint64_t size);

}  // namespace tw::test
