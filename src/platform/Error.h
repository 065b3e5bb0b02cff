// Failures are thrown as values that carry a readable description (what()), the text that
// logs, the command line and alerts show.
#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>

namespace tw {

class Error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A failed file-system operation on one item: errno and the path it concerned.
class FileSystemError : public Error {
 public:
  FileSystemError(std::string description, int code, std::filesystem::path path)
      : Error(std::move(description)), code_(code), path_(std::move(path)) {}
  int code() const { return code_; }
  const std::filesystem::path& path() const { return path_; }

 private:
  int code_;
  std::filesystem::path path_;
};

}  // namespace tw
