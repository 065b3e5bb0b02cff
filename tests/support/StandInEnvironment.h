// What tests of code that reaches the machine need around them: a host whose system paths and
// home live below a test folder, and the main logger's lines.
#pragma once

#include <filesystem>
#include <mutex>
#include <string>
#include <vector>

#include "platform/Host.h"

namespace tw::test {

// A host with "/" at `root`, the home at root/home and the temporary folder at root/tmp.
Host hostWithRoot(const std::filesystem::path& root);

// Collects the main logger's lines (level mark included) for the lifetime of the object.
class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;
  std::vector<std::string> lines() const;

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> lines_;
};

}  // namespace tw::test
