#include "platform/ByteCountFormatter.h"

#include <unicode/locid.h>
#include <unicode/numberformatter.h>

#include <array>
#include <cstdio>
#include <optional>
#include <string_view>

namespace tw {
namespace {

// 128-bit intermediates keep the rounding of the largest 64-bit counts exact.
__extension__ typedef unsigned __int128 Wide;

struct Unit {
  std::string_view name;
  int fractionDigits;
};

constexpr std::array<Unit, 6> kUnits{{{"KB", 0}, {"MB", 1}, {"GB", 2}, {"TB", 2}, {"PB", 2}, {"EB", 2}}};

// Rounds magnitude / 1000^(unitIndex+1) half away from zero to the unit's fraction digits,
// in integer arithmetic so that the largest 64-bit counts stay exact. Returns the value in
// units of 10^-fractionDigits.
Wide roundedInUnit(uint64_t magnitude, size_t unitIndex) {
  Wide divisor = 1;
  for (size_t i = 0; i <= unitIndex; ++i) divisor *= 1000;
  Wide scale = 1;
  for (int i = 0; i < kUnits[unitIndex].fractionDigits; ++i) scale *= 10;
  Wide scaled = static_cast<Wide>(magnitude) * scale;
  return (scaled + divisor / 2) / divisor;
}

// The number of a byte count ("-1.5", "999") written with the digits, separators and minus
// sign of the user's locale, the one the date texts use too ("1,5" in German). The number is
// already rounded, so it is handed over as exact decimal text. Every thread keeps its own
// formatter, rebuilt when the default locale changes.
std::string localizedNumber(const std::string& decimal) {
  struct Cached {
    std::string localeName;
    std::optional<icu::number::LocalizedNumberFormatter> formatter;
  };
  thread_local Cached cached;
  const icu::Locale& locale = icu::Locale::getDefault();
  if (!cached.formatter || cached.localeName != locale.getName()) {
    cached.formatter = icu::number::NumberFormatter::withLocale(locale);
    cached.localeName = locale.getName();
  }
  UErrorCode status = U_ZERO_ERROR;
  const icu::number::FormattedNumber formatted =
      cached.formatter->formatDecimal(icu::StringPiece(decimal.data(), static_cast<int32_t>(decimal.size())), status);
  std::string text;
  if (U_SUCCESS(status)) formatted.toString(status).toUTF8String(text);
  return U_SUCCESS(status) && !text.empty() ? text : decimal;
}

}  // namespace

std::string formatByteCount(int64_t bytes) {
  if (bytes == 0) return "Zero KB";
  const bool negative = bytes < 0;
  const uint64_t magnitude = negative ? uint64_t(0) - static_cast<uint64_t>(bytes) : static_cast<uint64_t>(bytes);
  const std::string sign = negative ? "-" : "";
  if (magnitude == 1) return localizedNumber(sign + "1") + " byte";
  if (magnitude < 1000) return localizedNumber(sign + std::to_string(magnitude)) + " bytes";

  // The smallest unit in which the rounded value stays below 1000; rounding 999,999 bytes
  // up to "1000 KB" moves it on to "1 MB".
  size_t unit = 0;
  Wide rounded = roundedInUnit(magnitude, unit);
  while (unit + 1 < kUnits.size()) {
    Wide limit = 1000;
    for (int i = 0; i < kUnits[unit].fractionDigits; ++i) limit *= 10;
    if (rounded < limit) break;
    ++unit;
    rounded = roundedInUnit(magnitude, unit);
  }

  int digits = kUnits[unit].fractionDigits;
  Wide scale = 1;
  for (int i = 0; i < digits; ++i) scale *= 10;
  auto whole = static_cast<uint64_t>(rounded / scale);
  auto fraction = static_cast<uint64_t>(rounded % scale);
  std::string number = sign + std::to_string(whole);
  if (fraction != 0) {
    char buffer[8];
    std::snprintf(buffer, sizeof buffer, "%0*llu", digits, static_cast<unsigned long long>(fraction));
    std::string fractionText(buffer);
    while (!fractionText.empty() && fractionText.back() == '0') fractionText.pop_back();
    number += "." + fractionText;
  }
  return localizedNumber(number) + " " + std::string(kUnits[unit].name);
}

}  // namespace tw
