// Writers for the layouts Xcode leaves in ~/Library/Developer, one item at a time, so that a
// test states exactly which derived data, archives, device-support folders, documentation
// caches, user data and device logs exist. Property lists go through libplist in XML or
// binary form, as Xcode writes both.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "app/Logger.h"

namespace tw::test {

// Collects the lines of the main logger while it lives; the observer is removed afterwards.
class CapturedLog {
 public:
  CapturedLog();
  ~CapturedLog();
  CapturedLog(const CapturedLog&) = delete;
  CapturedLog& operator=(const CapturedLog&) = delete;

  struct Line {
    Logger::Level level;
    std::string text;  // with its level mark
  };
  std::vector<Line> lines() const;
  // Lines whose text, without the level mark and its space, starts with `prefix`.
  std::vector<Line> linesStartingWith(const std::string& prefix) const;

 private:
  mutable std::mutex mutex_;
  std::vector<Line> lines_;
};

enum class PropertyListFormat { xml, binary };

// How an archive's "Distributions" key looks.
enum class ArchiveDistributions {
  missing,          // no key: never submitted
  notAnArray,       // a text instead of a list
  notDictionaries,  // a list holding a text
  empty,            // an empty list
  allFailed,        // uploads that all failed
  oneSucceeded,     // a failed upload, then a successful one
};

// The facts of an archive's Info.plist; an absent field is left out of the file.
struct ArchiveInfo {
  std::optional<std::string> name = "App";
  // Seconds since 1970; written as a property-list date.
  std::optional<int64_t> creationDate = 1700000000;
  ArchiveDistributions distributions = ArchiveDistributions::missing;
  bool applicationProperties = true;
  std::optional<std::string> bundleIdentifier = "com.example.app";
  std::optional<std::string> shortVersion = "1.0";
  std::optional<std::string> bundleVersion = "1";
  // Writes the name as a number instead of a text (a wrongly typed field).
  bool nameAsNumber = false;
};

class DeveloperFolderFixture {
 public:
  // Creates `developerFolder` with its "Xcode" and "CoreSimulator" subfolders.
  explicit DeveloperFolderFixture(std::filesystem::path developerFolder);

  const std::filesystem::path& developerFolder() const { return developerFolder_; }
  std::filesystem::path xcode() const { return developerFolder_ / "Xcode"; }

  // A project folder in Xcode/DerivedData (or in `root`) holding `bytes` of build products. With
  // a workspace path it gets an "info.plist" naming it; without, none.
  std::filesystem::path addDerivedData(const std::string& folderName, const std::optional<std::string>& workspacePath,
                                       size_t bytes, PropertyListFormat format = PropertyListFormat::xml,
                                       const std::optional<std::filesystem::path>& root = std::nullopt);

  // Xcode/Archives/<dateFolder>/<archiveName>.xcarchive (or below `root`) with its Info.plist.
  std::filesystem::path addArchive(const std::string& dateFolder, const std::string& archiveName,
                                   const ArchiveInfo& info, PropertyListFormat format = PropertyListFormat::xml,
                                   const std::optional<std::filesystem::path>& root = std::nullopt);

  // Xcode/<os> DeviceSupport/<folderName> with a symbols file of `bytes`.
  std::filesystem::path addDeviceSupport(const std::string& os, const std::string& folderName, size_t bytes = 4096);

  // Xcode/DocumentationCache/<container>/<version> with `bytes` of cache.
  std::filesystem::path addDocumentationCache(const std::string& container, const std::string& version,
                                              size_t bytes = 4096);

  // A folder below Xcode/UserData ("Previews", "IB Support/Simulator Devices", "Capabilities").
  std::filesystem::path addUserData(const std::string& relativeFolder, size_t bytes);

  // A file in "Xcode/iOS Device Logs" ("iOS Device Logs 17.2.db").
  std::filesystem::path addDeviceLog(const std::string& fileName, size_t bytes = 4096);

  // Shared/Documentation with old offline documentation sets.
  std::filesystem::path addOldDocumentation(size_t bytes);

  // One of everything above: two projects and an unknown folder in DerivedData, archives of two
  // projects with every submission state, device support with and without architectures and
  // devices, two documentation caches, user data and device logs of three versions.
  void populate();

 private:
  std::filesystem::path developerFolder_;
};

// Writes a dictionary property list with one text value per key (for quick, hand-made files).
void writePropertyListWithText(const std::filesystem::path& file, const std::string& key, const std::string& value,
                               PropertyListFormat format);

}  // namespace tw::test
