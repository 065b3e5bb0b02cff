// Property lists built to break a parser: nested far deeper than any real file, or referring
// to themselves. Written byte by byte, because libplist itself cannot build them safely.
#pragma once

#include <cstdint>
#include <string>

namespace tw::test {

// An XML property list {"k": [[[...]]]} with `depth` nested arrays.
std::string deepXmlList(uint32_t depth);

// A binary property list {"k": [[[...]]]} with `depth` nested arrays; with `cycle` the innermost
// array holds the outermost instead of nothing.
std::string deepBinaryList(uint32_t depth, bool cycle = false);

}  // namespace tw::test
