// The one reader of property lists (XML or binary) in the program: Xcode and simulator
// metadata, device backups, the bundle's Info.plist and the settings store all come through here.
//
// libplist reads a whole file into memory and parses, frees and writes nested arrays and
// dictionaries recursively, so a hostile file can exhaust memory (a sparse file of gigabytes)
// or overflow the stack (a list nested a hundred thousand levels deep). Before libplist sees a
// byte, the file's size is checked against what a file of its kind sensibly holds and its
// structure is measured without recursion (how deep it nests, and for a binary list how many
// values its shared objects expand to); a file that fails a check is refused with a readable
// reason.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Error.h"

namespace tw {

// Why a property list was not read. The description is a whole phrase about the file ("it is
// nested more than 256 levels deep or refers to itself"); what() adds the file's path.
class PropertyListError : public Error {
 public:
  enum class Reason { missing, unreadable, notAFile, tooLarge, empty, tooDeep, malformed, notADictionary };
  PropertyListError(Reason reason, const std::filesystem::path& file, std::string detail);
  Reason reason() const { return reason_; }
  // The reason as a phrase about the file, without its path.
  const std::string& detail() const { return detail_; }

 private:
  Reason reason_;
  std::string detail_;
};

class PropertyList {
 public:
  // No real property list comes near this; libplist's recursion stays shallow on any thread.
  static constexpr size_t kDeepestNesting = 256;

  // The largest file read for each kind of property list. Metadata files (an archive's or a
  // simulator's Info.plist, device.plist, DerivedData's info.plist, the bundle's Info.plist)
  // are a few kilobytes; a device backup's Info.plist carries app icons and can reach tens of
  // megabytes.
  enum class Kind { metadata, deviceBackup };
  static uint64_t largestFile(Kind kind);

  // Parses a whole property list held in memory. Throws PropertyListError (empty, tooDeep,
  // malformed); `origin` names where the bytes came from in the description.
  static PropertyList parse(std::string_view bytes, const std::filesystem::path& origin = {});
  // Reads and parses a regular file (following a symbolic link to it) of at most `largest`
  // bytes; a larger file is refused before it is read. Throws PropertyListError.
  static PropertyList read(const std::filesystem::path& file, uint64_t largest);
  // read(), then checks that the top level is a dictionary (notADictionary otherwise).
  static PropertyList readDictionary(const std::filesystem::path& file, Kind kind);

  // True when no path through the list's arrays and dictionaries is deeper than `deepest`, no
  // object of a binary list contains itself or is repeated into a tree far larger than the
  // file, and no XML construct could hide nesting from the check. Never recurses, whatever the
  // input.
  static bool structureWithinLimits(std::string_view bytes, size_t deepest = kDeepestNesting);

  // Takes ownership of a libplist node (plist_t).
  explicit PropertyList(void* node);

  // Nodes inside the list; every accessor is null-safe and checks the value's type.
  using Node = void*;
  Node root() const { return root_.get(); }
  // Gives up ownership of the whole list (a plist_t the caller frees with plist_free).
  Node release() { return root_.release(); }

  static Node item(Node dictionary, const char* key);  // null when absent or `dictionary` is none
  static std::optional<std::string> string(Node node);
  static std::optional<bool> boolean(Node node);
  static std::optional<std::chrono::system_clock::time_point> date(Node node);
  static bool isDictionary(Node node);
  static bool isArray(Node node);
  static std::vector<Node> arrayItems(Node node);  // empty unless `node` is an array

 private:
  struct Free {
    void operator()(void* node) const;
  };
  std::unique_ptr<void, Free> root_;
};

}  // namespace tw
