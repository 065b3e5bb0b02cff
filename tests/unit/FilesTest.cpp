#include <gtest/gtest.h>

#include "app/Preferences.h"
#include "fs/Files.h"
#include "platform/Bookmark.h"
#include "platform/Host.h"
#include "platform/UserDefaults.h"
#include "support/FolderAccessFakes.h"
#include "support/TempDir.h"

namespace tw {
namespace {

namespace fs = std::filesystem;

std::optional<fs::path> cancel(long& response) { return response = 0, std::nullopt; }

class FilesTest : public ::testing::Test {
 protected:
  FilesTest()
      : host_(Host{.home = dir_ / "Users" / "someone",
                   .temporaryDirectory = dir_.path(),
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

// A custom folder is deleted wholesale: ".", "/" or the home folder would empty far too much.
TEST_F(FilesTest, CustomFoldersThatAreNotOwnFoldersAreIgnoredWithALogLine) {
  const fs::path home = dir_ / "Users" / "someone";
  EXPECT_EQ(Files::customDerivedDataFolderGrant(Preferences::shared(), &ui_), std::nullopt);  // none set
  fs::create_directories(home);
  fs::create_directories(dir_ / "Archives");
  test::writeFile(dir_ / "plain file", "x");
  fs::create_directory_symlink("/", dir_ / "link to root");
  fs::create_directory_symlink(home, dir_ / "link to home");
  const std::pair<fs::path, std::string> cases[] = {
      {".", "it is not an absolute path"},
      {"Library/Developer", "it is not an absolute path"},
      {"/", "it is the root folder"},
      {dir_ / "link to root", "it is the root folder"},
      {home / "..", "it holds the home folder"},
      {dir_.path(), "it holds the home folder"},
      {home, "it is the home folder"},
      {dir_ / "link to home", "it is the home folder"},
      {dir_ / "Missing Archives", "it no longer exists"},
      {dir_ / "plain file", "it is not a folder"},
  };
  for (const auto& [folder, reason] : cases) {
    log_.clear();
    // Written as a settings file may hold them: the store's own writer makes paths absolute.
    UserDefaults store(Preferences::shared().storePath());
    store.setString(Preferences::Keys::customArchivesFolder, folder.string());
    store.setString(Preferences::Keys::customDerivedDataFolder, folder.string());
    EXPECT_EQ(Files::customArchivesFolderGrant(Preferences::shared(), &ui_), std::nullopt) << folder;
    EXPECT_EQ(Files::customDerivedDataFolderGrant(Preferences::shared(), &ui_), std::nullopt) << folder;
    EXPECT_EQ(log_.lines(),
              (std::vector<std::string>{"\u26A0\uFE0F Files: Ignoring the custom archives folder \u201C" +
                                            folder.string() + "\u201D: " + reason + ".",
                                        "\u26A0\uFE0F Files: Ignoring the custom derived data folder \u201C" +
                                            folder.string() + "\u201D: " + reason + "."}));
  }
  EXPECT_TRUE(ui_.panels.empty());
  Preferences::shared().setCustomArchivesFolder(dir_ / "Archives");
  EXPECT_EQ(Files::customArchivesFolderGrant(Preferences::shared(), &ui_), dir_ / "Archives");
  Preferences::shared().setCustomDerivedDataFolder(dir_ / "Archives");
  EXPECT_EQ(Files::customDerivedDataFolderGrant(Preferences::shared(), &ui_), dir_ / "Archives");
}

}  // namespace
}  // namespace tw
