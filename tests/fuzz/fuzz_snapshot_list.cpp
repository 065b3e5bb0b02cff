// The listing of "tmutil listlocalsnapshots /", as the system-items scanner reads it.
#include "FuzzSupport.h"
#include "scan/SystemItems.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  tw::fuzz::quietLogger();
  tw::SystemItems::parseLocalSnapshots(tw::fuzz::text(data, size));
  return 0;
}
