#include "platform/TextLocale.h"

#include <unicode/locid.h>
#include <unicode/timezone.h>
#include <unicode/unistr.h>

#include <memory>

namespace tw {
namespace {

void setLocale(const std::string& identifier) {
  UErrorCode status = U_ZERO_ERROR;
  icu::Locale::setDefault(icu::Locale(identifier.c_str()), status);
}

void setTimeZone(const std::string& identifier) {
  icu::TimeZone::adoptDefault(icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(identifier)));
}

}  // namespace

std::string textLocaleName() { return icu::Locale::getDefault().getName(); }

std::string textTimeZoneName() {
  std::unique_ptr<icu::TimeZone> zone(icu::TimeZone::createDefault());
  icu::UnicodeString id;
  zone->getID(id);
  std::string utf8;
  id.toUTF8String(utf8);
  return utf8;
}

ScopedTextLocale::ScopedTextLocale(std::string_view localeIdentifier, std::string_view timeZoneIdentifier)
    : previousLocale_(textLocaleName()), previousTimeZone_(textTimeZoneName()) {
  setLocale(std::string(localeIdentifier));
  setTimeZone(std::string(timeZoneIdentifier));
}

ScopedTextLocale::~ScopedTextLocale() {
  setLocale(previousLocale_);
  setTimeZone(previousTimeZone_);
}

}  // namespace tw
