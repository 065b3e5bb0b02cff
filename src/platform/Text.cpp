#include "platform/Text.h"

#include <unicode/brkiter.h>
#include <unicode/coll.h>
#include <unicode/datefmt.h>
#include <unicode/locid.h>
#include <unicode/normalizer2.h>
#include <unicode/timezone.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/utf8.h>

#include <memory>

namespace tw {
namespace {

icu::UnicodeString fromUtf8(std::string_view text) {
  return icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
}

std::string toUtf8(const icu::UnicodeString& text) {
  std::string utf8;
  text.toUTF8String(utf8);
  return utf8;
}

// ICU objects are expensive to build and not meant for concurrent mutation, so every thread keeps
// its own, rebuilt when the default locale changes.
template <class T>
struct PerLocale {
  std::string localeName;
  std::unique_ptr<T> object;

  template <class Make>
  T* get(Make make) {
    const char* name = icu::Locale::getDefault().getName();
    if (!object || localeName != name) {
      object = make(icu::Locale::getDefault());
      localeName = name;
    }
    return object.get();
  }
};

struct Collators {
  std::unique_ptr<icu::Collator> insensitive;  // case-insensitive, numbers by value
  std::unique_ptr<icu::Collator> tieBreak;     // the same with case differences
};

Collators* collatorsForThread() {
  thread_local PerLocale<Collators> cache;
  return cache.get([](const icu::Locale& locale) {
    auto collators = std::make_unique<Collators>();
    UErrorCode status = U_ZERO_ERROR;
    collators->insensitive.reset(icu::Collator::createInstance(locale, status));
    if (U_FAILURE(status) || !collators->insensitive) {
      status = U_ZERO_ERROR;
      collators->insensitive.reset(icu::Collator::createInstance(icu::Locale::getRoot(), status));
    }
    if (!collators->insensitive) return collators;
    collators->insensitive->setAttribute(UCOL_NUMERIC_COLLATION, UCOL_ON, status);
    collators->tieBreak.reset(collators->insensitive->clone());
    collators->insensitive->setStrength(icu::Collator::SECONDARY);
    if (collators->tieBreak) collators->tieBreak->setStrength(icu::Collator::TERTIARY);
    return collators;
  });
}

icu::DateFormat* dateFormatForThread(icu::DateFormat::EStyle dateStyle, icu::DateFormat::EStyle timeStyle) {
  thread_local PerLocale<icu::DateFormat> medium;
  thread_local PerLocale<icu::DateFormat> shortDateTime;
  auto& cache = timeStyle == icu::DateFormat::kNone ? medium : shortDateTime;
  icu::DateFormat* format = cache.get([&](const icu::Locale& locale) {
    return std::unique_ptr<icu::DateFormat>(icu::DateFormat::createDateTimeInstance(dateStyle, timeStyle, locale));
  });
  // Follow the zone of the moment (TZ may be changed by the user or a test).
  if (format) format->adoptTimeZone(icu::TimeZone::createDefault());
  return format;
}

std::string formatDate(TimePoint time, icu::DateFormat::EStyle dateStyle, icu::DateFormat::EStyle timeStyle) {
  icu::DateFormat* format = dateFormatForThread(dateStyle, timeStyle);
  if (!format) return {};
  // The earliest representable moment stands for the platform's "distant past", 1 January of year 1.
  constexpr UDate distantPast = -62135769600000.0;  // on the calendar that is Julian before 1582
  UDate date =
      time == TimePoint::min()
          ? distantPast
          : static_cast<UDate>(std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count());
  icu::UnicodeString text;
  format->format(date, text);
  return toUtf8(text);
}

}  // namespace

int localizedStandardCompare(std::string_view a, std::string_view b) {
  Collators* collators = collatorsForThread();
  if (!collators->insensitive) return a.compare(b);
  UErrorCode status = U_ZERO_ERROR;
  icu::StringPiece pieceA(a.data(), static_cast<int32_t>(a.size()));
  icu::StringPiece pieceB(b.data(), static_cast<int32_t>(b.size()));
  UCollationResult result = collators->insensitive->compareUTF8(pieceA, pieceB, status);
  // Like the platform's forced ordering: texts that differ only in case still get a fixed order,
  // so that a sort never depends on where equal-looking names started.
  if (result == UCOL_EQUAL && collators->tieBreak) result = collators->tieBreak->compareUTF8(pieceA, pieceB, status);
  if (U_FAILURE(status)) return a.compare(b);
  if (result == UCOL_EQUAL) {
    int bytes = a.compare(b);
    return bytes < 0 ? -1 : bytes > 0 ? 1 : 0;
  }
  return result == UCOL_LESS ? -1 : 1;
}

std::string capitalizedWords(std::string_view text) {
  icu::UnicodeString unicode = fromUtf8(text);
  // A null break iterator makes ICU use word boundaries of the default locale; every word gets
  // its first letter in title case and the rest in lower case.
  unicode.toTitle(nullptr, icu::Locale::getDefault());
  return toUtf8(unicode);
}

std::string trimmedWhiteSpaceAndNewlines(std::string_view text) {
  const auto length = static_cast<int32_t>(text.size());
  int32_t start = 0;
  while (start < length) {
    int32_t next = start;
    UChar32 c = 0;
    U8_NEXT(text.data(), next, length, c);
    if (c < 0 || !u_isUWhiteSpace(c)) break;
    start = next;
  }
  int32_t end = length;
  while (end > start) {
    int32_t previous = end;
    UChar32 c = 0;
    U8_PREV(text.data(), start, previous, c);
    if (c < 0 || !u_isUWhiteSpace(c)) break;
    end = previous;
  }
  return std::string(text.substr(static_cast<size_t>(start), static_cast<size_t>(end - start)));
}

std::string canonicalNormalized(std::string_view text) {
  UErrorCode status = U_ZERO_ERROR;
  const icu::Normalizer2* nfc = icu::Normalizer2::getNFCInstance(status);
  if (U_FAILURE(status)) return std::string(text);
  std::string result;
  icu::StringByteSink<std::string> sink(&result);
  nfc->normalizeUTF8(0, icu::StringPiece(text.data(), static_cast<int32_t>(text.size())), sink, nullptr, status);
  if (U_FAILURE(status)) return std::string(text);
  return result;
}

std::string formatMediumDate(TimePoint time) {
  return formatDate(time, icu::DateFormat::kMedium, icu::DateFormat::kNone);
}

std::string formatShortDateTime(TimePoint time) {
  return formatDate(time, icu::DateFormat::kShort, icu::DateFormat::kShort);
}

}  // namespace tw
