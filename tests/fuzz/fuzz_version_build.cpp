// Version and build texts as they come from folder names and tools: "17.4.1", "17.4 (21E219)",
// an operating-system version record, a build such as 21A5248p.
#include <string>

#include "FuzzSupport.h"
#include "model/AppleBuild.h"
#include "model/Version.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  tw::fuzz::quietLogger();
  std::string_view input = tw::fuzz::text(data, size);
  for (auto version :
       {tw::Version::parse(input), tw::Version::fromString(input), tw::Version::fromVersionRecordText(input)}) {
    if (!version) continue;
    auto again = tw::Version::fromString(version->toString());
    if (!again || !(*again == *version)) __builtin_trap();  // the printed form reads back as itself
    (void)(*version <=> tw::Version{17, 4, std::nullopt});
  }
  tw::AppleBuild build{std::string(input)};
  tw::AppleBuild reference{"21E219"};
  (void)(build < reference);
  (void)(reference < build);
  (void)(build == reference);
  return 0;
}
