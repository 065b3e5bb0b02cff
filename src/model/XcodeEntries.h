// The entry kinds the Xcode scanners create for what they find in the developer folder. Each
// carries the facts parsed from the file system (a version, a build, a date, a project name),
// builds its row texts from them in one fixed way, and is a leaf that its scanner gives paths.
#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "model/AppleBuild.h"
#include "model/CleanupEntry.h"
#include "model/Version.h"

namespace tw {

using EntryDate = std::chrono::system_clock::time_point;

// Device logs of one Xcode/iOS version.
class DeviceLogsFileEntry : public CleanupEntry {
 public:
  DeviceLogsFileEntry(Version version, bool selected);
  const Version& version() const { return version_; }

 private:
  Version version_;
};

// Documentation cache files of one Xcode version.
class DocumentationCacheFileEntry : public CleanupEntry {
 public:
  DocumentationCacheFileEntry(Version version, bool selected);
  const Version& version() const { return version_; }

 private:
  Version version_;
};

// Offline documentation downloads that modern Xcodes no longer use.
class OldDocumentationFileEntry : public CleanupEntry {
 public:
  explicit OldDocumentationFileEntry(bool selected);
  std::string itemDescription() const override;  // the empty text
};

// One project's folder in DerivedData; pathUrl is the workspace it was built from.
class DerivedDataFileEntry : public CleanupEntry {
 public:
  DerivedDataFileEntry(std::string projectName, std::filesystem::path pathUrl, bool selected);
  const std::string& projectName() const { return projectName_; }
  const std::filesystem::path& pathUrl() const { return pathUrl_; }

 private:
  std::string projectName_;
  std::filesystem::path pathUrl_;
};

// Debug symbols copied from one device OS version ("17.4 (21E219) arm64e",
// "iPhone15,2 17.4 (21E219)").
class DeviceSupportFileEntry : public CleanupEntry {
 public:
  enum class OSType { iOS, watchOS, tvOS, macOS, visionOS, other };
  // Exact, case-sensitive: "iOS", "watchOS", "tvOS", "macOS", "visionOS"; anything else is other.
  static OSType osTypeFromName(std::string_view name);
  // The same word; other displays as the empty text.
  static std::string osTypeDisplayName(OSType type);

  DeviceSupportFileEntry(std::optional<std::string> device, OSType osType, Version version,
                         std::optional<AppleBuild> build, EntryDate date, std::optional<std::string> architecture,
                         bool selected);

  const std::optional<std::string>& device() const { return device_; }
  OSType osType() const { return osType_; }
  const Version& version() const { return version_; }
  const std::optional<AppleBuild>& build() const { return build_; }
  EntryDate date() const { return date_; }
  const std::optional<std::string>& architecture() const { return architecture_; }

  // The same support folder contents: equal versions (absent patch = 0), builds, architectures
  // and devices. Labels, dates and selections are not compared.
  bool operator==(const DeviceSupportFileEntry& other) const;

 private:
  std::optional<std::string> device_;
  OSType osType_;
  Version version_;
  std::optional<AppleBuild> build_;
  EntryDate date_;
  std::optional<std::string> architecture_;
};

// One .xcarchive; its path is the archive itself.
class ArchiveFileEntry : public CleanupEntry {
 public:
  enum class SubmissionStatus { success, failure, undefined };

  ArchiveFileEntry(std::string projectName, std::string bundleName, std::string versionString, std::string build,
                   EntryDate date, SubmissionStatus submissionStatus, bool selected,
                   const std::filesystem::path& archiveUrl);

  const std::string& projectName() const { return projectName_; }
  const std::string& bundleName() const { return bundleName_; }
  const std::string& versionString() const { return versionString_; }
  const std::optional<Version>& version() const { return version_; }  // versionString parsed, if it parses
  const std::string& build() const { return build_; }
  EntryDate date() const { return date_; }
  SubmissionStatus submissionStatus() const { return submissionStatus_; }

  // projectName + " " + versionString + " (" + build + ") (" + date + ")"
  std::string itemDescription() const override;

 private:
  std::string projectName_;
  std::string bundleName_;
  std::string versionString_;
  std::optional<Version> version_;
  std::string build_;
  EntryDate date_;
  SubmissionStatus submissionStatus_;
};

// A simulator device folder (unavailable device or XCTest clone). runtime is the display name
// ("iOS 17.4"). Shows no tooltip.
class SimulatorFileEntry : public CleanupEntry {
 public:
  SimulatorFileEntry(std::string label, std::string udid, std::string runtime, bool selected);
  const std::string& udid() const { return udid_; }
  const std::string& runtime() const { return runtime_; }

 private:
  std::string udid_;
  std::string runtime_;
};

}  // namespace tw
