// The device-identifier table (device_identifiers.csv), read the way the bundle's copy is: from
// a file, through the CSV reader and into the name lookup.
#include <filesystem>
#include <fstream>
#include <string>

#include "FuzzSupport.h"
#include "model/AppleDevices.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  tw::fuzz::quietLogger();
  static const tw::fuzz::ScratchFolder folder;
  const auto file = folder.path() / "device_identifiers.csv";
  {
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
  }
  auto devices = tw::AppleDevices::fromFile(file);
  devices.lookup("iPhone16,2");
  devices.lookup(tw::fuzz::text(data, size > 16 ? 16 : size));
  return 0;
}
