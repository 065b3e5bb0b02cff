#include "model/XcodeEntries.h"

#include "model/AppleDevices.h"
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

namespace {

using OSType = DeviceSupportFileEntry::OSType;

std::string deviceSupportLabel(const std::optional<std::string>& device, OSType osType, const Version& version,
                               const std::optional<AppleBuild>& build) {
  std::string label = DeviceSupportFileEntry::osTypeDisplayName(osType) + " " + version.toString() + " " +
                      (build ? build->toString() : std::string());
  if (device) label += " (" + AppleDevices::name(*device) + ")";
  return label;
}

// The asset catalogue has pictures for the OS versions that shipped with their own look; any
// other version shows the OS's generic picture.
std::string deviceSupportImage(OSType osType, const Version& version) {
  struct Range {
    uint64_t first;
    uint64_t last;
  };
  std::string folder;
  Range range{0, 0};
  switch (osType) {
    case OSType::iOS:
      folder = "OS/iOS/";
      range = {2, 18};
      break;
    case OSType::watchOS:
      folder = "OS/watchOS/";
      range = {2, 11};
      break;
    case OSType::tvOS:
      folder = "OS/tvOS/";
      range = {9, 18};
      break;
    case OSType::macOS:
      folder = "OS/macOS/";
      range = {12, 15};
      break;
    case OSType::visionOS:
      folder = "OS/visionOS/";
      range = {2, 2};
      break;
    case OSType::other:
      return "OS/iOS/Generic";
  }
  const uint64_t major = version.major;
  if ((major >= range.first && major <= range.last) || major == 26) return folder + std::to_string(major);
  return folder + "Generic";
}

}  // namespace

DeviceSupportFileEntry::OSType DeviceSupportFileEntry::osTypeFromName(std::string_view name) {
  if (name == "iOS") return OSType::iOS;
  if (name == "watchOS") return OSType::watchOS;
  if (name == "tvOS") return OSType::tvOS;
  if (name == "macOS") return OSType::macOS;
  if (name == "visionOS") return OSType::visionOS;
  return OSType::other;
}

std::string DeviceSupportFileEntry::osTypeDisplayName(OSType type) {
  switch (type) {
    case OSType::iOS:
      return "iOS";
    case OSType::watchOS:
      return "watchOS";
    case OSType::tvOS:
      return "tvOS";
    case OSType::macOS:
      return "macOS";
    case OSType::visionOS:
      return "visionOS";
    case OSType::other:
      break;
  }
  return {};
}

DeviceSupportFileEntry::DeviceSupportFileEntry(std::optional<std::string> device, OSType osType, Version version,
                                               std::optional<AppleBuild> build, EntryDate date,
                                               std::optional<std::string> architecture, bool selected)
    : CleanupEntry(deviceSupportLabel(device, osType, version, build), "",
                   deviceSupportLabel(device, osType, version, build) + " " + formatMediumDate(date),
                   Icon::image(deviceSupportImage(osType, version)), true, selected),
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

namespace {

std::string statusMark(ArchiveFileEntry::SubmissionStatus status) {
  switch (status) {
    case ArchiveFileEntry::SubmissionStatus::success:
      return "✅";
    case ArchiveFileEntry::SubmissionStatus::failure:
      return "❌";
    case ArchiveFileEntry::SubmissionStatus::undefined:
      break;
  }
  return {};
}

}  // namespace

ArchiveFileEntry::ArchiveFileEntry(std::string projectName, std::string bundleName, std::string versionString,
                                   std::string build, EntryDate date, SubmissionStatus submissionStatus, bool selected,
                                   const std::filesystem::path& archiveUrl)
    : CleanupEntry(versionString + " (" + build + ") " + statusMark(submissionStatus), formatShortDateTime(date),
                   std::nullopt, std::nullopt, true, selected),
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
