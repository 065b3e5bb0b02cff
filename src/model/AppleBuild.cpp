#include "model/AppleBuild.h"

#include <unicode/brkiter.h>
#include <unicode/uchar.h>
#include <unicode/utext.h>
#include <unicode/utf8.h>

#include <limits>
#include <memory>

namespace tw {
namespace {

// Position of the first character at or after `from` that is not white space or a line break.
size_t skipWhiteSpace(std::string_view text, size_t from) {
  size_t position = from;
  while (position < text.size()) {
    int32_t next = static_cast<int32_t>(position);
    UChar32 c = 0;
    U8_NEXT(text.data(), next, static_cast<int32_t>(text.size()), c);
    if (c < 0 || !u_isUWhiteSpace(c)) break;
    position = static_cast<size_t>(next);
  }
  return position;
}

// A leading decimal integer with an optional sign, saturating on overflow like the platform's
// scanner. Returns the integer and the position after it, or nothing (position unchanged).
std::optional<std::pair<int64_t, size_t>> scanInteger(std::string_view text, size_t from) {
  size_t position = skipWhiteSpace(text, from);
  bool negative = false;
  if (position < text.size() && (text[position] == '+' || text[position] == '-')) {
    negative = text[position] == '-';
    ++position;
  }
  size_t digitsStart = position;
  int64_t value = 0;
  bool saturated = false;
  for (; position < text.size() && text[position] >= '0' && text[position] <= '9'; ++position) {
    int digit = text[position] - '0';
    if (saturated) continue;
    if (__builtin_mul_overflow(value, 10, &value) || __builtin_add_overflow(value, negative ? -digit : digit, &value)) {
      value = negative ? std::numeric_limits<int64_t>::min() : std::numeric_limits<int64_t>::max();
      saturated = true;
    }
  }
  if (position == digitsStart) return std::nullopt;
  return std::make_pair(value, position);
}

// End of the user-perceived character (grapheme cluster) that starts at `from`.
size_t characterEnd(std::string_view text, size_t from) {
  UErrorCode status = U_ZERO_ERROR;
  std::string_view rest = text.substr(from);
  UText* utext = utext_openUTF8(nullptr, rest.data(), static_cast<int64_t>(rest.size()), &status);
  std::unique_ptr<icu::BreakIterator> characters(
      icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
  size_t end = 0;
  if (U_SUCCESS(status)) {
    characters->setText(utext, status);
    int32_t boundary = characters->following(0);
    if (U_SUCCESS(status) && boundary != icu::BreakIterator::DONE) end = static_cast<size_t>(boundary);
  }
  utext_close(utext);
  if (end == 0) {  // no usable iterator: fall back to one code point
    int32_t next = 0;
    U8_FWD_1(rest.data(), next, static_cast<int32_t>(rest.size()));
    end = static_cast<size_t>(next);
  }
  return from + end;
}

}  // namespace

AppleBuild::AppleBuild(std::string text) : textual(std::move(text)) {
  std::string_view view = textual;
  size_t position = 0;
  if (auto integer = scanInteger(view, 0)) {
    major = integer->first;
    position = integer->second;
  }
  position = skipWhiteSpace(view, position);
  if (position < view.size()) {
    size_t end = characterEnd(view, position);
    minor = std::string(view.substr(position, end - position));
    // The daily part is the scanner's next item too, so blanks before it are skipped as well.
    daily = std::string(view.substr(skipWhiteSpace(view, end)));
  } else {
    daily = std::string();
  }
}

bool AppleBuild::operator==(const AppleBuild& other) const {
  return major == other.major && minor == other.minor && daily.value_or("") == other.daily.value_or("");
}

bool operator<(const AppleBuild& a, const AppleBuild& b) {
  if (a.major.has_value() != b.major.has_value()) {
    // Decided by the present number against 0, even when it is 0 itself.
    return a.major.value_or(0) < b.major.value_or(0);
  }
  if (a.major && *a.major != *b.major) return *a.major < *b.major;
  if (a.minor != b.minor) {
    if (!a.minor || !b.minor) return !a.minor;  // no letter before a letter
    // UTF-8 byte order is code-point order: "B" before "a".
    return *a.minor < *b.minor;
  }
  return a.daily.value_or("") < b.daily.value_or("");
}

}  // namespace tw
