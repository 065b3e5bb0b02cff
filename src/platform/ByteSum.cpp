#include "platform/ByteSum.h"

#include <cstdio>
#include <cstdlib>
#include <string>

#include "platform/Log.h"

namespace tw {

int64_t addSizes(int64_t a, int64_t b) {
  int64_t sum = 0;
  if (__builtin_add_overflow(a, b, &sum)) {
    // Going on would show and delete on the strength of a wrapped-around number.
    std::string message = "Fatal error: size sum overflows a signed 64-bit byte count (" + std::to_string(a) + " + " +
                          std::to_string(b) + ")";
    log::error(message);
    std::fprintf(stderr, "%s\n", message.c_str());
    std::abort();
  }
  return sum;
}

}  // namespace tw
