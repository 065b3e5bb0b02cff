#include "platform/Text.h"

// Stand-in until the ICU implementation lands.
namespace tw {
int localizedStandardCompare(std::string_view a, std::string_view b) { return a.compare(b); }
std::string capitalizedWords(std::string_view text) { return std::string(text); }
std::string canonicalNormalized(std::string_view text) { return std::string(text); }
std::string formatMediumDate(TimePoint) { return {}; }
std::string formatShortDateTime(TimePoint) { return {}; }
}  // namespace tw
