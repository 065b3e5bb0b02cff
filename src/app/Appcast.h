// The update feed: an RSS "appcast" in the format that macOS updaters read (each item carries
// its machine version in sparkle:version, its shown version in sparkle:shortVersionString, on
// the item or on its enclosure), so one feed serves every platform. Parsing and the version
// order live here without any interface so that both are tested on their own.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tw {

struct AppcastItem {
  std::string title;
  std::string version;       // sparkle:version: compared with the bundle's CFBundleVersion
  std::string shortVersion;  // sparkle:shortVersionString: shown to people (version when absent)
  std::string releaseNotesLink;
  std::string downloadLink;  // the item's link, else the enclosure's URL
  std::string os;            // sparkle:os of the enclosure ("macos", "linux"); empty for every platform
};

// Throws tw::Error with a readable description when the text is not an RSS feed: not
// well-formed XML, no rss/channel, or an item without a version.
std::vector<AppcastItem> parseAppcast(std::string_view xml);

// Orders version strings the way the updaters do: runs of digits compare as numbers ("1.10" >
// "1.9"), other runs as text, and a release is newer than its own pre-releases ("1.0" > "1.0b2").
// Negative, zero or positive like strcmp.
int compareVersions(std::string_view a, std::string_view b);

// The newest item meant for `os` (items for every platform count); absent when there is none.
std::optional<AppcastItem> newestItem(const std::vector<AppcastItem>& items, std::string_view os = "linux");

}  // namespace tw
