// What every fuzz target shares: a quiet main logger (a parser that logs each bad input must not
// spend the run writing to the console) and the input as text.
#pragma once

#include <cstddef>
#include <cstdint>
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

}  // namespace tw::fuzz
