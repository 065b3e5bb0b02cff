#include "support/HostilePropertyLists.h"

namespace tw::test {

std::string deepXmlList(uint32_t depth) {
  std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict><key>k</key>";
  xml.reserve(xml.size() + depth * 15 + 32);
  for (uint32_t i = 0; i < depth; ++i) xml += "<array>";
  for (uint32_t i = 0; i < depth; ++i) xml += "</array>";
  xml += "</dict></plist>\n";
  return xml;
}

std::string deepBinaryList(uint32_t depth, bool cycle) {
  std::string bytes = "bplist00", offsets;
  auto big = [](std::string& out, uint64_t value, int size) {
    for (int shift = (size - 1) * 8; shift >= 0; shift -= 8) out += static_cast<char>((value >> shift) & 0xFF);
  };
  auto begin = [&] { big(offsets, bytes.size(), 4); };
  begin();
  bytes += '\xD1';  // the root dictionary: key object 1, value object 2
  big(bytes, 1, 4);
  big(bytes, 2, 4);
  begin();
  bytes += "\x51k";
  for (uint32_t level = 0; level < depth; ++level) {
    begin();
    bool innermost = level + 1 == depth;
    bytes += innermost && !cycle ? '\xA0' : '\xA1';
    if (!innermost || cycle) big(bytes, innermost ? 2 : level + 3, 4);
  }
  uint64_t table = bytes.size();
  bytes += offsets + std::string(6, '\0') + "\x04\x04";  // offset and reference sizes
  big(bytes, depth + 2, 8);
  big(bytes, 0, 8);
  big(bytes, table, 8);
  return bytes;
}

std::string repeatingBinaryList(uint8_t fanOut, uint8_t levels) {
  std::string bytes = "bplist00";
  std::string offsets;
  for (uint8_t level = 0; level < levels; ++level) {
    offsets += static_cast<char>(bytes.size());
    bytes += "\xAF\x10";  // an array whose count follows as a one-byte integer
    bytes += static_cast<char>(fanOut);
    bytes += std::string(fanOut, static_cast<char>(level + 1));
  }
  offsets += static_cast<char>(bytes.size());
  bytes += "\x51x";
  const auto table = static_cast<char>(bytes.size());
  bytes += offsets + std::string(6, '\0') + "\x01\x01";  // one-byte offsets and references
  bytes += std::string(7, '\0') + static_cast<char>(levels + 1) + std::string(8, '\0') + std::string(7, '\0') + table;
  return bytes;
}

}  // namespace tw::test
