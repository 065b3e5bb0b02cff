// Display names of synced cloud folders (~/Library/CloudStorage/<provider>-<account>).
#include "FuzzSupport.h"
#include "scan/SystemItems.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  tw::fuzz::quietLogger();
  tw::SystemItems::cloudDisplayName(tw::fuzz::text(data, size));
  return 0;
}
