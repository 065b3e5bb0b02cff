// A dotted version (major.minor[.patch]) such as an Xcode or operating-system version, as it
// appears in folder names and in the printed form of an operating-system version record.
#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tw {

struct Version {
  uint64_t major = 0;
  uint64_t minor = 0;
  std::optional<uint64_t> patch;  // absent for two-part versions

  // "15.2" or "17.4.1": two or three dot-separated decimal numbers (empty pieces are dropped,
  // nothing is trimmed). Absent for anything else.
  static std::optional<Version> fromString(std::string_view text);
  // The printed form of an operating-system version record ("... majorVersion: 17, minorVersion: 4,
  // patchVersion: 0 ..."); a patch of exactly "0" gives a two-part version.
  static std::optional<Version> fromVersionRecordText(std::string_view text);
  // The record form for text that starts with "NSOperatingSystemVersion", the dotted form otherwise.
  static std::optional<Version> parse(std::string_view text);

  // "15.2", "15.2.0": a present patch always prints, even when it is 0.
  std::string toString() const;

  // An absent patch counts as 0, so 1.2 == 1.2.0 (yet they print differently: weak ordering).
  bool operator==(const Version& other) const;
  std::weak_ordering operator<=>(const Version& other) const;
};

}  // namespace tw
