#include "platform/Log.h"

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <string>

namespace tw::log {
namespace {

std::atomic<Sink> installedSink{nullptr};

void write(LogLevel level, std::string_view message) {
  if (Sink sink = installedSink.load(std::memory_order_acquire)) {
    sink(level, message);
    return;
  }
  std::string line;
  line.append(mark(level)).append(" ").append(message).append("\n");
  // One write per line, so lines of several threads don't interleave.
  const char* data = line.data();
  size_t length = line.size();
  while (length > 0) {
    const ssize_t written = ::write(STDERR_FILENO, data, length);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return;
    data += written;
    length -= static_cast<size_t>(written);
  }
}

}  // namespace

void info(std::string_view message) { write(LogLevel::info, message); }
void warning(std::string_view message) { write(LogLevel::warning, message); }
void error(std::string_view message) { write(LogLevel::error, message); }

std::string_view mark(LogLevel level) {
  switch (level) {
    case LogLevel::info: return "\u2755";
    case LogLevel::warning: return "\u26A0\uFE0F";
    case LogLevel::error: return "\u274C";
  }
  return "";
}

void setSink(Sink sink) { installedSink.store(sink, std::memory_order_release); }

}  // namespace tw::log
