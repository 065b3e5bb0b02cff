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

// Files written with their parent folders: `contents`, `size` real bytes, or `size` bytes taking no space.
void writeFile(const std::filesystem::path& path, std::string_view contents);
void writeFileOfSize(const std::filesystem::path& path, size_t size);
void writeSparseFile(const std::filesystem::path& path, uint64_t size);
std::string readFile(const std::filesystem::path& path);

}  // namespace tw::test
