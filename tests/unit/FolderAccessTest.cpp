#include <gtest/gtest.h>
#include <sys/stat.h>

#include "app/Preferences.h"
#include "fs/FolderAccess.h"
#include "platform/Bookmark.h"
#include "platform/Host.h"
#include "support/FolderAccessFakes.h"
#include "support/TempDir.h"
#include "support/Unprivileged.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;
using Alerts = std::vector<test::FakeFolderAccessUI::Alert>;
using Panels = std::vector<test::FakeFolderAccessUI::Panel>;

const std::string kMessage = "Let Tidewell in, please.";
const std::string kWarning = "\u26A0\uFE0F URL+AcquireAccessFromSandbox: ";

class FolderAccessTest : public ::testing::Test {
 protected:
  FolderAccessTest()
      : host_(Host{.home = dir_ / "home", .temporaryDirectory = dir_.path(), .configDirectory = dir_ / "config"}) {}

  // The preferences with `bookmark` (or none) stored for the folder under test.
  GrantSettings& seeded(const std::optional<std::vector<uint8_t>>& bookmark) {
    if (bookmark) Preferences::shared().setFolderBookmark(folder_, *bookmark);
    if (!bookmark) Preferences::shared().removeFolderBookmark(folder_);
    return Preferences::shared();
  }
  std::optional<std::vector<uint8_t>> stored(const fs::path& folder) {
    return Preferences::shared().data(Preferences::bookmarkKey(folder));
  }

  test::TempDir dir_;
  ScopedHost host_;
  test::LogCapture log_;
  test::FakeFolderAccessUI ui_;
  const fs::path folder_ = dir_ / "Developer";
};

TEST_F(FolderAccessTest, StaleBookmarkIsReplacedBeforeTheFolderIsReturned) {
  // The requested spelling is gone; the bookmark leads to the folder under its other name,
  // which was replaced by a new folder since it was made.
  const fs::path real = dir_ / "RealDeveloper";
  fs::create_directories(real);
  const auto old = Bookmark::create(real);
  Preferences::shared().setData(Preferences::bookmarkKey(folder_), old);
  fs::create_directories(dir_ / "replacement");
  fs::remove(real);
  fs::rename(dir_ / "replacement", real);
  ASSERT_TRUE(Bookmark::resolve(old).isStale);

  EXPECT_EQ(acquireAccess(folder_, seeded(old), CancelPolicy::allowed, kMessage, &ui_), real);

  const auto fresh = stored(folder_);
  ASSERT_TRUE(fresh.has_value());
  EXPECT_EQ(Bookmark::resolve(*fresh).path, real);
  EXPECT_FALSE(Bookmark::resolve(*fresh).isStale);
  EXPECT_FALSE(stored(real).has_value());
  EXPECT_TRUE(ui_.panels.empty());
  EXPECT_TRUE(log_.lines().empty());
}

TEST_F(FolderAccessTest, WrongPickIsExplainedAndThePanelShownAgain) {
  const fs::path other = dir_ / "Documents";
  fs::create_directories(other);
  ui_.answers.push_back([&](long&) { return std::optional<fs::path>(other); });
  ui_.answers.push_back([&](long&) {  // then the user makes the folder in the panel and picks it
    fs::create_directories(folder_);
    return std::optional<fs::path>(folder_.string() + "/");
  });

  EXPECT_EQ(acquireAccess(folder_, seeded(std::nullopt), CancelPolicy::notAllowed, kMessage, &ui_),
            folder_.string() + "/");

  EXPECT_EQ(ui_.panels, (Panels{{folder_, kMessage}, {folder_, kMessage}}));
  EXPECT_EQ(
      ui_.alerts,
      (Alerts{{"Can't get access to " + folder_.string() + " folder", "Did you choose the right folder?", "Repeat"}}));
  ASSERT_TRUE(stored(folder_).has_value());
  EXPECT_EQ(Bookmark::resolve(*stored(folder_)).path, folder_);
  EXPECT_FALSE(stored(other).has_value());
}

