// Sums of byte counts. Sizes are signed 64-bit numbers everywhere; no real tree comes near
// 2^63 bytes, so an overflow means corrupted sizes and must not be shown or acted on.
#pragma once

#include <cstdint>

namespace tw {

// a + b; an overflow of the signed 64-bit range stops the program with a message.
int64_t addSizes(int64_t a, int64_t b);

}  // namespace tw
