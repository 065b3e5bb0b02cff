// The archives scanner: every .xcarchive below the date folders of Xcode's Archives folder
// (and of a custom one), described by its Info.plist and grouped by project.
#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "platform/Log.h"
#include "model/XcodeEntries.h"
#include "platform/Text.h"
#include "scan/DevFiles.h"
#include "scan/Scanners.h"
#include "scan/XcodeScanSupport.h"

namespace tw {
namespace {

using xcode::PropertyList;
using ArchivePtr = std::shared_ptr<ArchiveFileEntry>;

// Xcode records each upload attempt under "Distributions"; one successful upload is enough.
ArchiveFileEntry::SubmissionStatus submissionStatus(PropertyList::Node distributions) {
  if (!PropertyList::isArray(distributions)) return ArchiveFileEntry::SubmissionStatus::undefined;
  const auto items = PropertyList::arrayItems(distributions);
  if (!std::all_of(items.begin(), items.end(), PropertyList::isDictionary)) {
    return ArchiveFileEntry::SubmissionStatus::undefined;
  }
  if (items.empty()) return ArchiveFileEntry::SubmissionStatus::failure;
  const bool uploaded = std::any_of(items.begin(), items.end(), [](PropertyList::Node distribution) {
    PropertyList::Node uploadEvent = PropertyList::item(distribution, "uploadEvent");
    return PropertyList::isDictionary(uploadEvent) &&
           PropertyList::string(PropertyList::item(uploadEvent, "state")) == std::optional<std::string>("success");
  });
  return uploaded ? ArchiveFileEntry::SubmissionStatus::success : ArchiveFileEntry::SubmissionStatus::failure;
}

ArchivePtr parseArchive(const std::filesystem::path& archive) {
  const std::string path = archive.string();
  const auto plist = xcode::readMetadata(archive / "Info.plist");
  if (!plist) {
    log::warning("DevFiles: Cannot open Info.plist file from archive: " + path);
    return nullptr;
  }
  PropertyList::Node root = plist->root();
  const auto projectName = PropertyList::string(PropertyList::item(root, "Name"));
  if (!projectName) {
    log::warning("DevFiles: Cannot get project name from archive: " + path);
    return nullptr;
  }
  const auto date = PropertyList::date(PropertyList::item(root, "CreationDate"));
  if (!date) {
    log::warning("DevFiles: Cannot get archive date from archive: " + path);
    return nullptr;
  }
  const auto status = submissionStatus(PropertyList::item(root, "Distributions"));
  PropertyList::Node properties = PropertyList::item(root, "ApplicationProperties");
  if (!PropertyList::isDictionary(properties)) {
    log::warning("DevFiles: Cannot get 'ApplicationProperties' from archive Info.plist file: " + path);
    return nullptr;
  }
  const auto bundleName = PropertyList::string(PropertyList::item(properties, "CFBundleIdentifier"));
  if (!bundleName) {
    log::warning("DevFiles: Cannot get bundle name from archive: " + path);
    return nullptr;
  }
  const auto versionString = PropertyList::string(PropertyList::item(properties, "CFBundleShortVersionString"));
  if (!versionString) {
    log::info("DevFiles: Cannot get bundle version from archive: " + path);
    return nullptr;
  }
  const auto build = PropertyList::string(PropertyList::item(properties, "CFBundleVersion"));
  if (!build) {
    log::warning("DevFiles: Cannot get bundle build from archive: " + path);
    return nullptr;
  }
  return std::make_shared<ArchiveFileEntry>(*projectName, *bundleName, *versionString, *build, *date, status,
                                            /*selected=*/false, archive);
}

// Newest first: by version when both parse (equal versions by build, as people read numbers),
// otherwise by the version texts as people read them.
bool newerArchive(const ArchivePtr& a, const ArchivePtr& b) {
  if (a->version() && b->version()) {
    const auto order = *a->version() <=> *b->version();
    if (order != 0) return order > 0;
    return localizedStandardCompare(a->build(), b->build()) > 0;
  }
  return localizedStandardCompare(a->versionString(), b->versionString()) > 0;
}

}  // namespace

std::vector<CleanupEntryPtr> scanArchives(const DevFiles& devFiles) {
  const auto roots =
      xcode::scanRoots(devFiles.userDeveloperFolderUrl() / "Xcode" / "Archives", devFiles.customArchivesFolderUrl());

  // Groups keep the order in which their first archive was found.
  std::vector<std::pair<std::string, std::vector<ArchivePtr>>> projects;
  // A root or date folder that cannot be listed contributes nothing, without a line.
  for (const auto& root : roots) {
    for (const auto& dateFolder : xcode::listFolder(root).value_or(std::vector<std::filesystem::path>{})) {
      for (const auto& item : xcode::listFolder(dateFolder).value_or(std::vector<std::filesystem::path>{})) {
        if (item.extension() != ".xcarchive") continue;
        ArchivePtr archive = parseArchive(item);
        if (!archive) continue;
        auto project = std::find_if(projects.begin(), projects.end(),
                                    [&](const auto& known) { return known.first == archive->projectName(); });
        if (project == projects.end()) {
          projects.emplace_back(archive->projectName(), std::vector<ArchivePtr>{});
          project = std::prev(projects.end());
        }
        project->second.push_back(std::move(archive));
      }
    }
  }

  std::vector<CleanupEntryPtr> groups;
  for (auto& [projectName, archives] : projects) {
    auto group =
        std::make_shared<CleanupEntry>(projectName, "", projectName, CleanupEntry::Icon::image("Files/XCArchive"),
                                       /*tooltip=*/true, /*selected=*/false);
    std::stable_sort(archives.begin(), archives.end(), newerArchive);
    for (const auto& archive : archives) group->addItem(archive);
    groups.push_back(std::move(group));
  }
  return groups;
}

}  // namespace tw
