// Writers for the layouts Xcode leaves in ~/Library/Developer, in XML or binary property lists.
#pragma once

#include "scan/DevFiles.h"
#include "support/FixtureHome.h"
#include "support/LogCapture.h"

namespace tw::test {

// The captured lines whose text after the level mark starts with `prefix` (marks kept).
std::vector<std::string> linesStartingWith(const LogCapture& log, const std::string& prefix);
plist_t textDictionary(const std::vector<std::pair<std::string, std::string>>& texts);
std::vector<std::string> labelsOf(const std::vector<CleanupEntryPtr>& entries);

enum class ArchiveDistributions { missing, notAnArray, notDictionaries, empty, allFailed, oneSucceeded };

// An archive's Info.plist; an absent field is left out of the file.
struct ArchiveInfo {
  std::optional<std::string> name = "App";
  ArchiveDistributions distributions = ArchiveDistributions::missing;
  std::optional<std::string> shortVersion = "1.0", bundleVersion = "1", bundleIdentifier = "com.example.app";
  std::optional<int64_t> creationDate = 1700000000;  // seconds since 1970
  bool applicationProperties = true, nameAsNumber = false;
};

class DeveloperFolderFixture {
 public:
  // Creates `developerFolder` with its "Xcode" and "CoreSimulator" subfolders.
  explicit DeveloperFolderFixture(std::filesystem::path developerFolder);
  const std::filesystem::path& developerFolder() const { return developerFolder_; }
  std::filesystem::path xcode() const { return developerFolder_ / "Xcode"; }

  // Xcode/DerivedData/<folder> (an absolute `folder` anywhere); an "info.plist" only with a workspace path.
  std::filesystem::path addDerivedData(const std::filesystem::path& folder, const std::optional<std::string>& workspace,
                                       size_t bytes, PlistFormat format = PlistFormat::xml);
  // Xcode/Archives/<dateFolder>/<archiveName>.xcarchive (an absolute `dateFolder` anywhere) with its Info.plist.
  std::filesystem::path addArchive(const std::filesystem::path& dateFolder, const std::string& archiveName,
                                   const ArchiveInfo& info, PlistFormat format = PlistFormat::xml);
  // The folder Xcode/<relative>, holding one file of `bytes`.
  std::filesystem::path addFolder(const std::string& relative, size_t bytes = 4096) const;
  // One of everything in every Xcode location, plus old documentation sets.
  void populate();
  // A scan driver on this folder; null when the driver refuses it.
  std::shared_ptr<DevFiles> devFiles(std::optional<std::filesystem::path> derivedData = {},
                                     std::optional<std::filesystem::path> archives = {},
                                     DevFiles::Executor executor = nullptr) const {
    return DevFiles::create(developerFolder_, derivedData, archives, executor).value_or(nullptr);
  }

 private:
  std::filesystem::path developerFolder_;
};

}  // namespace tw::test
