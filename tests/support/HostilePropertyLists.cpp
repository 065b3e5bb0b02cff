#include "support/HostilePropertyLists.h"

namespace tw::test {

static std::string bigEndian(uint64_t value, int size) {  // as binary lists store numbers
  std::string out;
  for (int shift = (size - 1) * 8; shift >= 0; shift -= 8) out += static_cast<char>((value >> shift) & 0xFF);
  return out;
}

std::string binaryList(const std::vector<std::string>& objects, uint8_t size) {
  std::string bytes = "bplist00", offsets;
  for (const auto& object : objects) offsets += bigEndian(bytes.size(), size), bytes += object;
  return bytes + offsets + std::string(6, '\0') + static_cast<char>(size) + static_cast<char>(size) +
         bigEndian(objects.size(), 8) + bigEndian(0, 8) + bigEndian(bytes.size(), 8);
}

std::string repeat(const std::string& text, uint32_t times) {
  std::string out;
  while (times-- > 0) out += text;
  return out;
}

std::string xmlList(const std::string& inner, uint32_t depth) {
  return "<?xml version=\"1.0\"?>\n<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
         "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n<plist version=\"1.0\"><dict><key>k</key>" +
         repeat("<array>", depth) + inner + repeat("</array>", depth) + "</dict></plist>";
}

std::string deepBinaryList(uint32_t depth, bool cycle) {
  // The root dictionary (key object 1, value object 2), the key, then one array per level.
  std::vector<std::string> objects = {"\xD1" + bigEndian(1, 4) + bigEndian(2, 4), "\x51k"};
  for (uint32_t level = 0; level < depth; ++level) {
    const bool innermost = level + 1 == depth;
    objects.push_back(innermost && !cycle ? "\xA0" : "\xA1" + bigEndian(innermost ? 2 : level + 3, 4));
  }
  return binaryList(objects, 4);
}

std::string repeatingBinaryList(uint8_t fanOut, uint8_t levels) {
  std::vector<std::string> objects;
  for (uint8_t level = 0; level < levels; ++level)  // an array whose count follows as a one-byte integer
    objects.push_back("\xAF\x10" + std::string(1, static_cast<char>(fanOut)) +
                      std::string(fanOut, static_cast<char>(level + 1)));
  objects.push_back("\x51x");
  return binaryList(objects, 1);
}

}  // namespace tw::test
