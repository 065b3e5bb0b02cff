#include "support/DeveloperFolderFixture.h"

#include <plist/plist.h>

#include <fstream>
#include <memory>
#include <stdexcept>

#include "support/TempDir.h"

namespace tw::test {
namespace {

// Property-list dates count seconds from 1 January 2001.
constexpr int64_t kSecondsFrom1970To2001 = 978307200;

using PlistPtr = std::unique_ptr<void, void (*)(plist_t)>;

PlistPtr makeDictionary() { return PlistPtr(plist_new_dict(), plist_free); }

void writePlist(const std::filesystem::path& file, plist_t plist, PropertyListFormat format) {
  char* bytes = nullptr;
  uint32_t length = 0;
  if (format == PropertyListFormat::binary) {
    plist_to_bin(plist, &bytes, &length);
  } else {
    plist_to_xml(plist, &bytes, &length);
  }
  if (bytes == nullptr) throw std::runtime_error("cannot encode property list for " + file.string());
  std::string contents(bytes, length);
  if (format == PropertyListFormat::binary) {
    plist_to_bin_free(bytes);
  } else {
    plist_to_xml_free(bytes);
  }
  writeFile(file, contents);
}

plist_t uploadAttempt(const char* state) {
  plist_t distribution = plist_new_dict();
  plist_t uploadEvent = plist_new_dict();
  plist_dict_set_item(uploadEvent, "state", plist_new_string(state));
  plist_dict_set_item(distribution, "uploadEvent", uploadEvent);
  plist_dict_set_item(distribution, "destination", plist_new_string("upload"));
  return distribution;
}

plist_t distributions(ArchiveDistributions kind) {
  switch (kind) {
    case ArchiveDistributions::missing:
      return nullptr;
    case ArchiveDistributions::notAnArray:
      return plist_new_string("uploaded");
    case ArchiveDistributions::notDictionaries: {
      plist_t list = plist_new_array();
      plist_array_append_item(list, plist_new_string("success"));
      return list;
    }
    case ArchiveDistributions::empty:
      return plist_new_array();
    case ArchiveDistributions::allFailed: {
      plist_t list = plist_new_array();
      plist_array_append_item(list, uploadAttempt("failure"));
      plist_array_append_item(list, uploadAttempt("failed"));
      return list;
    }
    case ArchiveDistributions::oneSucceeded: {
      plist_t list = plist_new_array();
      plist_array_append_item(list, uploadAttempt("failure"));
      plist_array_append_item(list, uploadAttempt("success"));
      return list;
    }
  }
  return nullptr;
}

}  // namespace

CapturedLog::CapturedLog() {
  Logger::main().setLineObserver([this](Logger::Level level, const std::string& line) {
    std::lock_guard lock(mutex_);
    lines_.push_back({level, line});
  });
}

CapturedLog::~CapturedLog() { Logger::main().setLineObserver(nullptr); }

std::vector<CapturedLog::Line> CapturedLog::lines() const {
  std::lock_guard lock(mutex_);
  return lines_;
}

std::vector<CapturedLog::Line> CapturedLog::linesStartingWith(const std::string& prefix) const {
  std::vector<Line> found;
  for (const Line& line : lines()) {
    const size_t space = line.text.find(' ');
    if (space != std::string::npos && line.text.compare(space + 1, prefix.size(), prefix) == 0) found.push_back(line);
  }
  return found;
}

void writePropertyListWithText(const std::filesystem::path& file, const std::string& key, const std::string& value,
                               PropertyListFormat format) {
  PlistPtr dictionary = makeDictionary();
  plist_dict_set_item(dictionary.get(), key.c_str(), plist_new_string(value.c_str()));
  writePlist(file, dictionary.get(), format);
}

DeveloperFolderFixture::DeveloperFolderFixture(std::filesystem::path developerFolder)
    : developerFolder_(std::move(developerFolder)) {
  std::filesystem::create_directories(developerFolder_ / "Xcode");
  std::filesystem::create_directories(developerFolder_ / "CoreSimulator");
}

std::filesystem::path DeveloperFolderFixture::addDerivedData(const std::string& folderName,
                                                             const std::optional<std::string>& workspacePath,
                                                             size_t bytes, PropertyListFormat format,
                                                             const std::optional<std::filesystem::path>& root) {
  const std::filesystem::path folder = root.value_or(xcode() / "DerivedData") / folderName;
  std::filesystem::create_directories(folder / "Build" / "Intermediates.noindex");
  writeFileOfSize(folder / "Build" / "Intermediates.noindex" / "objects.o", bytes);
  if (workspacePath) {
    PlistPtr info = makeDictionary();
    plist_dict_set_item(info.get(), "WorkspacePath", plist_new_string(workspacePath->c_str()));
    plist_dict_set_item(info.get(), "LastAccessedDate", plist_new_date(700000000, 0));
    writePlist(folder / "info.plist", info.get(), format);
  }
  return folder;
}

std::filesystem::path DeveloperFolderFixture::addArchive(const std::string& dateFolder, const std::string& archiveName,
                                                         const ArchiveInfo& info, PropertyListFormat format,
                                                         const std::optional<std::filesystem::path>& root) {
  const std::filesystem::path archive = root.value_or(xcode() / "Archives") / dateFolder / (archiveName + ".xcarchive");
  writeFileOfSize(archive / "Products" / "Applications" / "App.app" / "App", 8192);

  PlistPtr plist = makeDictionary();
  if (info.nameAsNumber) {
    plist_dict_set_item(plist.get(), "Name", plist_new_uint(42));
  } else if (info.name) {
    plist_dict_set_item(plist.get(), "Name", plist_new_string(info.name->c_str()));
  }
  if (info.creationDate) {
    plist_dict_set_item(plist.get(), "CreationDate",
                        plist_new_date(static_cast<int32_t>(*info.creationDate - kSecondsFrom1970To2001), 0));
  }
  plist_dict_set_item(plist.get(), "ArchiveVersion", plist_new_uint(2));
  if (plist_t list = distributions(info.distributions)) plist_dict_set_item(plist.get(), "Distributions", list);
  if (info.applicationProperties) {
    plist_t properties = plist_new_dict();
    if (info.bundleIdentifier) {
      plist_dict_set_item(properties, "CFBundleIdentifier", plist_new_string(info.bundleIdentifier->c_str()));
    }
    if (info.shortVersion) {
      plist_dict_set_item(properties, "CFBundleShortVersionString", plist_new_string(info.shortVersion->c_str()));
    }
    if (info.bundleVersion) {
      plist_dict_set_item(properties, "CFBundleVersion", plist_new_string(info.bundleVersion->c_str()));
    }
    plist_dict_set_item(properties, "ApplicationPath",
                        plist_new_string(("Applications/" + info.name.value_or("App") + ".app").c_str()));
    plist_dict_set_item(plist.get(), "ApplicationProperties", properties);
  }
  writePlist(archive / "Info.plist", plist.get(), format);
  return archive;
}

std::filesystem::path DeveloperFolderFixture::addDeviceSupport(const std::string& os, const std::string& folderName,
                                                               size_t bytes) {
  const std::filesystem::path folder = xcode() / (os + " DeviceSupport") / folderName;
  writeFileOfSize(folder / "Symbols" / "usr" / "lib" / "dyld", bytes);
  writeFile(folder / "Info.plist", "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict/></plist>");
  return folder;
}

std::filesystem::path DeveloperFolderFixture::addDocumentationCache(const std::string& container,
                                                                    const std::string& version, size_t bytes) {
  const std::filesystem::path folder = xcode() / "DocumentationCache" / container / version;
  writeFileOfSize(folder / "DeveloperDocumentation.index" / "index.db", bytes);
  return folder;
}

std::filesystem::path DeveloperFolderFixture::addUserData(const std::string& relativeFolder, size_t bytes) {
  const std::filesystem::path folder = xcode() / "UserData" / relativeFolder;
  writeFileOfSize(folder / "cache.data", bytes);
  return folder;
}

std::filesystem::path DeveloperFolderFixture::addDeviceLog(const std::string& fileName, size_t bytes) {
  const std::filesystem::path file = xcode() / "iOS Device Logs" / fileName;
  writeFileOfSize(file, bytes);
  return file;
}

std::filesystem::path DeveloperFolderFixture::addOldDocumentation(size_t bytes) {
  const std::filesystem::path folder = developerFolder_ / "Shared" / "Documentation";
  writeFileOfSize(folder / "DocSets" / "com.apple.adc.documentation.docset" / "Contents" / "docSet.dsidx", bytes);
  return folder;
}

void DeveloperFolderFixture::populate() {
  addDerivedData("Sea_Lion-abcdefghijklmnopqrstuvwxyz", "/Users/dev/Projects/Sea Lion/Sea Lion.xcodeproj",
                 3 * 1024 * 1024);
  addDerivedData("Harbour-bcdefghijklmnopqrstuvwxyza", "/Users/dev/Projects/Harbour/Harbour.xcworkspace",
                 2 * 1024 * 1024, PropertyListFormat::binary);
  addDerivedData("Lost_Project-cdefghijklmnopqrstuvwxyzab", std::nullopt, 1024 * 1024);
  std::filesystem::create_directories(xcode() / "DerivedData" / "ModuleCache.noindex");
  writeFileOfSize(xcode() / "DerivedData" / "ModuleCache" / "Swift.pcm", 65536);

  ArchiveInfo seaLion;
  seaLion.name = "Sea Lion";
  seaLion.bundleIdentifier = "com.example.sealion";
  seaLion.shortVersion = "1.2";
  seaLion.bundleVersion = "12";
  seaLion.distributions = ArchiveDistributions::oneSucceeded;
  addArchive("2024-03-01", "Sea Lion 01.03.2024, 10.15", seaLion);
  seaLion.shortVersion = "1.3";
  seaLion.bundleVersion = "14";
  seaLion.creationDate = 1710000000;
  seaLion.distributions = ArchiveDistributions::allFailed;
  addArchive("2024-03-09", "Sea Lion 09.03.2024, 16.00", seaLion, PropertyListFormat::binary);
  ArchiveInfo harbour;
  harbour.name = "Harbour";
  harbour.bundleIdentifier = "com.example.harbour";
  harbour.shortVersion = "2.0";
  harbour.bundleVersion = "200";
  addArchive("2024-03-09", "Harbour 09.03.2024, 17.30", harbour);

  addDeviceSupport("iOS", "17.4 (21E219)");
  addDeviceSupport("iOS", "17.4 (21E219) arm64e");
  addDeviceSupport("iOS", "iPhone15,2 17.2 (21C62) arm64e");
  addDeviceSupport("iOS", "16.4 (20E247)");
  addDeviceSupport("watchOS", "10.4 (21T216)");
  addDeviceSupport("macOS", "14.4 (23E214)");

  addDocumentationCache("v238", "15.2");
  addDocumentationCache("v239", "15.3");

  addUserData("Previews", 512 * 1024);
  addUserData("IB Support/Simulator Devices", 256 * 1024);

  addDeviceLog("iOS Device Logs 17.2.db");
  addDeviceLog("iOS Device Logs 17.2.1.db");
  addDeviceLog("iOS Device Logs 16.4.db");

  addOldDocumentation(128 * 1024);
}

}  // namespace tw::test
