// The locale and time zone that the text services (Text.h) use. By default they are the
// user's (LANG / LC_ALL and TZ or the system zone); a scope can switch them, for output that
// must not depend on who runs the program, and for tests.
#pragma once

#include <string>
#include <string_view>

namespace tw {

// The locale identifier in use, such as "en_US" or "de_CH".
std::string textLocaleName();
// The time-zone identifier in use, such as "Europe/Zurich".
std::string textTimeZoneName();

// Switches locale and time zone for the lifetime of the object and restores the previous ones.
// Not for use while other threads format texts.
class ScopedTextLocale {
 public:
  ScopedTextLocale(std::string_view localeIdentifier, std::string_view timeZoneIdentifier);
  ~ScopedTextLocale();
  ScopedTextLocale(const ScopedTextLocale&) = delete;
  ScopedTextLocale& operator=(const ScopedTextLocale&) = delete;

 private:
  std::string previousLocale_;
  std::string previousTimeZone_;
};

}  // namespace tw
