// Writers for the layouts Xcode leaves in ~/Library/Developer, one item at a time, in XML or binary lists.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "model/CleanupEntry.h"
#include "scan/DevFiles.h"
#include "support/FixtureHome.h"
#include "support/LogCapture.h"

namespace tw::test {

// The captured lines whose text after the level mark starts with `prefix` (marks kept).
std::vector<std::string> linesStartingWith(const LogCapture& log, const std::string& prefix);

using PropertyListFormat = PlistFormat;

// A dictionary of the given text values, for writePlist().
plist_t textDictionary(const std::vector<std::pair<std::string, std::string>>& texts);

// The labels of `entries`, in order.
std::vector<std::string> labelsOf(const std::vector<CleanupEntryPtr>& entries);

// How an archive's "Distributions" key looks.
enum class ArchiveDistributions { missing, notAnArray, notDictionaries, empty, allFailed, oneSucceeded };

// The facts of an archive's Info.plist; an absent field is left out of the file.
struct ArchiveInfo {
  std::optional<std::string> name = "App";
  std::optional<int64_t> creationDate = 1700000000;  // seconds since 1970
  ArchiveDistributions distributions = ArchiveDistributions::missing;
  bool applicationProperties = true;
  std::optional<std::string> bundleIdentifier = "com.example.app";
  std::optional<std::string> shortVersion = "1.0";
  std::optional<std::string> bundleVersion = "1";
  bool nameAsNumber = false;  // a wrongly typed field
};

class DeveloperFolderFixture {
 public:
  // Creates `developerFolder` with its "Xcode" and "CoreSimulator" subfolders.
  explicit DeveloperFolderFixture(std::filesystem::path developerFolder);

  const std::filesystem::path& developerFolder() const { return developerFolder_; }
  std::filesystem::path xcode() const { return developerFolder_ / "Xcode"; }

  // Xcode/DerivedData/<folderName> (or below `root`); an "info.plist" only with a workspace path.
  std::filesystem::path addDerivedData(const std::string& folderName, const std::optional<std::string>& workspacePath,
                                       size_t bytes, PropertyListFormat format = PropertyListFormat::xml,
                                       const std::optional<std::filesystem::path>& root = std::nullopt);
  // Xcode/Archives/<dateFolder>/<archiveName>.xcarchive (or below `root`) with its Info.plist.
  std::filesystem::path addArchive(const std::string& dateFolder, const std::string& archiveName,
                                   const ArchiveInfo& info, PropertyListFormat format = PropertyListFormat::xml,
                                   const std::optional<std::filesystem::path>& root = std::nullopt);
  // Xcode/<os> DeviceSupport/<folderName>.
  std::filesystem::path addDeviceSupport(const std::string& os, const std::string& folderName, size_t bytes = 4096);
  // Xcode/DocumentationCache/<container>/<version>.
  std::filesystem::path addDocumentationCache(const std::string& container, const std::string& version,
                                              size_t bytes = 4096);
  // A folder below Xcode/UserData ("Previews", "IB Support/Simulator Devices", "Capabilities").
  std::filesystem::path addUserData(const std::string& relativeFolder, size_t bytes);
  // A file in "Xcode/iOS Device Logs".
  std::filesystem::path addDeviceLog(const std::string& fileName, size_t bytes = 4096);

  // One of everything in every Xcode location, plus old documentation sets.
  void populate();

  // A scan driver on this folder; null when the driver refuses it.
  std::shared_ptr<DevFiles> devFiles(std::optional<std::filesystem::path> derivedData = std::nullopt,
                                     std::optional<std::filesystem::path> archives = std::nullopt,
                                     DevFiles::Executor executor = nullptr) const;

 private:
  std::filesystem::path developerFolder_;
};

}  // namespace tw::test
