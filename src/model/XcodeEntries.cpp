#include "model/XcodeEntries.h"

#include "model/SystemImages.h"
#include "platform/Text.h"

namespace tw {

DeviceLogsFileEntry::DeviceLogsFileEntry(Version version, bool selected)
    : CleanupEntry("Logs from Xcode " + version.toString(), "", "Old logs from Xcode " + version.toString(),
                   Icon::system(systemImage::multipleDocuments), true, selected),
      version_(version) {}

DocumentationCacheFileEntry::DocumentationCacheFileEntry(Version version, bool selected)
    : CleanupEntry("Cache from Xcode " + version.toString(), "",
                   "Documentation cache files from Xcode " + version.toString(),
                   Icon::system(systemImage::multipleDocuments), true, selected),
      version_(version) {}

OldDocumentationFileEntry::OldDocumentationFileEntry(bool selected)
    : CleanupEntry("Old Documentation Downloads", "", "Old offline documentations, not used anymore in modern Xcodes",
                   std::nullopt, true, selected) {}

std::string OldDocumentationFileEntry::itemDescription() const { return {}; }

DerivedDataFileEntry::DerivedDataFileEntry(std::string projectName, std::filesystem::path pathUrl, bool selected)
    : CleanupEntry(projectName, pathUrl.string(), projectName + " " + pathUrl.string(),
                   Icon::system(systemImage::folder), true, selected),
      projectName_(std::move(projectName)),
      pathUrl_(std::move(pathUrl)) {}

DeviceSupportFileEntry::OSType DeviceSupportFileEntry::osTypeFromName(std::string_view) { return OSType::other; }
std::string DeviceSupportFileEntry::osTypeDisplayName(OSType) { return {}; }

DeviceSupportFileEntry::DeviceSupportFileEntry(std::optional<std::string> device, OSType osType, Version version,
                                               std::optional<AppleBuild> build, EntryDate date,
                                               std::optional<std::string> architecture, bool selected)
    : CleanupEntry("", "", std::nullopt, std::nullopt, true, selected),
      device_(std::move(device)),
      osType_(osType),
      version_(version),
      build_(std::move(build)),
      date_(date),
      architecture_(std::move(architecture)) {}

bool DeviceSupportFileEntry::operator==(const DeviceSupportFileEntry& other) const {
  return version_ == other.version_ && build_ == other.build_ && architecture_ == other.architecture_ &&
         device_ == other.device_;
}

ArchiveFileEntry::ArchiveFileEntry(std::string projectName, std::string bundleName, std::string versionString,
                                   std::string build, EntryDate date, SubmissionStatus submissionStatus, bool selected,
                                   const std::filesystem::path& archiveUrl)
    : CleanupEntry(versionString + " (" + build + ") ", formatShortDateTime(date), std::nullopt, std::nullopt, true,
                   selected),
      projectName_(std::move(projectName)),
      bundleName_(std::move(bundleName)),
      versionString_(std::move(versionString)),
      version_(Version::fromString(versionString_)),
      build_(std::move(build)),
      date_(date),
      submissionStatus_(submissionStatus) {
  addPath(archiveUrl);
}

std::string ArchiveFileEntry::itemDescription() const {
  return projectName_ + " " + versionString_ + " (" + build_ + ") (" + extraInfo() + ")";
}

SimulatorFileEntry::SimulatorFileEntry(std::string label, std::string udid, std::string runtime, bool selected)
    : CleanupEntry(label, runtime, label + " " + runtime, Icon::system(systemImage::computer), false, selected),
      udid_(std::move(udid)),
      runtime_(std::move(runtime)) {}

}  // namespace tw
