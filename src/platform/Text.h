// Locale-aware text operations the platform's string and date services provide elsewhere,
// implemented with ICU: the "localized standard" comparison, capitalisation, canonical
// normalisation and the user's medium and short date styles.
#pragma once

#include <chrono>
#include <string>
#include <string_view>

namespace tw {

// Finder-like ordering in the user's locale: case-insensitive, digits compared as numbers
// ("Build 9" before "Build 10"). Negative, zero or positive like strcmp.
int localizedStandardCompare(std::string_view a, std::string_view b);

// Every word with its first letter in upper case and the rest in lower case.
std::string capitalizedWords(std::string_view text);

// The text without white space and line breaks at both ends (Unicode white space: tabs, line
// feeds, no-break and other wide spaces included).
std::string trimmedWhiteSpaceAndNewlines(std::string_view text);

// Canonical normalisation (NFC), for comparing texts by code points.
std::string canonicalNormalized(std::string_view text);

using TimePoint = std::chrono::system_clock::time_point;
// Medium date style ("Mar 4, 2024" in English).
std::string formatMediumDate(TimePoint time);
// Short date with short time ("3/4/24, 9:41 AM" in English).
std::string formatShortDateTime(TimePoint time);

}  // namespace tw
