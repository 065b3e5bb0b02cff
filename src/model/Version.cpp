#include "model/Version.h"

namespace tw {

std::optional<Version> Version::fromString(std::string_view) { return std::nullopt; }
std::optional<Version> Version::fromVersionRecordText(std::string_view) { return std::nullopt; }
std::optional<Version> Version::parse(std::string_view text) { return fromString(text); }
std::string Version::toString() const {
  std::string text = std::to_string(major) + "." + std::to_string(minor);
  if (patch) text += "." + std::to_string(*patch);
  return text;
}
bool Version::operator==(const Version& other) const { return (*this <=> other) == 0; }
std::weak_ordering Version::operator<=>(const Version& other) const {
  if (auto c = major <=> other.major; c != 0) return c;
  if (auto c = minor <=> other.minor; c != 0) return c;
  return patch.value_or(0) <=> other.patch.value_or(0);
}

}  // namespace tw
