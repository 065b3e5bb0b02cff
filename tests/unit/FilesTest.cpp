#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>

#include "app/Preferences.h"
#include "fs/Files.h"
#include "platform/Bookmark.h"
#include "platform/Host.h"
#include "support/FolderAccessFakes.h"
#include "support/TempDir.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using test::FakeFolderAccessUI;
using test::LogCapture;
using test::TempDir;

const std::string kDeveloperMessage =
    "Tidewell needs permission to your Developer folder to scan Xcode cache files. Folder should be already "
    "selected and all you need to do is to click \"Open\".";
const std::string kCustomMessage =
    "Tidewell needs permission to this folder to scan its contents. Folder should be already selected and all you "
    "need to do is to click \"Open\".";

class FilesTest : public ::testing::Test {
 protected:
  FilesTest() : host_(makeHost(dir_)) {}

  static Host makeHost(const TempDir& dir) {
    Host host;
    host.home = dir / "Users" / "someone";
    host.configDirectory = dir / "config";
    host.temporaryDirectory = dir.path();
    return host;
  }

  static std::optional<fs::path> cancel(long& response) {
    response = 0;
    return std::nullopt;
  }

  TempDir dir_;
  ScopedHost host_;
  LogCapture log_;
  FakeFolderAccessUI ui_;
};

TEST_F(FilesTest, FoldersComeFromTheHostsUserRecord) {
  EXPECT_EQ(Files::userHomeFolder(), dir_ / "Users" / "someone");
  EXPECT_EQ(Files::developerFolder(), dir_ / "Users" / "someone" / "Library" / "Developer");
}

TEST_F(FilesTest, DeveloperFolderGrantAsksWithItsMessageAndMayBeCancelled) {
  ui_.answers.push_back(cancel);
  EXPECT_EQ(Files::developerFolderGrant(&ui_), std::nullopt);
  ASSERT_EQ(ui_.panels.size(), 1u);
  EXPECT_EQ(ui_.panels[0].folder, Files::developerFolder());
  EXPECT_EQ(ui_.panels[0].message, kDeveloperMessage);
  EXPECT_EQ(Files::developerFolderGrant(nullptr), std::nullopt);

  // Picked once in the window, the grant is found again from the command line.
  ui_.answers.push_back([](long&) {
    fs::create_directories(Files::developerFolder());
    return std::optional<fs::path>(Files::developerFolder());
  });
  EXPECT_EQ(Files::developerFolderGrant(&ui_), Files::developerFolder());
  const auto blob = Preferences::shared().data(Preferences::bookmarkKey(Files::developerFolder()));
  ASSERT_TRUE(blob.has_value());
  EXPECT_EQ(Bookmark::resolve(*blob).path, Files::developerFolder());
  EXPECT_EQ(Files::developerFolderGrant(nullptr), Files::developerFolder());
  EXPECT_EQ(ui_.panels.size(), 2u);
}

TEST_F(FilesTest, CustomFolderGrantsExistOnlyWhenTheFolderIsSet) {
  EXPECT_EQ(Files::customDerivedDataFolderGrant(&ui_), std::nullopt);
  EXPECT_EQ(Files::customArchivesFolderGrant(&ui_), std::nullopt);
  EXPECT_TRUE(ui_.panels.empty());

  const fs::path derivedData = dir_ / "Custom DerivedData";
  fs::create_directories(derivedData);
  Preferences::shared().setCustomDerivedDataFolder(derivedData);
  EXPECT_EQ(Files::customDerivedDataFolderGrant(&ui_), derivedData);
  EXPECT_TRUE(ui_.panels.empty());

  const fs::path archives = dir_ / "Missing Archives";
  Preferences::shared().setCustomArchivesFolder(archives);
  ui_.answers.push_back(cancel);
  EXPECT_EQ(Files::customArchivesFolderGrant(&ui_), std::nullopt);
  ASSERT_EQ(ui_.panels.size(), 1u);
  EXPECT_EQ(ui_.panels[0].folder, archives);
  EXPECT_EQ(ui_.panels[0].message, kCustomMessage);
}

}  // namespace
}  // namespace tw
