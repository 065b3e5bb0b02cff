// Property lists built byte by byte to break a parser: far too deep, self-referring, or exploding.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tw::test {

// A binary property list of encoded `objects` (the first is the top), offsets and references `size` bytes wide.
std::string binaryList(const std::vector<std::string>& objects, uint8_t size);

std::string repeat(const std::string& text, uint32_t times);

// An XML property list whose top-level dictionary's "k" holds `inner` nested inside `depth` arrays.
std::string xmlList(const std::string& inner, uint32_t depth = 0);
inline std::string deepXmlList(uint32_t depth) { return xmlList("", depth); }

// A binary property list {"k": [[[...]]]}; with `cycle` the innermost array holds the outermost.
std::string deepBinaryList(uint32_t depth, bool cycle = false);

// `levels` binary arrays each referring `fanOut` times to the next: fanOut^levels values if copied.
std::string repeatingBinaryList(uint8_t fanOut, uint8_t levels);

}  // namespace tw::test
