// Getting at a folder: its bookmark, the open panel and its alerts, and the custom folders' own checks.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "app/Preferences.h"
#include "fs/Files.h"
#include "fs/FolderAccess.h"
#include "platform/Bookmark.h"
#include "platform/Host.h"
#include "platform/UserDefaults.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"
#include "support/Unprivileged.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;
using Panels = std::vector<std::pair<fs::path, std::string>>;
using Alerts = std::vector<std::tuple<std::string, std::string, std::string>>;

const std::string kMessage = "Let Tidewell in, please.";
const std::string kWarning = "\u26A0\uFE0F URL+AcquireAccessFromSandbox: ";

std::optional<fs::path> cancel(long& response) { return response = 0, std::nullopt; }

// Answers each open panel with the next scripted answer (which may change the disk) and records every panel and alert.
struct FakeFolderAccessUI : FolderAccessUI {
  std::optional<fs::path> runOpenPanel(const fs::path& folder, const std::string& message, long& response) override {
    panels.emplace_back(folder, message);
    return answers.at(panels.size() - 1)(response);  // throws when shown once more than the test expected
  }
  void showInformationalAlert(const std::string& message, const std::string& text, const std::string& button) override {
    alerts.emplace_back(message, text, button);
  }
  std::vector<std::function<std::optional<fs::path>(long& response)>> answers;
  Panels panels;
  Alerts alerts;
};

struct FolderAccessTest : ::testing::Test {
  auto stored(const fs::path& folder) { return prefs_.data(Preferences::bookmarkKey(folder)); }
  // Access to the folder under test with `bookmark` (or none) stored for it.
  std::optional<fs::path> acquire(const std::optional<std::vector<uint8_t>>& bookmark, CancelPolicy policy,
                                  FolderAccessUI* ui) {
    bookmark ? prefs_.setFolderBookmark(folder_, *bookmark) : prefs_.removeFolderBookmark(folder_);
    return acquireAccess(folder_, prefs_, policy, kMessage, ui);
  }

  test::TempDir dir_;
  const fs::path home_ = dir_ / "Users" / "someone", folder_ = dir_ / "Developer";
  const std::string cannotAccess_ = "Can't get access to " + folder_.string() + " folder";  // the alerts' title
  ScopedHost host_{Host{.home = home_, .temporaryDirectory = dir_.path(), .configDirectory = dir_ / "config"}};
  test::LogCapture log_;
  FakeFolderAccessUI ui_;
  Preferences& prefs_ = Preferences::shared();
};

TEST_F(FolderAccessTest, BookmarksGiveAccessWithoutAskingAndAStaleOneIsReplacedFirst) {
  // The requested spelling is gone; the bookmark leads to its other name, replaced by a new folder since.
  const fs::path real = dir_ / "RealDeveloper";
  fs::create_directories(real);
  const auto old = Bookmark::create(real);
  fs::create_directories(dir_ / "replacement");
  fs::remove(real);
  fs::rename(dir_ / "replacement", real);
  ASSERT_TRUE(Bookmark::resolve(old).isStale);

  EXPECT_EQ(acquire(old, CancelPolicy::allowed, &ui_), real);
  const auto fresh = Bookmark::resolve(stored(folder_).value());
  EXPECT_TRUE(fresh.path == real && !fresh.isStale && !stored(real) && ui_.panels.empty() && log_.lines().empty());
  // Without a panel (the command line) only the folder or its bookmark give access.
  const auto blob = Bookmark::create(real);
  EXPECT_EQ(acquire(blob, CancelPolicy::notAllowed, nullptr), real);
  EXPECT_TRUE(log_.lines().empty());
  fs::remove(real);
  EXPECT_EQ(acquire(blob, CancelPolicy::notAllowed, nullptr), std::nullopt);
  EXPECT_EQ(log_.lines().size(), 1u);
}

TEST_F(FolderAccessTest, CancelEndsWithoutGrantOnlyWhenAllowedAndAWrongPickIsExplainedAndAskedAgain) {
  ui_.answers.push_back(cancel);
  const std::vector<uint8_t> junk{'j', 'u', 'n', 'k'};
  EXPECT_EQ(acquire(junk, CancelPolicy::allowed, &ui_), std::nullopt);
  EXPECT_EQ(log_.lines(), (Lines{kWarning + "Failed to resolve bookmark: The bookmark couldn\u2019t be resolved "
                                            "because its data isn\u2019t in the correct format.",
                                 kWarning + "Didn't get folder from Open panel! Modal response: 0"}));
  EXPECT_EQ(stored(folder_), junk);  // nothing written on cancel

  log_.clear();
  const fs::path other = dir_.path();  // a folder, but not the one asked for
  ui_.answers.push_back([](long& response) { return response = -1000, std::optional<fs::path>(); });
  ui_.answers.push_back([&](long&) { return std::optional<fs::path>(other); });
  // Then the user makes the folder in the panel and picks it.
  ui_.answers.push_back([&](long&) { return fs::create_directories(folder_), std::optional<fs::path>(folder_ / ""); });
  EXPECT_EQ(acquire(std::nullopt, CancelPolicy::notAllowed, &ui_), folder_.string() + "/");
  EXPECT_EQ(log_.lines(), Lines{kWarning + "Didn't get folder from Open panel! Modal response: -1000"});
  EXPECT_EQ(ui_.panels, (Panels(4, {folder_, kMessage})));
  EXPECT_EQ(ui_.alerts, (Alerts{{cannotAccess_, "Did you choose the right folder?", "Repeat"}}));
  EXPECT_EQ(Bookmark::resolve(stored(folder_).value()).path, folder_);
  EXPECT_FALSE(stored(other));
}

