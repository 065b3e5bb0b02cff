#include "scan/XcodeScanSupport.h"

#include <sys/stat.h>

#include <algorithm>
#include <system_error>

#include "fs/DirectoryListing.h"
#include "platform/Log.h"
#include "platform/FileDates.h"

namespace tw::xcode {
namespace {

bool containsFolder(const std::vector<std::filesystem::path>& folders, const std::filesystem::path& folder) {
  const auto normal = [](const std::filesystem::path& path) {
    auto result = path.lexically_normal();
    if (!result.has_filename() && result.has_parent_path() && result != result.root_path()) {
      result = result.parent_path();
    }
    return result;
  };
  return std::any_of(folders.begin(), folders.end(),
                     [&](const std::filesystem::path& known) { return normal(known) == normal(folder); });
}

}  // namespace

std::optional<std::vector<std::filesystem::path>> listFolder(const std::filesystem::path& folder) {
  const auto names = folderItemNames(folder, HiddenItems::skipped);
  if (!names) return std::nullopt;
  std::vector<std::filesystem::path> items;
  items.reserve(names->size());
  for (const std::string& name : *names) items.push_back(folder / name);
  return items;
}

std::vector<std::filesystem::path> scanRoots(const std::filesystem::path& standardFolder,
                                             const std::optional<std::filesystem::path>& customFolder) {
  std::vector<std::filesystem::path> roots{standardFolder};
  if (customFolder && !containsFolder(roots, *customFolder)) roots.push_back(*customFolder);
  return roots;
}

bool itemExists(const std::filesystem::path& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0;
}

std::chrono::system_clock::time_point creationDate(const std::filesystem::path& path) {
  return fileCreationDate(path).value_or(distantPast());
}

std::optional<PropertyList> readMetadata(const std::filesystem::path& file) {
  try {
    return PropertyList::readDictionary(file, PropertyList::Kind::metadata);
  } catch (const PropertyListError& error) {
    if (error.reason() != PropertyListError::Reason::missing) log::warning(std::string("DevFiles: ") + error.what());
    return std::nullopt;
  }
}

}  // namespace tw::xcode
