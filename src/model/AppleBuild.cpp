#include "model/AppleBuild.h"

namespace tw {

AppleBuild::AppleBuild(std::string text) : textual(std::move(text)), daily(std::string()) {}
bool AppleBuild::operator==(const AppleBuild& other) const {
  return major == other.major && minor == other.minor && daily.value_or("") == other.daily.value_or("");
}
bool operator<(const AppleBuild& a, const AppleBuild& b) { return a.textual < b.textual; }

}  // namespace tw
