// What every fuzz target shares: a quiet main logger (a parser that logs each bad input must not
// spend the run writing to the console) and the input as text.
#pragma once

#include <stdlib.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "app/Logger.h"

namespace tw::fuzz {

inline void quietLogger() {
  static const bool done = [] {
    Logger::main().setConsoleLogging(false);
    return true;
  }();
  (void)done;
}

inline std::string_view text(const uint8_t* data, size_t size) { return {reinterpret_cast<const char*>(data), size}; }

// A folder of its own in memory (or /tmp), removed when the fuzzer exits.
class ScratchFolder {
 public:
  ScratchFolder() {
    std::string pattern = std::string(std::filesystem::exists("/dev/shm") ? "/dev/shm" : "/tmp") + "/tw-fuzz-XXXXXX";
    if (::mkdtemp(pattern.data())) path_ = pattern;
  }
  ~ScratchFolder() {
    std::error_code error;
    if (!path_.empty()) std::filesystem::remove_all(path_, error);
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

}  // namespace tw::fuzz
