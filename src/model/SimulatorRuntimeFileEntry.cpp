#include "model/SimulatorRuntimeFileEntry.h"

#include "fs/Shell.h"

namespace tw {

SimulatorRuntimeFileEntry::SimulatorRuntimeFileEntry(std::string imageIdentifier,
                                                     std::optional<int64_t> knownSizeInBytes, std::string label,
                                                     std::string extraInfo, std::optional<std::string> tooltipText,
                                                     std::optional<Icon> icon, bool tooltip, bool selected)
    : CleanupEntry(std::move(label), std::move(extraInfo), std::move(tooltipText), std::move(icon), tooltip, selected),
      imageIdentifier_(std::move(imageIdentifier)),
      knownSizeInBytes_(knownSizeInBytes) {}

std::optional<CleanupEntry::Size> SimulatorRuntimeFileEntry::calculateSize(HardLinkTracker& tracker) {
  if (!knownSizeInBytes_) return CleanupEntry::calculateSize(tracker);
  setSize(Size::value(*knownSizeInBytes_));
  return size();
}

// A runtime whose size the system reported is not walked.
void SimulatorRuntimeFileEntry::recordMeasurement() {
  if (!knownSizeInBytes_) CleanupEntry::recordMeasurement();
}

void SimulatorRuntimeFileEntry::deleteItem(const std::optional<std::filesystem::path>&) {
  auto result = Shell::run("/usr/bin/xcrun", {"simctl", "runtime", "delete", imageIdentifier_});
  if (result.status != 0) throw Shell::CommandError("simctl runtime delete " + imageIdentifier_, result.output);
}

}  // namespace tw
