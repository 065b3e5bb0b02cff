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

std::optional<fs::path> cancel(long& response) { return response = 0, std::nullopt; }

class FilesTest : public ::testing::Test {
 protected:
  FilesTest() : host_(Host{.home = dir_ / "Users" / "someone", .temporaryDirectory = dir_.path(),
                           .configDirectory = dir_ / "config"}) {}
  test::TempDir dir_;
  ScopedHost host_;
  test::LogCapture log_;
  test::FakeFolderAccessUI ui_;
};

TEST_F(FilesTest, DeveloperFolderGrantAsksWithItsMessageAndIsFoundAgainFromTheCommandLine) {
  EXPECT_EQ(Files::developerFolder(), dir_ / "Users" / "someone" / "Library" / "Developer");
  ui_.answers.push_back(cancel);
  EXPECT_EQ(Files::developerFolderGrant(Preferences::shared(), &ui_), std::nullopt);
  ASSERT_EQ(ui_.panels.size(), 1u);
  EXPECT_EQ(ui_.panels[0].folder, Files::developerFolder());
  EXPECT_EQ(ui_.panels[0].message,
            "Tidewell needs permission to your Developer folder to scan Xcode cache files. Folder should be already "
            "selected and all you need to do is to click \"Open\".");
  EXPECT_EQ(Files::developerFolderGrant(Preferences::shared(), nullptr), std::nullopt);

  ui_.answers.push_back([](long&) {
    fs::create_directories(Files::developerFolder());
    return std::optional<fs::path>(Files::developerFolder());
  });
  EXPECT_EQ(Files::developerFolderGrant(Preferences::shared(), &ui_), Files::developerFolder());
  EXPECT_EQ(Files::developerFolderGrant(Preferences::shared(), nullptr), Files::developerFolder());
  EXPECT_EQ(ui_.panels.size(), 2u);
}

TEST_F(FilesTest, CustomFolderGrantsExistOnlyWhenTheFolderIsSet) {
  EXPECT_EQ(Files::customDerivedDataFolderGrant(Preferences::shared(), &ui_), std::nullopt);
  const fs::path derivedData = dir_ / "Custom DerivedData";
  fs::create_directories(derivedData);
  Preferences::shared().setCustomDerivedDataFolder(derivedData);
  EXPECT_EQ(Files::customDerivedDataFolderGrant(Preferences::shared(), &ui_), derivedData);
  EXPECT_TRUE(ui_.panels.empty());

  Preferences::shared().setCustomArchivesFolder(dir_ / "Missing Archives");
  ui_.answers.push_back(cancel);
  EXPECT_EQ(Files::customArchivesFolderGrant(Preferences::shared(), &ui_), std::nullopt);
  ASSERT_EQ(ui_.panels.size(), 1u);
  EXPECT_EQ(ui_.panels[0].message,
            "Tidewell needs permission to this folder to scan its contents. Folder should be already selected and "
            "all you need to do is to click \"Open\".");
}

}  // namespace
}  // namespace tw
