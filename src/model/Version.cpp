#include "model/Version.h"

#include <unicode/regex.h>
#include <unicode/unistr.h>

#include <charconv>
#include <memory>
#include <vector>

namespace tw {
namespace {

// Splits at dots into at most four non-empty pieces; the fourth keeps the rest of the text,
// dots included. Empty pieces do not count towards the limit.
std::vector<std::string_view> versionPieces(std::string_view text) {
  constexpr size_t maxSplits = 3;
  std::vector<std::string_view> pieces;
  size_t start = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '.') continue;
    bool appended = false;
    if (i > start) {
      pieces.push_back(text.substr(start, i - start));
      appended = true;
    }
    start = i + 1;
    if (appended && pieces.size() == maxSplits) break;
  }
  if (start < text.size()) pieces.push_back(text.substr(start));
  return pieces;
}

std::optional<uint64_t> decimalNumber(std::string_view piece) {
  if (piece.empty()) return std::nullopt;
  for (char c : piece) {
    if (c < '0' || c > '9') return std::nullopt;
  }
  uint64_t value = 0;
  auto [end, error] = std::from_chars(piece.data(), piece.data() + piece.size(), value);
  if (error != std::errc() || end != piece.data() + piece.size()) return std::nullopt;
  return value;
}

// Compiled once: the pattern is a constant and a RegexPattern is safe to share between threads.
const icu::RegexPattern* versionRecordPattern() {
  static const icu::RegexPattern* pattern = [] {
    UErrorCode status = U_ZERO_ERROR;
    UParseError parseError;
    auto* compiled = icu::RegexPattern::compile(
        icu::UnicodeString::fromUTF8(
            R"(majorVersion[:/]\s*(\d+).*?minorVersion[:/]\s*(\d+).*?patchVersion[:/]\s*(\d+))"),
        0, parseError, status);
    return U_SUCCESS(status) ? compiled : nullptr;
  }();
  return pattern;
}

}  // namespace

std::optional<Version> Version::fromString(std::string_view text) {
  auto pieces = versionPieces(text);
  if (pieces.size() != 2 && pieces.size() != 3) return std::nullopt;
  Version version;
  auto major = decimalNumber(pieces[0]);
  auto minor = decimalNumber(pieces[1]);
  if (!major || !minor) return std::nullopt;
  version.major = *major;
  version.minor = *minor;
  if (pieces.size() == 3) {
    version.patch = decimalNumber(pieces[2]);
    if (!version.patch) return std::nullopt;
  }
  return version;
}

std::optional<Version> Version::fromVersionRecordText(std::string_view text) {
  const icu::RegexPattern* pattern = versionRecordPattern();
  if (pattern == nullptr) return std::nullopt;
  UErrorCode status = U_ZERO_ERROR;
  icu::UnicodeString input = icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), text.size()));
  std::unique_ptr<icu::RegexMatcher> matcher(pattern->matcher(input, status));
  if (U_FAILURE(status) || !matcher->find(status) || U_FAILURE(status) || matcher->groupCount() != 3) {
    return std::nullopt;
  }
  auto group = [&](int32_t index) {
    std::string utf8;
    matcher->group(index, status).toUTF8String(utf8);
    return utf8;
  };
  std::string dotted = group(1) + "." + group(2);
  std::string patch = group(3);
  if (U_FAILURE(status)) return std::nullopt;
  if (patch != "0") dotted += "." + patch;
  return fromString(dotted);
}

std::optional<Version> Version::parse(std::string_view text) {
  if (text.starts_with("NSOperatingSystemVersion")) return fromVersionRecordText(text);
  return fromString(text);
}

std::string Version::toString() const {
  std::string text = std::to_string(major) + "." + std::to_string(minor);
  if (patch) text += "." + std::to_string(*patch);
  return text;
}

bool Version::operator==(const Version& other) const { return (*this <=> other) == 0; }

std::weak_ordering Version::operator<=>(const Version& other) const {
  if (auto order = major <=> other.major; order != 0) return order;
  if (auto order = minor <=> other.minor; order != 0) return order;
  return patch.value_or(0) <=> other.patch.value_or(0);
}

}  // namespace tw
