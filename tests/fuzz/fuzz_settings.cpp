// The settings file as the preferences read and rewrite it: any bytes in place of the store
// read as defaults or as the values they hold, and a bad file is moved aside, never a crash.
#include <filesystem>
#include <fstream>
#include <string>

#include "FuzzSupport.h"
#include "app/Preferences.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  tw::fuzz::quietLogger();
  static const tw::fuzz::ScratchFolder scratch;
  const auto& folder = scratch.path();
  const auto store = folder / "settings.plist";
  {
    std::ofstream out(store, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
  }
  tw::Preferences preferences(store);
  preferences.notificationsEnabled();
  preferences.notificationsPeriod();
  preferences.dryRunEnabled();
  preferences.totalBytesCleaned();
  preferences.customArchivesFolder();
  preferences.customDerivedDataFolder();
  // A write reads the store again and writes back every value it holds, foreign ones too.
  preferences.setDryRunEnabled(true);
  // Files a bad store was moved to pile up otherwise.
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(folder, error))
    std::filesystem::remove_all(entry, error);
  return 0;
}
