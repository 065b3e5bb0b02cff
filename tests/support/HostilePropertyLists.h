// Property lists built byte by byte to break a parser: far too deep, self-referring, or exploding.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tw::test {

std::string bigEndian(uint64_t value, int size);  // `value` in `size` bytes, as binary lists store numbers

// A binary property list of encoded `objects` (the first is the top), offsets and references `size` bytes wide.
std::string binaryList(const std::vector<std::string>& objects, uint8_t size);

// An XML property list {"k": [[[...]]]} with `depth` nested arrays.
std::string deepXmlList(uint32_t depth);

// A binary property list {"k": [[[...]]]}; with `cycle` the innermost array holds the outermost.
std::string deepBinaryList(uint32_t depth, bool cycle = false);

// `levels` binary arrays each referring `fanOut` times to the next: fanOut^levels values if copied.
std::string repeatingBinaryList(uint8_t fanOut, uint8_t levels);

}  // namespace tw::test
