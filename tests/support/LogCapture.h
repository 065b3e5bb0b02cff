// Collects the main logger's lines (level mark included) while the object lives.
#pragma once

#include <mutex>
#include <string>
#include <vector>

namespace tw::test {

class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  std::vector<std::string> lines() const;
  void clear();

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> lines_;
};

}  // namespace tw::test
