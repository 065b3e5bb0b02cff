#include "support/DeveloperFolderFixture.h"

#include <plist/plist.h>

#include "support/TempDir.h"

namespace tw::test {
namespace {

void setText(plist_t dictionary, const char* key, const std::optional<std::string>& value) {
  if (value) plist_dict_set_item(dictionary, key, plist_new_string(value->c_str()));
}

plist_t uploads(std::vector<const char*> states) {
  plist_t list = plist_new_array();
  for (const char* state : states) {
    plist_t distribution = plist_new_dict(), event = plist_new_dict();
    plist_dict_set_item(event, "state", plist_new_string(state));
    plist_dict_set_item(distribution, "uploadEvent", event);
    plist_dict_set_item(distribution, "destination", plist_new_string("upload"));
    plist_array_append_item(list, distribution);
  }
  return list;
}

plist_t distributions(ArchiveDistributions kind) {
  switch (kind) {
    case ArchiveDistributions::missing: return nullptr;
    case ArchiveDistributions::notAnArray: return plist_new_string("uploaded");
    case ArchiveDistributions::notDictionaries: {
      plist_t list = plist_new_array();
      plist_array_append_item(list, plist_new_string("success"));
      return list;
    }
    case ArchiveDistributions::empty: return uploads({});
    case ArchiveDistributions::allFailed: return uploads({"failure", "failed"});
    case ArchiveDistributions::oneSucceeded: return uploads({"failure", "success"});
  }
  return nullptr;
}

}  // namespace

std::vector<std::string> linesStartingWith(const LogCapture& log, const std::string& prefix) {
  std::vector<std::string> found;
  for (const std::string& line : log.lines()) {
    const size_t space = line.find(' ');
    if (space != std::string::npos && line.compare(space + 1, prefix.size(), prefix) == 0) found.push_back(line);
  }
  return found;
}

plist_t textDictionary(const std::vector<std::pair<std::string, std::string>>& texts) {
  plist_t dictionary = plist_new_dict();
  for (const auto& [key, value] : texts) plist_dict_set_item(dictionary, key.c_str(), plist_new_string(value.c_str()));
  return dictionary;
}

std::vector<std::string> labelsOf(const std::vector<CleanupEntryPtr>& entries) {
  std::vector<std::string> labels;
  for (const auto& entry : entries) labels.push_back(entry->label());
  return labels;
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
  writeFileOfSize(folder / "Build" / "Intermediates.noindex" / "objects.o", bytes);
  if (workspacePath) {
    plist_t info = plist_new_dict();
    setText(info, "WorkspacePath", workspacePath);
    plist_dict_set_item(info, "LastAccessedDate", plist_new_date(700000000, 0));
    writePlist(folder / "info.plist", info, format);
  }
  return folder;
}

std::filesystem::path DeveloperFolderFixture::addArchive(const std::string& dateFolder, const std::string& archiveName,
                                                         const ArchiveInfo& info, PropertyListFormat format,
                                                         const std::optional<std::filesystem::path>& root) {
  const std::filesystem::path archive = root.value_or(xcode() / "Archives") / dateFolder / (archiveName + ".xcarchive");
  writeFileOfSize(archive / "Products" / "Applications" / "App.app" / "App", 8192);
  plist_t plist = plist_new_dict();
  if (info.nameAsNumber) plist_dict_set_item(plist, "Name", plist_new_uint(42));
  else setText(plist, "Name", info.name);
  if (info.creationDate) plist_dict_set_item(plist, "CreationDate", plistDate(*info.creationDate));
  plist_dict_set_item(plist, "ArchiveVersion", plist_new_uint(2));
  if (plist_t list = distributions(info.distributions)) plist_dict_set_item(plist, "Distributions", list);
  if (info.applicationProperties) {
    plist_t properties = plist_new_dict();
    setText(properties, "CFBundleIdentifier", info.bundleIdentifier);
    setText(properties, "CFBundleShortVersionString", info.shortVersion);
    setText(properties, "CFBundleVersion", info.bundleVersion);
    setText(properties, "ApplicationPath", "Applications/" + info.name.value_or("App") + ".app");
    plist_dict_set_item(plist, "ApplicationProperties", properties);
  }
  writePlist(archive / "Info.plist", plist, format);
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
  writeFileOfSize(xcode() / "iOS Device Logs" / fileName, bytes);
  return xcode() / "iOS Device Logs" / fileName;
}

std::shared_ptr<DevFiles> DeveloperFolderFixture::devFiles(std::optional<std::filesystem::path> derivedData,
                                                           std::optional<std::filesystem::path> archives,
                                                           DevFiles::Executor executor) const {
  return DevFiles::create(developerFolder_, std::move(derivedData), std::move(archives), std::move(executor))
      .value_or(nullptr);
}

void DeveloperFolderFixture::populate() {
  addDerivedData("Sea_Lion-abcdefghijklmnopqrstuvwxyz", "/Users/dev/Projects/Sea Lion/Sea Lion.xcodeproj",
                 3 * 1024 * 1024);
  addDerivedData("Harbour-bcdefghijklmnopqrstuvwxyza", "/Users/dev/Projects/Harbour/Harbour.xcworkspace",
                 2 * 1024 * 1024, PropertyListFormat::binary);
  addDerivedData("Lost_Project-cdefghijklmnopqrstuvwxyzab", std::nullopt, 1024 * 1024);
  std::filesystem::create_directories(xcode() / "DerivedData" / "ModuleCache.noindex");
  writeFileOfSize(xcode() / "DerivedData" / "ModuleCache" / "Swift.pcm", 65536);

  ArchiveInfo seaLion{.name = "Sea Lion", .distributions = ArchiveDistributions::oneSucceeded,
                      .bundleIdentifier = "com.example.sealion", .shortVersion = "1.2", .bundleVersion = "12"};
  addArchive("2024-03-01", "Sea Lion 01.03.2024, 10.15", seaLion);
  seaLion.shortVersion = "1.3";
  seaLion.bundleVersion = "14";
  seaLion.creationDate = 1710000000;
  seaLion.distributions = ArchiveDistributions::allFailed;
  addArchive("2024-03-09", "Sea Lion 09.03.2024, 16.00", seaLion, PropertyListFormat::binary);
  addArchive("2024-03-09", "Harbour 09.03.2024, 17.30",
             ArchiveInfo{.name = "Harbour", .bundleIdentifier = "com.example.harbour", .shortVersion = "2.0"});

  for (const char* name : {"17.4 (21E219)", "17.4 (21E219) arm64e", "iPhone15,2 17.2 (21C62) arm64e"})
    addDeviceSupport("iOS", name);
  addDeviceSupport("watchOS", "10.4 (21T216)");
  addDocumentationCache("v238", "15.2");
  addDocumentationCache("v239", "15.3");
  addUserData("Previews", 512 * 1024);
  addUserData("IB Support/Simulator Devices", 256 * 1024);
  addDeviceLog("iOS Device Logs 17.2.db");
  addDeviceLog("iOS Device Logs 16.4.db");
  writeFileOfSize(developerFolder_ / "Shared/Documentation/DocSets/com.apple.adc.documentation.docset/docSet.dsidx",
                  128 * 1024);
}

}  // namespace tw::test
