// Byte counts as people read them, in the file style of the platform's byte-count formatter:
// decimal units (1 KB = 1000 bytes), "Zero KB", "1 byte", "N bytes", KB without fraction
// digits, MB with at most one, GB and larger with at most two, trailing zeros dropped. The
// number is written as the user's locale writes numbers ("1,3 MB" in German); the units and
// the "Zero KB" and "bytes" texts stay as they are. Every size shown anywhere goes through
// this function.
#pragma once

#include <cstdint>
#include <string>

namespace tw {

std::string formatByteCount(int64_t bytes);

}  // namespace tw
