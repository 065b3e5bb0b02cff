#include "scan/XcodeScanSupport.h"

#include <plist/plist.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <limits>
#include <system_error>

#include "platform/Log.h"
#include "platform/FileDates.h"

namespace tw::xcode {
namespace {

// Seconds between 1 January 1970 and 1 January 2001, the epoch of property-list dates.
constexpr int64_t kSecondsFrom1970To2001 = 978307200;

// An Info.plist is a few kilobytes; anything far larger is no property list we should parse.
constexpr std::uintmax_t kMaximumPropertyListSize = 64 * 1024 * 1024;

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
  std::error_code error;
  std::filesystem::directory_iterator iterator(folder, error);
  if (error) return std::nullopt;
  std::vector<std::filesystem::path> items;
  for (auto end = std::filesystem::directory_iterator(); iterator != end; iterator.increment(error)) {
    const std::string name = iterator->path().filename().string();
    if (!name.empty() && name.front() != '.') items.push_back(iterator->path());
  }
  if (error) return std::nullopt;
  std::sort(items.begin(), items.end());
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

PropertyList::PropertyList(void* node) : root_(node, [](void* value) { plist_free(static_cast<plist_t>(value)); }) {}

std::optional<PropertyList> PropertyList::readDictionary(const std::filesystem::path& file) {
  std::error_code error;
  if (!std::filesystem::is_regular_file(file, error)) return std::nullopt;
  const std::uintmax_t fileSize = std::filesystem::file_size(file, error);
  if (error || fileSize == 0 || fileSize > kMaximumPropertyListSize) return std::nullopt;

  std::ifstream stream(file, std::ios::binary);
  if (!stream) return std::nullopt;
  std::string contents((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
  if (!stream.good() && !stream.eof()) return std::nullopt;
  if (contents.empty() || contents.size() > std::numeric_limits<uint32_t>::max()) return std::nullopt;

  plist_t node = nullptr;
  plist_from_memory(contents.data(), static_cast<uint32_t>(contents.size()), &node);
  if (node == nullptr) return std::nullopt;
  PropertyList list(node);
  if (!isDictionary(list.root())) return std::nullopt;
  return list;
}

PropertyList::Node PropertyList::item(Node dictionary, const char* key) {
  if (!isDictionary(dictionary)) return nullptr;
  return plist_dict_get_item(static_cast<plist_t>(dictionary), key);
}

std::optional<std::string> PropertyList::string(Node node) {
  if (node == nullptr || plist_get_node_type(static_cast<plist_t>(node)) != PLIST_STRING) return std::nullopt;
  uint64_t length = 0;
  const char* text = plist_get_string_ptr(static_cast<plist_t>(node), &length);
  if (text == nullptr) return std::string();
  return std::string(text, length);
}

std::optional<std::chrono::system_clock::time_point> PropertyList::date(Node node) {
  if (node == nullptr || plist_get_node_type(static_cast<plist_t>(node)) != PLIST_DATE) return std::nullopt;
  int32_t seconds = 0;
  int32_t microseconds = 0;
  plist_get_date_val(static_cast<plist_t>(node), &seconds, &microseconds);
  return std::chrono::system_clock::time_point(std::chrono::duration_cast<std::chrono::system_clock::duration>(
      std::chrono::seconds(kSecondsFrom1970To2001 + seconds) + std::chrono::microseconds(microseconds)));
}

bool PropertyList::isDictionary(Node node) {
  return node != nullptr && plist_get_node_type(static_cast<plist_t>(node)) == PLIST_DICT;
}

bool PropertyList::isArray(Node node) {
  return node != nullptr && plist_get_node_type(static_cast<plist_t>(node)) == PLIST_ARRAY;
}

std::vector<PropertyList::Node> PropertyList::arrayItems(Node node) {
  std::vector<Node> items;
  if (!isArray(node)) return items;
  const uint32_t count = plist_array_get_size(static_cast<plist_t>(node));
  items.reserve(count);
  for (uint32_t index = 0; index < count; ++index) {
    items.push_back(plist_array_get_item(static_cast<plist_t>(node), index));
  }
  return items;
}

}  // namespace tw::xcode