TEST_F(FolderAccessTest, CancelEndsWithoutGrantOnlyWhenAllowedAndBadBookmarksAreLogged) {
  ui_.answers.push_back([](long& response) { return response = 0, std::optional<fs::path>(); });
  const std::vector<uint8_t> junk{'j', 'u', 'n', 'k'};
  EXPECT_EQ(acquireAccess(folder_, seeded(junk), CancelPolicy::allowed, kMessage, &ui_), std::nullopt);
  EXPECT_EQ(log_.lines(), (Lines{kWarning + "Failed to resolve bookmark: The bookmark couldn\u2019t be resolved "
                                            "because its data isn\u2019t in the correct format.",
                                 kWarning + "Didn't get folder from Open panel! Modal response: 0"}));
  EXPECT_EQ(stored(folder_), junk);  // nothing written on cancel

  log_.clear();
  ui_.answers.push_back([](long& response) { return response = -1000, std::optional<fs::path>(); });
  ui_.answers.push_back([&](long&) { return fs::create_directories(folder_), std::optional<fs::path>(folder_); });
  EXPECT_EQ(acquireAccess(folder_, seeded(std::nullopt), CancelPolicy::notAllowed, kMessage, &ui_), folder_);
  EXPECT_EQ(log_.lines(), Lines{kWarning + "Didn't get folder from Open panel! Modal response: -1000"});
  EXPECT_EQ(ui_.panels.size(), 3u);
}

TEST_F(FolderAccessTest, CommandLineUsesTheFolderOrItsBookmarkAndNeverAsks) {
  EXPECT_EQ(acquireAccess(folder_, seeded(std::nullopt), CancelPolicy::allowed, kMessage, nullptr), std::nullopt);
  const fs::path granted = dir_ / "Granted";
  fs::create_directories(granted);
  const auto blob = Bookmark::create(granted);
  EXPECT_EQ(acquireAccess(folder_, seeded(blob), CancelPolicy::notAllowed, kMessage, nullptr), granted);
  EXPECT_TRUE(log_.lines().empty());
  fs::remove(granted);
  EXPECT_EQ(acquireAccess(folder_, seeded(blob), CancelPolicy::notAllowed, kMessage, nullptr), std::nullopt);
  EXPECT_EQ(log_.lines().size(), 1u);
  // An accessible folder is returned as it is, its bookmark left alone.
  fs::create_directories(folder_);
  EXPECT_EQ(acquireAccess(folder_, seeded(blob), CancelPolicy::notAllowed, kMessage, nullptr), folder_);
  EXPECT_EQ(stored(folder_), blob);
  EXPECT_TRUE(ui_.panels.empty());
}

TEST_F(FolderAccessTest, PickedFolderWithoutWriteAccessIsRefusedWithAdvice) {
  auto result = test::runUnprivileged(dir_.path(), [&]() -> std::string {
    fs::create_directories(folder_);
    const auto blob = Bookmark::create(folder_);
    ::chmod(folder_.c_str(), 0500);
    ui_.answers.push_back([&](long&) { return std::optional<fs::path>(folder_); });

    std::string problems;
    if (acquireAccess(folder_, seeded(blob), CancelPolicy::notAllowed, kMessage, &ui_)) problems += "granted\n";
    if (stored(folder_)) problems += "bookmark kept\n";
    if (ui_.panels.size() != 1) problems += "panels differ\n";
    if (ui_.alerts !=
        Alerts{{"Can't get access to " + folder_.string() + " folder",
                "Access was denied even after selecting the folder. Make sure the folder exists (launching Xcode once "
                "creates it) and that you have read & write permissions to it. Resetting the app container may also "
                "help: delete ~/Library/Containers/dev.tidewell.Tidewell and restart the app.",
                "OK"}}) {
      problems += "alert differs\n";
    }
    const Lines expected = {
        kWarning + "Access denied after using bookmark but bookmark is not stale!",
        kWarning +
            "Failed to resolve bookmark: The operation couldn\u2019t be completed. "
            "(Tidewell.SandboxFolderAccessError error 1.)",
        "\u274C URL+AcquireAccessFromSandbox: Can't access folder after selecting it from Open panel, no access: " +
            folder_.string()};
    if (log_.lines() != expected) {
      for (const auto& line : log_.lines()) problems += "log: " + line + "\n";
    }
    return problems;
  });
  if (!result) GTEST_SKIP() << "no unprivileged user to run as";
  EXPECT_EQ(*result, "");
}

}  // namespace
}  // namespace tw
