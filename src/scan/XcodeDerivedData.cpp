// The derived-data scanner: one entry per project folder in Xcode's DerivedData (and in a
// custom one), named after the project and pointing at its workspace; folders whose
// workspace is unknown are listed under "Other".
#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "model/SystemImages.h"
#include "model/XcodeEntries.h"
#include "scan/DevFiles.h"
#include "scan/Scanners.h"
#include "scan/XcodeScanSupport.h"

namespace tw {

namespace {

// "My_App-abcdefghijklmnop" names the project "My App": Xcode appends a hash after the last
// dash and turns spaces into underscores.
std::string projectNameOfFolder(const std::filesystem::path& folder) {
  const std::string name = folder.filename().string();
  std::vector<std::string> parts;
  size_t start = 0;
  while (start <= name.size()) {
    size_t end = name.find('-', start);
    if (end == std::string::npos) end = name.size();
    if (end > start) parts.push_back(name.substr(start, end - start));
    start = end + 1;
  }
  std::string projectName;
  if (parts.size() <= 1) {
    projectName = name;
  } else {
    for (size_t index = 0; index + 1 < parts.size(); ++index) {
      if (index > 0) projectName += '-';
      projectName += parts[index];
    }
  }
  std::replace(projectName.begin(), projectName.end(), '_', ' ');
  return projectName;
}

bool largerFirst(const CleanupEntryPtr& a, const CleanupEntryPtr& b) { return a->size() > b->size(); }

}  // namespace

std::vector<CleanupEntryPtr> scanDerivedData(const DevFiles& devFiles) {
  const auto roots = xcode::scanRoots(devFiles.userDeveloperFolderUrl() / "Xcode" / "DerivedData",
                                      devFiles.customDerivedDataFolderUrl());
  std::vector<CleanupEntryPtr> entries;
  std::vector<std::filesystem::path> others;
  // A root that cannot be listed (missing, a file, unreadable) contributes nothing, without a
  // line: only the device-support folders are worth a warning when they cannot be checked.
  for (const auto& root : roots) {
    for (const auto& folder : xcode::listFolder(root).value_or(std::vector<std::filesystem::path>{})) {
      // Shared by every project; Xcode rebuilds it, but it is not any one project's data.
      if (folder.filename() == "ModuleCache") continue;
      const auto plist = xcode::readMetadata(folder / "info.plist");
      const auto workspace =
          plist ? xcode::PropertyList::string(xcode::PropertyList::item(plist->root(), "WorkspacePath")) : std::nullopt;
      if (!workspace) {
        others.push_back(folder);
        continue;
      }
      auto entry = std::make_shared<DerivedDataFileEntry>(projectNameOfFolder(folder),
                                                          std::filesystem::path(*workspace), /*selected=*/false);
      entry->addPath(folder);
      entries.push_back(std::move(entry));
    }
  }

  for (const auto& entry : entries) entry->calculateSize();
  std::stable_sort(entries.begin(), entries.end(), largerFirst);

  if (!others.empty()) {
    auto group = std::make_shared<CleanupEntry>("Other", "", "Other", CleanupEntry::Icon::system(systemImage::folder),
                                                /*tooltip=*/true, /*selected=*/false);
    for (const auto& folder : others) {
      auto entry = std::make_shared<DerivedDataFileEntry>(projectNameOfFolder(folder), folder, /*selected=*/false);
      entry->addPath(folder);
      group->addItem(entry);
    }
    group->calculateSize();
    entries.push_back(std::move(group));
  }
  return entries;
}

}  // namespace tw
