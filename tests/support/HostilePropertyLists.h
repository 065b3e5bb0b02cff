// Property lists built to break a parser: nested far deeper than any real file, referring to
// themselves, or repeating their contents into billions of values. Written byte by byte, because libplist itself cannot
// build them safely.
#pragma once

#include <cstdint>
#include <string>

namespace tw::test {

// An XML property list {"k": [[[...]]]} with `depth` nested arrays.
std::string deepXmlList(uint32_t depth);

// A binary property list {"k": [[[...]]]} with `depth` nested arrays; with `cycle` the innermost
// array holds the outermost instead of nothing.
std::string deepBinaryList(uint32_t depth, bool cycle = false);

// A binary property list of `levels` arrays, each holding `fanOut` references to the next and
// the last one a string: a few hundred bytes that a parser copying every reference expands to
// fanOut^levels values.
std::string repeatingBinaryList(uint8_t fanOut, uint8_t levels);

}  // namespace tw::test
