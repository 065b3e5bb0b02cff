// The JSON that "xcrun simctl runtime list -j" prints, as the runtime scanner reads it.
#include <string>

#include "FuzzSupport.h"
#include "scan/SimulatorScanners.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  tw::fuzz::quietLogger();
  tw::simulators::runtimesFromList(std::string(tw::fuzz::text(data, size)));
  return 0;
}
