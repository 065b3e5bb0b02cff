#include "platform/PropertyList.h"

#include <fcntl.h>
#include <plist/plist.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <limits>

namespace tw {
namespace {

// Seconds between 1 January 1970 and 1 January 2001, the epoch of property-list dates.
constexpr int64_t kSecondsFrom1970To2001 = 978307200;

constexpr uint64_t kLargestMetadata = 8 * 1024 * 1024;
constexpr uint64_t kLargestDeviceBackupInfo = 64 * 1024 * 1024;

bool startsWith(std::string_view text, size_t at, std::string_view prefix) {
  return at <= text.size() && text.size() - at >= prefix.size() && text.compare(at, prefix.size(), prefix) == 0;
}

bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

// --- XML ---------------------------------------------------------------------------------------
//
// A tokenizer that agrees with libplist on where every construct ends, or gives up: a region
// that libplist skips but the check reads (or the reverse) could hide closing tags, and with
// them any amount of nesting. So comments, processing instructions and CDATA sections end at
// the first terminator (as every XML reader ends them); a tag or DOCTYPE whose end depends on
// how quotes are read, a DOCTYPE with an internal subset and any other "<!" construct make the
// file count as too deep. Real property lists contain none of these.

// Where a tag or DOCTYPE that starts at `at` ends (the index of its '>'), when every reading of
// quotes agrees on it.
std::optional<size_t> unambiguousEnd(std::string_view text, size_t at) {
  size_t first = text.find('>', at);
  if (first == std::string_view::npos) return std::nullopt;
  char quote = 0;
  for (size_t i = at + 1; i < text.size(); ++i) {
    char c = text[i];
    if (c == '<' && quote == 0) return std::nullopt;  // a tag inside a tag
    if (quote != 0) {
      if (c == quote) quote = 0;
    } else if (c == '"' || c == '\'') {
      quote = c;
    } else if (c == '>') {
      return i == first ? std::optional(i) : std::nullopt;
    }
  }
  return std::nullopt;
}

bool xmlNestingWithinLimit(std::string_view text, size_t deepest) {
  size_t depth = 0;
  size_t at = text.find('<');
  while (at != std::string_view::npos) {
    size_t next = at + 1;
    if (startsWith(text, at, "<?")) {
      size_t end = text.find("?>", at + 2);
      if (end == std::string_view::npos) return true;  // unterminated: the parser stops there
      next = end + 2;
    } else if (startsWith(text, at, "<!--")) {
      size_t end = text.find("-->", at + 4);
      if (end == std::string_view::npos) return true;
      next = end + 3;
    } else if (startsWith(text, at, "<![CDATA[")) {
      size_t end = text.find("]]>", at + 9);
      if (end == std::string_view::npos) return true;
      next = end + 3;
    } else if (startsWith(text, at, "<!DOCTYPE")) {
      auto end = unambiguousEnd(text, at);
      if (!end || text.substr(at, *end - at).find('[') != std::string_view::npos) return false;
      next = *end + 1;
    } else if (startsWith(text, at, "<!")) {
      return false;
    } else {
      auto end = unambiguousEnd(text, at);
      if (!end) return text.find('>', at) == std::string_view::npos;  // unterminated: rejected
      bool closing = startsWith(text, at, "</");
      size_t nameStart = at + (closing ? 2 : 1);
      size_t nameEnd = nameStart;
      while (nameEnd < *end && !isSpace(text[nameEnd]) && text[nameEnd] != '/') ++nameEnd;
      std::string_view name = text.substr(nameStart, nameEnd - nameStart);
      if (name == "array" || name == "dict") {
        // Only the exact "<dict/>" counts as empty: any other spelling might open a container
        // to the parser, so it is counted as one.
        bool empty = !closing && nameEnd + 1 == *end && text[nameEnd] == '/';
        if (closing) {
          if (depth > 0) --depth;
        } else if (!empty && ++depth > deepest) {
          return false;
        }
      }
      next = *end + 1;
    }
    at = text.find('<', next);
  }
  return true;
}

// --- Binary ------------------------------------------------------------------------------------

uint64_t bigEndian(std::string_view bytes, size_t at, size_t size) {
  uint64_t value = 0;
  for (size_t i = 0; i < size; ++i) value = (value << 8) | static_cast<unsigned char>(bytes[at + i]);
  return value;
}

// Walks the object graph of a binary property list without recursion: false when a path from
// the top object is deeper than the limit, an object refers back to one of its containers, a
// reference points outside the file, or the tree libplist would build is far larger than the
// file. libplist builds a copy of an object for every reference to it, so a list of a hundred
// bytes whose arrays each refer ten times to the next would otherwise grow to billions of
// values. Real lists share only small values (keys, numbers), one copy per reference.
bool binaryStructureWithinLimits(std::string_view bytes, size_t deepest) {
  constexpr size_t kTrailer = 32;
  if (bytes.size() < 8 + kTrailer) return true;  // the parser rejects it
  size_t trailer = bytes.size() - kTrailer;
  size_t offsetSize = static_cast<unsigned char>(bytes[trailer + 6]);
  size_t refSize = static_cast<unsigned char>(bytes[trailer + 7]);
  uint64_t objectCount = bigEndian(bytes, trailer + 8, 8);
  uint64_t top = bigEndian(bytes, trailer + 16, 8);
  uint64_t tableOffset = bigEndian(bytes, trailer + 24, 8);
  if (offsetSize < 1 || offsetSize > 8 || refSize < 1 || refSize > 8 || objectCount == 0 || objectCount > trailer ||
      top >= objectCount || tableOffset > trailer || (trailer - tableOffset) / offsetSize < objectCount) {
    return false;
  }
  auto offsetOf = [&](uint64_t object) { return bigEndian(bytes, tableOffset + object * offsetSize, offsetSize); };
  // The objects a container refers to: its references start at `first`, `count` of them.
  struct Container {
    uint64_t first = 0;
    uint64_t count = 0;
  };
  auto containerAt = [&](uint64_t object, Container& container) -> std::optional<bool> {
    uint64_t offset = offsetOf(object);
    if (offset >= tableOffset) return std::nullopt;
    unsigned char marker = static_cast<unsigned char>(bytes[offset]);
    unsigned kind = marker >> 4;
    if (kind != 0xA && kind != 0xC && kind != 0xD) return false;
    uint64_t count = marker & 0x0F;
    uint64_t at = offset + 1;
    if (count == 0x0F) {
      if (at >= tableOffset) return std::nullopt;
      unsigned char intMarker = static_cast<unsigned char>(bytes[at]);
      size_t intSize = size_t{1} << (intMarker & 0x0F);
      if ((intMarker >> 4) != 0x1 || intSize > 8 || at + 1 + intSize > tableOffset) return std::nullopt;
      count = bigEndian(bytes, at + 1, intSize);
      at += 1 + intSize;
    }
    if (kind == 0xD) {
      if (count > tableOffset) return std::nullopt;
      count *= 2;
    }
    if (count > (tableOffset - at) / refSize) return std::nullopt;
    container = {at, count};
    return true;
  };

  enum Color : uint8_t { unseen, open, done };
  std::vector<uint8_t> color(objectCount, unseen);
  std::vector<uint32_t> height(objectCount, 0);  // levels below a finished object
  // Values in the tree built from a finished object, counting every copy.
  const uint64_t largestTree = std::min<uint64_t>(bytes.size() + 1'000'000, UINT32_MAX);
  std::vector<uint32_t> treeSize(objectCount, 1);
  struct Frame {
    uint64_t object;
    Container container;
    uint64_t next;
  };
  std::vector<Frame> path;
  auto enter = [&](uint64_t object) -> bool {
    Container container;
    auto isContainer = containerAt(object, container);
    if (!isContainer) return false;
    color[object] = open;
    if (!*isContainer) {
      color[object] = done;
      return true;
    }
    if (path.size() + 1 > deepest) return false;
    path.push_back({object, container, 0});
    return true;
  };
  if (!enter(top)) return false;
  while (!path.empty()) {
    Frame& frame = path.back();
    if (frame.next == frame.container.count) {
      uint32_t below = 0;
      uint64_t values = 1;
      for (uint64_t i = 0; i < frame.container.count; ++i) {
        uint64_t child = bigEndian(bytes, frame.container.first + i * refSize, refSize);
        below = std::max(below, height[child] + 1);
        values += treeSize[child];
        if (values > largestTree) return false;
      }
      height[frame.object] = below;
      treeSize[frame.object] = static_cast<uint32_t>(values);
      color[frame.object] = done;
      path.pop_back();
      continue;
    }
    uint64_t child = bigEndian(bytes, frame.container.first + frame.next * refSize, refSize);
    ++frame.next;
    if (child >= objectCount) return false;
    if (color[child] == open) return false;
    if (color[child] == done) {
      if (path.size() + height[child] + 1 > deepest) return false;
      continue;
    }
    if (!enter(child)) return false;
  }
  return true;
}

// libplist asserts, and so stops the program, when it hands out a key or text that holds a NUL
// character, though its parsers accept one (a raw NUL byte in XML, a NUL in a binary string).
// No real property list holds one: such a list is refused as malformed before parsing.
bool holdsNulCharacter(std::string_view bytes) {
  if (!startsWith(bytes, 0, "bplist")) return bytes.find('\0') != std::string_view::npos;
  constexpr size_t kTrailer = 32;
  if (bytes.size() < 8 + kTrailer) return false;  // the parser rejects it
  const size_t trailer = bytes.size() - kTrailer;
  const size_t offsetSize = static_cast<unsigned char>(bytes[trailer + 6]);
  const uint64_t objectCount = bigEndian(bytes, trailer + 8, 8);
  const uint64_t tableOffset = bigEndian(bytes, trailer + 24, 8);
  if (offsetSize < 1 || offsetSize > 8 || tableOffset > trailer || (trailer - tableOffset) / offsetSize < objectCount) {
    return false;  // the nesting check refuses it
  }
  for (uint64_t object = 0; object < objectCount; ++object) {
    const uint64_t offset = bigEndian(bytes, tableOffset + object * offsetSize, offsetSize);
    if (offset >= bytes.size()) continue;
    const unsigned kind = static_cast<unsigned char>(bytes[offset]) >> 4;
    if (kind != 0x5 && kind != 0x6 && kind != 0x7) continue;  // ASCII, UTF-16 and UTF-8 strings
    uint64_t count = static_cast<unsigned char>(bytes[offset]) & 0x0F;
    uint64_t at = offset + 1;
    if (count == 0x0F) {
      if (at >= bytes.size()) continue;
      const size_t intSize = size_t{1} << (static_cast<unsigned char>(bytes[at]) & 0x0F);
      if (intSize > 8 || at + 1 + intSize > bytes.size()) continue;
      count = bigEndian(bytes, at + 1, intSize);
      at += 1 + intSize;
    }
    const uint64_t unit = kind == 0x6 ? 2 : 1;
    const uint64_t end = count > (bytes.size() - at) / unit ? bytes.size() : at + count * unit;
    for (uint64_t i = at; i + unit <= end; i += unit) {
      if (bytes[i] == '\0' && (unit == 1 || bytes[i + 1] == '\0')) return true;
    }
  }
  return false;
}

std::string errnoText(int code) { return std::strerror(code); }

class FileDescriptor {
 public:
  explicit FileDescriptor(int fd) : fd_(fd) {}
  ~FileDescriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

std::string describe(const std::filesystem::path& file, const std::string& detail) {
  return (file.empty() ? std::string("A property list") : "The property list " + file.string()) +
         " is unusable: " + detail;
}

}  // namespace

PropertyListError::PropertyListError(Reason reason, const std::filesystem::path& file, std::string detail)
    : Error(describe(file, detail)), reason_(reason), detail_(std::move(detail)) {}

uint64_t PropertyList::largestFile(Kind kind) {
  return kind == Kind::deviceBackup ? kLargestDeviceBackupInfo : kLargestMetadata;
}

bool PropertyList::structureWithinLimits(std::string_view bytes, size_t deepest) {
  if (startsWith(bytes, 0, "bplist")) return binaryStructureWithinLimits(bytes, deepest);
  return xmlNestingWithinLimit(bytes, deepest);
}

PropertyList PropertyList::parse(std::string_view bytes, const std::filesystem::path& origin) {
  using Reason = PropertyListError::Reason;
  if (bytes.empty()) throw PropertyListError(Reason::empty, origin, "it is empty");
  if (bytes.size() > std::numeric_limits<uint32_t>::max()) {
    throw PropertyListError(Reason::tooLarge, origin, "it is larger than any property list can be");
  }
  if (!structureWithinLimits(bytes)) {
    throw PropertyListError(Reason::tooDeep, origin,
                            "it is nested more than " + std::to_string(kDeepestNesting) +
                                " levels deep, refers to itself, repeats its contents far beyond its size or hides "
                                "its structure");
  }
  if (holdsNulCharacter(bytes)) throw PropertyListError(Reason::malformed, origin, "it holds a NUL character");
  plist_t node = nullptr;
  plist_from_memory(bytes.data(), static_cast<uint32_t>(bytes.size()), &node);
  if (node == nullptr) throw PropertyListError(Reason::malformed, origin, "it is not a property list");
  return PropertyList(node);
}

PropertyList PropertyList::read(const std::filesystem::path& file, uint64_t largest) {
  using Reason = PropertyListError::Reason;
  // Non-blocking, so that a named pipe in place of the file cannot stop the scan.
  FileDescriptor fd(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (fd.get() < 0) {
    int code = errno;
    if (code == ENOENT || code == ENOTDIR) throw PropertyListError(Reason::missing, file, "it does not exist");
    throw PropertyListError(Reason::unreadable, file, "it cannot be opened: " + errnoText(code));
  }
  struct stat status {};
  if (::fstat(fd.get(), &status) != 0) {
    throw PropertyListError(Reason::unreadable, file, "it cannot be examined: " + errnoText(errno));
  }
  if (!S_ISREG(status.st_mode)) throw PropertyListError(Reason::notAFile, file, "it is not a regular file");
  const auto tooLarge = [&](uint64_t size) {
    return PropertyListError(Reason::tooLarge, file,
                             "it is " + std::to_string(size) + " bytes long, more than the " + std::to_string(largest) +
                                 " bytes a file of its kind holds");
  };
  if (static_cast<uint64_t>(status.st_size) > largest) throw tooLarge(static_cast<uint64_t>(status.st_size));

  // The file may grow while it is read: never hold more than the limit.
  std::string bytes(static_cast<size_t>(status.st_size), '\0');
  size_t filled = 0;
  for (;;) {
    if (filled == bytes.size()) {
      if (bytes.size() > largest) throw tooLarge(bytes.size());
      bytes.resize(std::min<uint64_t>(bytes.size() + 65536, largest + 1));
    }
    ssize_t count = ::read(fd.get(), bytes.data() + filled, bytes.size() - filled);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) throw PropertyListError(Reason::unreadable, file, "it cannot be read: " + errnoText(errno));
    if (count == 0) break;
    filled += static_cast<size_t>(count);
  }
  bytes.resize(filled);
  return parse(bytes, file);
}

PropertyList PropertyList::readDictionary(const std::filesystem::path& file, Kind kind) {
  PropertyList list = read(file, largestFile(kind));
  if (!isDictionary(list.root())) {
    throw PropertyListError(PropertyListError::Reason::notADictionary, file, "its top level is not a dictionary");
  }
  return list;
}

void PropertyList::Free::operator()(void* node) const { plist_free(static_cast<plist_t>(node)); }

PropertyList::PropertyList(void* node) : root_(node) {}

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

std::optional<bool> PropertyList::boolean(Node node) {
  if (node == nullptr || plist_get_node_type(static_cast<plist_t>(node)) != PLIST_BOOLEAN) return std::nullopt;
  uint8_t value = 0;
  plist_get_bool_val(static_cast<plist_t>(node), &value);
  return value != 0;
}

std::optional<std::chrono::system_clock::time_point> PropertyList::date(Node node) {
  if (node == nullptr || plist_get_node_type(static_cast<plist_t>(node)) != PLIST_DATE) return std::nullopt;
  int32_t seconds = 0;
  int32_t microseconds = 0;
  plist_get_date_val(static_cast<plist_t>(node), &seconds, &microseconds);
  return std::chrono::system_clock::time_point(std::chrono::duration_cast<std::chrono::system_clock::duration>(
      std::chrono::seconds(kSecondsFrom1970To2001 + int64_t{seconds}) + std::chrono::microseconds(microseconds)));
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

}  // namespace tw
