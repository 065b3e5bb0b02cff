#include "support/DeveloperFolderFixture.h"

#include "support/TempDir.h"

namespace tw::test {
namespace {

void setText(plist_t dictionary, const char* key, const std::optional<std::string>& value) {
  if (value) plist_dict_set_item(dictionary, key, plist_new_string(value->c_str()));
}

// Xcode records one dictionary per upload attempt.
plist_t distributions(ArchiveDistributions kind) {
  using enum ArchiveDistributions;
  if (kind == missing || kind == notAnArray) return kind == missing ? nullptr : plist_new_string("uploaded");
  plist_t list = plist_new_array();
  if (kind == notDictionaries) plist_array_append_item(list, plist_new_string("success"));
  for (const char* state : {"failure", kind == allFailed ? "failed" : "success"}) {
    if (kind != allFailed && kind != oneSucceeded) break;
    plist_t distribution = textDictionary({{"destination", "upload"}});
    plist_dict_set_item(distribution, "uploadEvent", textDictionary({{"state", state}}));
    plist_array_append_item(list, distribution);
  }
  return list;
}

}  // namespace

std::vector<std::string> linesStartingWith(const LogCapture& log, const std::string& prefix) {
  std::vector<std::string> found;
  for (const std::string& line : log.lines())
    if (line.substr(line.find(' ') + 1).starts_with(prefix)) found.push_back(line);
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
  for (const char* folder : {"Xcode", "CoreSimulator"}) std::filesystem::create_directories(developerFolder_ / folder);
}

std::filesystem::path DeveloperFolderFixture::addDerivedData(const std::filesystem::path& folder,
                                                             const std::optional<std::string>& workspace, size_t bytes,
                                                             PlistFormat format) {
  const std::filesystem::path path = xcode() / "DerivedData" / folder;
  writeFileOfSize(path / "Build/Intermediates.noindex/objects.o", bytes);
  if (workspace) writePlist(path / "info.plist", textDictionary({{"WorkspacePath", *workspace}}), format);
  return path;
}

std::filesystem::path DeveloperFolderFixture::addArchive(const std::filesystem::path& dateFolder,
                                                         const std::string& archiveName, const ArchiveInfo& info,
                                                         PlistFormat format) {
  const std::filesystem::path archive = xcode() / "Archives" / dateFolder / (archiveName + ".xcarchive");
  writeFileOfSize(archive / "Products/Applications/App.app/App", 8192);
  plist_t plist = plist_new_dict();
  if (info.nameAsNumber) plist_dict_set_item(plist, "Name", plist_new_uint(42));
  if (!info.nameAsNumber) setText(plist, "Name", info.name);
  if (info.creationDate) plist_dict_set_item(plist, "CreationDate", plistDate(*info.creationDate));
  if (plist_t list = distributions(info.distributions)) plist_dict_set_item(plist, "Distributions", list);
  if (info.applicationProperties) {
    plist_t properties = plist_new_dict();
    setText(properties, "CFBundleIdentifier", info.bundleIdentifier);
    setText(properties, "CFBundleShortVersionString", info.shortVersion);
    setText(properties, "CFBundleVersion", info.bundleVersion);
    plist_dict_set_item(plist, "ApplicationProperties", properties);
  }
  writePlist(archive / "Info.plist", plist, format);
  return archive;
}

std::filesystem::path DeveloperFolderFixture::addFolder(const std::string& relative, size_t bytes) const {
  writeFileOfSize(xcode() / relative / "data", bytes);
  return xcode() / relative;
}

void DeveloperFolderFixture::populate() {
  addDerivedData("Sea_Lion-abcdefghijklmnopqrstuvwxyz", "/Users/dev/Projects/Sea Lion/Sea Lion.xcodeproj", 3 << 20);
  addDerivedData("Harbour-bcdefghijklmnopqrstuvwxyza", "/Users/dev/Projects/Harbour/Harbour.xcworkspace", 2 << 20,
                 PlistFormat::binary);
  addDerivedData("Lost_Project-cdefghijklmnopqrstuvwxyzab", std::nullopt, 1 << 20);
  std::filesystem::create_directories(xcode() / "DerivedData/ModuleCache.noindex");
  writeFileOfSize(xcode() / "DerivedData/ModuleCache/Swift.pcm", 65536);

  using enum ArchiveDistributions;  // name, distributions, version, build, bundle, date
  addArchive("2024-03-01", "Sea Lion 01.03.2024, 10.15",
             {"Sea Lion", oneSucceeded, "1.2", "12", "com.example.sealion"});
  addArchive("2024-03-09", "Sea Lion 09.03.2024, 16.00",
             {"Sea Lion", allFailed, "1.3", "14", "com.example.sealion", 1710000000}, PlistFormat::binary);
  addArchive("2024-03-09", "Harbour 09.03.2024, 17.30", {"Harbour", missing, "2.0", "1", "com.example.harbour"});

  for (const char* folder : {"iOS DeviceSupport/17.4 (21E219)", "iOS DeviceSupport/17.4 (21E219) arm64e",
                             "iOS DeviceSupport/iPhone15,2 17.2 (21C62) arm64e", "watchOS DeviceSupport/10.4 (21T216)",
                             "DocumentationCache/v238/15.2", "DocumentationCache/v239/15.3"})
    addFolder(folder);
  addFolder("UserData/Previews", 512 * 1024);
  addFolder("UserData/IB Support/Simulator Devices", 256 * 1024);
  for (const char* name : {"iOS Device Logs 17.2.db", "iOS Device Logs 16.4.db"})
    writeFileOfSize(xcode() / "iOS Device Logs" / name, 4096);
  writeFileOfSize(developerFolder_ / "Shared/Documentation/DocSets/com.apple.adc.documentation.docset/docSet.dsidx",
                  128 * 1024);
}

}  // namespace tw::test
