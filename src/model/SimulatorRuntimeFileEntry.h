// A simulator runtime image as the simulator tool reports it. It is deleted through the tool
// ("simctl runtime delete"), never by removing its files, so it counts as deletable even when
// the tool named no path for it, and its size is the tool's own figure when it gave one.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "model/CleanupEntry.h"

namespace tw {

class SimulatorRuntimeFileEntry : public CleanupEntry {
 public:
  SimulatorRuntimeFileEntry(std::string imageIdentifier, std::optional<int64_t> knownSizeInBytes, std::string label,
                            std::string extraInfo, std::optional<std::string> tooltipText = std::nullopt,
                            std::optional<Icon> icon = std::nullopt, bool tooltip = false, bool selected = false);

  // The key of the image's record in the tool's runtime list; what the delete command takes.
  const std::string& imageIdentifier() const { return imageIdentifier_; }
  const std::optional<int64_t>& knownSizeInBytes() const { return knownSizeInBytes_; }

  bool isEmpty() const override { return false; }
  bool hasPaths() const override { return true; }
  // The tool's figure without touching the disk when there is one; else the measurement.
  std::optional<Size> calculateSize(HardLinkTracker& tracker) override;
  using CleanupEntry::calculateSize;
  void recordMeasurement() override;
  // Runs "/usr/bin/xcrun simctl runtime delete <imageIdentifier>" whatever `path` is; throws
  // Shell::CommandError ("simctl runtime delete <imageIdentifier>") when the tool fails.
  void deleteItem(const std::optional<std::filesystem::path>& path) override;

 private:
  std::string imageIdentifier_;
  std::optional<int64_t> knownSizeInBytes_;
};

}  // namespace tw
