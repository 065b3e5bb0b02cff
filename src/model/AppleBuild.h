// An operating-system build identifier such as 21A5248p: a leading number, one character (a
// letter in real builds) and a daily part. It keeps the text it was made from for display, so a
// build read from "17.4 (21E219)" prints with its parentheses.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tw {

struct AppleBuild {
  std::string textual;               // the text it was made from; its printed form
  std::optional<int64_t> major;      // the leading decimal integer
  std::optional<std::string> minor;  // the one character after it (a whole grapheme, UTF-8)
  std::optional<std::string> daily;  // everything after that character, possibly empty

  // Never fails: "21A5248p" → 21, "A", "5248p"; "22E" → 22, "E", ""; "" → none, none, "".
  explicit AppleBuild(std::string text);

  const std::string& toString() const { return textual; }

  // Compares the parsed parts, not the text; an absent daily part equals the empty one.
  bool operator==(const AppleBuild& other) const;
};

// Build order: by number, then by letter (code-point order, so "B" before "a"; a build without a
// letter before one with a letter), then by the daily part compared literally ("5248p" before
// "559"). A build without a number is neither before nor after one whose number is 0.
bool operator<(const AppleBuild& a, const AppleBuild& b);
inline bool operator>(const AppleBuild& a, const AppleBuild& b) { return b < a; }
inline bool operator<=(const AppleBuild& a, const AppleBuild& b) { return !(b < a); }
inline bool operator>=(const AppleBuild& a, const AppleBuild& b) { return !(a < b); }

}  // namespace tw
