// What the Xcode scanners share: the shallow folder listing they all use, reading property
// lists (XML or binary) into typed values, and the creation date of a folder.
#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tw::xcode {

// The visible items of `folder` (names starting with "." are skipped), not descending, in
// byte order of their names so that scans are repeatable. Absent when the folder cannot be
// listed (missing, not a folder, unreadable).
std::optional<std::vector<std::filesystem::path>> listFolder(const std::filesystem::path& folder);

// The standard folder followed by the user's custom one when that is set and not the same.
std::vector<std::filesystem::path> scanRoots(const std::filesystem::path& standardFolder,
                                             const std::optional<std::filesystem::path>& customFolder);

// Whether `folder` is there at all (following a symbolic link), as opposed to unreadable.
bool itemExists(const std::filesystem::path& path);

// The item's creation date; the distant past when its attributes cannot be read.
std::chrono::system_clock::time_point creationDate(const std::filesystem::path& path);

// One property list read from a file (XML or binary), owned for as long as its values are read.
class PropertyList {
 public:
  // Absent when the file cannot be read, is no property list, or its top level is no dictionary.
  static std::optional<PropertyList> readDictionary(const std::filesystem::path& file);
  // Takes ownership of a parsed libplist node (a dictionary); for building lists in memory.
  explicit PropertyList(void* node);

  // A dictionary node inside the list; every accessor is null-safe and checks the value's type.
  using Node = void*;
  Node root() const { return root_.get(); }
  static Node item(Node dictionary, const char* key);  // null when absent or `dictionary` is none
  static std::optional<std::string> string(Node node);
  static std::optional<std::chrono::system_clock::time_point> date(Node node);
  static bool isDictionary(Node node);
  static bool isArray(Node node);
  static std::vector<Node> arrayItems(Node node);  // empty unless `node` is an array

 private:
  std::shared_ptr<void> root_;
};

}  // namespace tw::xcode