TEST_F(FolderAccessTest, PickedFolderWithoutWriteAccessIsRefusedWithAdvice) {
  // The grant, the stored bookmark, the panels, alerts and log lines, as the unprivileged child saw them.
  auto result = test::runUnprivileged(dir_.path(), [&] {
    fs::create_directories(folder_);
    const auto blob = Bookmark::create(folder_);
    ::chmod(folder_.c_str(), 0500);
    ui_.answers.push_back([&](long&) { return std::optional<fs::path>(folder_); });
    const auto granted = acquire(blob, CancelPolicy::notAllowed, &ui_);
    return testing::PrintToString(std::tuple(granted, stored(folder_), ui_.panels, ui_.alerts, log_.lines()));
  });
  if (!result) GTEST_SKIP() << "no unprivileged user to run as";
  const Alerts advice{
      {cannotAccess_,
       "Access was denied even after selecting the folder. Make sure the folder exists (launching Xcode "
       "once creates it) and that you have read & write permissions to it. Resetting the app container "
       "may also help: delete ~/Library/Containers/dev.tidewell.Tidewell and restart the app.",
       "OK"}};
  const Lines logged = {
      kWarning + "Access denied after using bookmark but bookmark is not stale!",
      kWarning +
          "Failed to resolve bookmark: The operation couldn\u2019t be completed. (Tidewell.SandboxFolderAccessError "
          "error 1.)",
      "\u274C URL+AcquireAccessFromSandbox: Can't access folder after selecting it from Open panel, no access: " +
          folder_.string()};
  EXPECT_EQ(*result, testing::PrintToString(std::tuple(std::optional<fs::path>(), std::optional<std::vector<uint8_t>>(),
                                                       Panels{{folder_, kMessage}}, advice, logged)));
}

// Found without asking from the command line, the end-to-end tests show.
TEST_F(FolderAccessTest, DeveloperFolderGrantAsksWithItsOwnMessage) {
  ui_.answers.push_back(cancel);
  EXPECT_EQ(Files::developerFolderGrant(prefs_, &ui_), std::nullopt);
  EXPECT_EQ(ui_.panels, (Panels{{home_ / "Library" / "Developer",
                                 "Tidewell needs permission to your Developer folder to scan Xcode cache files. Folder "
                                 "should be already selected and all you need to do is to click \"Open\"."}}));
}

// A custom folder is deleted wholesale: ".", "/" or the home folder would empty far too much.
TEST_F(FolderAccessTest, CustomFoldersThatAreNotOwnFoldersAreIgnoredWithALogLine) {
  EXPECT_EQ(Files::customDerivedDataFolderGrant(prefs_, &ui_), std::nullopt);  // none set
  for (const fs::path& folder : {home_, dir_ / "Archives"}) fs::create_directories(folder);
  test::writeFile(dir_ / "plain file", "x");
  fs::create_directory_symlink("/", dir_ / "link to root");
  fs::create_directory_symlink(home_, dir_ / "link to home");
  const std::pair<fs::path, std::string> cases[] = {{".", "it is not an absolute path"},
                                                    {"/", "it is the root folder"},
                                                    {dir_ / "link to root", "it is the root folder"},
                                                    {home_ / "..", "it holds the home folder"},
                                                    {dir_.path(), "it holds the home folder"},
                                                    {home_, "it is the home folder"},
                                                    {dir_ / "link to home", "it is the home folder"},
                                                    {dir_ / "Missing Archives", "it no longer exists"},
                                                    {dir_ / "plain file", "it is not a folder"}};
  for (const auto& [folder, reason] : cases) {
    log_.clear();
    UserDefaults store(prefs_.storePath());  // as a settings file may hold them, not made absolute
    for (const char* key : {Preferences::Keys::customArchivesFolder, Preferences::Keys::customDerivedDataFolder})
      store.setString(key, folder.string());
    EXPECT_EQ(Files::customArchivesFolderGrant(prefs_, &ui_), std::nullopt) << folder;
    EXPECT_EQ(Files::customDerivedDataFolderGrant(prefs_, &ui_), std::nullopt) << folder;
    const std::string ignoring = "\u26A0\uFE0F Files: Ignoring the custom ", because = "\u201D: " + reason + ".";
    EXPECT_EQ(log_.lines(), (Lines{ignoring + "archives folder \u201C" + folder.string() + because,
                                   ignoring + "derived data folder \u201C" + folder.string() + because}));
  }
  EXPECT_TRUE(ui_.panels.empty());
  prefs_.setCustomArchivesFolder(dir_ / "Archives");
  EXPECT_EQ(Files::customArchivesFolderGrant(prefs_, &ui_), dir_ / "Archives");
  prefs_.setCustomDerivedDataFolder(dir_ / "Archives");
  EXPECT_EQ(Files::customDerivedDataFolderGrant(prefs_, &ui_), dir_ / "Archives");
}

}  // namespace
}  // namespace tw
