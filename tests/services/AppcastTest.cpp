#include <gtest/gtest.h>

#include "app/Appcast.h"
#include "platform/Error.h"

namespace tw {
namespace {

TEST(AppcastVersions, CompareNumericallyWithPreReleasesBeforeTheirRelease) {
  struct Case {
    const char* older;
    const char* newer;
  };
  const Case cases[] = {
      {"1.9", "1.10"}, {"1.0", "1.0.1"},    {"1.0b2", "1.0"}, {"1.0a1", "1.0b1"}, {"1.0b2", "1.0b10"},
      {"2", "10"},     {"1.0rc1", "1.0.0"}, {"99", "100"},    {"1.2.3", "1.3"},   {"0009", "10"},
  };
  for (const auto& c : cases) {
    EXPECT_LT(compareVersions(c.older, c.newer), 0) << c.older << " < " << c.newer;
    EXPECT_GT(compareVersions(c.newer, c.older), 0) << c.newer << " > " << c.older;
  }
  EXPECT_EQ(compareVersions("1.10", "1.10"), 0);
  EXPECT_EQ(compareVersions("010", "10"), 0);
}

constexpr const char* kFeed = R"(<?xml version="1.0" encoding="utf-8"?>
<!-- published by the release script -->
<rss version="2.0" xmlns:sparkle="http://www.andymatuschak.org/xml-namespaces/sparkle">
  <channel>
    <title>Tidewell</title>
    <item>
      <title>Version 1.9</title>
      <sparkle:releaseNotesLink>https://tidewell.dev/notes/1.9.html</sparkle:releaseNotesLink>
      <enclosure url="https://tidewell.dev/download/Tidewell-1.9.zip" sparkle:version="19" sparkle:shortVersionString="1.9" length="1" type="application/octet-stream"/>
    </item>
    <item>
      <title><![CDATA[Version 1.10 & more]]></title>
      <sparkle:version>110</sparkle:version>
      <sparkle:shortVersionString>1.10</sparkle:shortVersionString>
      <sparkle:releaseNotesLink>https://tidewell.dev/notes/1.10.html?a=1&amp;b=2</sparkle:releaseNotesLink>
      <link>https://tidewell.dev/download</link>
      <enclosure url="https://tidewell.dev/download/Tidewell-1.10.tar.xz" sparkle:os="linux" length="1"/>
    </item>
    <item>
      <title>Version 2.0 for Mac</title>
      <enclosure url="https://tidewell.dev/download/Tidewell-2.0.dmg" sparkle:version="200" sparkle:os="macos"/>
    </item>
  </channel>
</rss>)";

TEST(AppcastParsing, ReadsItemsAndPicksTheNewestForThisPlatform) {
  auto items = parseAppcast(kFeed);
  ASSERT_EQ(items.size(), 3u);
  EXPECT_EQ(items[0].version, "19");
  EXPECT_EQ(items[0].shortVersion, "1.9");
  EXPECT_EQ(items[0].downloadLink, "https://tidewell.dev/download/Tidewell-1.9.zip");
  EXPECT_EQ(items[1].title, "Version 1.10 & more");
  EXPECT_EQ(items[1].releaseNotesLink, "https://tidewell.dev/notes/1.10.html?a=1&b=2");
  EXPECT_EQ(items[1].downloadLink, "https://tidewell.dev/download");

  auto newest = newestItem(items);
  ASSERT_TRUE(newest);
  EXPECT_EQ(newest->shortVersion, "1.10");
  EXPECT_EQ(newestItem(items, "macos")->version, "200");
  EXPECT_EQ(newestItem({}), std::nullopt);
}

TEST(AppcastParsing, BadFeedsGiveAReadableError) {
  struct Case {
    const char* feed;
    const char* message;
  };
  const Case cases[] = {
      {"", "The update feed is empty"},
      {"  \n", "The update feed is empty"},
      {"<html><body>Not found</body></html>", "The update feed is not an RSS feed (its root is <html>)"},
      {"<rss><channel><item><title>x</title>", "The update feed is not valid XML (<item> is not closed at byte 36)"},
      {"<rss><channel></item></channel></rss>",
       "The update feed is not valid XML (</...> does not match <channel> at byte 20)"},
      {"<rss version=2.0></rss>", "The update feed is not valid XML (an unquoted attribute at byte 13)"},
      {"<rss></rss>", "The update feed has no channel"},
      {"<rss><channel><item><title>Beta</title></item></channel></rss>",
       "The update feed has an item without a version (Beta)"},
      {"<rss><channel>&nbsp;</channel></rss>",
       "The update feed is not valid XML (an unknown entity &nbsp; at byte 20)"},
  };
  for (const auto& c : cases) {
    try {
      parseAppcast(c.feed);
      ADD_FAILURE() << "accepted: " << c.feed;
    } catch (const Error& error) {
      EXPECT_STREQ(error.what(), c.message) << c.feed;
    }
  }
  std::string deep;
  for (int i = 0; i < 100000; ++i) deep += "<a>";
  EXPECT_THROW(parseAppcast("<rss><channel>" + deep), Error);
}

}  // namespace
}  // namespace tw
