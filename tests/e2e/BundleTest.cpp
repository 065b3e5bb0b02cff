#include <gtest/gtest.h>

#include <filesystem>

#include "support/RunProcess.h"
#include "support/TempDir.h"

namespace tw {
namespace {

TEST(Bundle, HasTheExecutableInfoPlistAndLauncher) {
  std::filesystem::path bundle(TIDEWELL_BUNDLE_PATH);
  EXPECT_TRUE(std::filesystem::is_regular_file(bundle / "Contents/MacOS/tidewell"));
  EXPECT_TRUE(std::filesystem::is_regular_file(bundle / "Contents/MacOS/tidewell-remind"));
  EXPECT_TRUE(std::filesystem::is_regular_file(bundle / "Contents/Info.plist"));
  std::string plist = test::readFile(bundle / "Contents/Info.plist");
  EXPECT_NE(plist.find("<key>CFBundleShortVersionString</key>"), std::string::npos);
  EXPECT_NE(plist.find("<key>CFBundleVersion</key>"), std::string::npos);
  EXPECT_NE(plist.find("<key>CFBundleIdentifier</key>"), std::string::npos);
  EXPECT_NE(plist.find("<key>SUFeedURL</key>\n\t<string>https://"), std::string::npos);
}

}  // namespace
}  // namespace tw
