#include <gtest/gtest.h>
#include <sys/stat.h>

#include <deque>
#include <filesystem>
#include <functional>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "app/Logger.h"
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
using test::FakeFolderAccessUI;
using test::LogCapture;
using test::TempDir;

const std::string kMessage = "Let Tidewell in, please.";
const std::string kWarning = "\u26A0\uFE0F URL+AcquireAccessFromSandbox: ";
const std::string kError = "\u274C URL+AcquireAccessFromSandbox: ";

std::string adviceText() {
  return "Access was denied even after selecting the folder. Make sure the folder exists (launching Xcode once "
         "creates it) and that you have read & write permissions to it. Resetting the app container may also "
         "help: delete ~/Library/Containers/dev.tidewell.Tidewell and restart the app.";
}

class FolderAccessTest : public ::testing::Test {
 protected:
  FolderAccessTest() : host_(makeHost(dir_)) {}

  static Host makeHost(const TempDir& dir) {
    Host host;
    host.home = dir / "home";
    host.configDirectory = dir / "config";
    host.temporaryDirectory = dir.path();
    return host;
  }

  std::optional<std::vector<uint8_t>> stored(const fs::path& folder) {
    return Preferences::shared().data(Preferences::bookmarkKey(folder));
  }
  void store(const fs::path& folder, const std::vector<uint8_t>& blob) {
    Preferences::shared().setData(Preferences::bookmarkKey(folder), blob);
  }

  TempDir dir_;
  ScopedHost host_;
  LogCapture log_;
  FakeFolderAccessUI ui_;
};

TEST_F(FolderAccessTest, AccessibleFolderIsReturnedWithoutTouchingTheBookmark) {
  const fs::path folder = dir_ / "Developer";
  fs::create_directories(folder);
  const std::vector<uint8_t> junk = {1, 2, 3};
  store(folder, junk);

  EXPECT_EQ(acquireAccess(folder, junk, CancelPolicy::allowed, kMessage, &ui_), folder);
  EXPECT_EQ(acquireAccess(folder, std::nullopt, CancelPolicy::notAllowed, kMessage, nullptr), folder);

  EXPECT_EQ(stored(folder), junk);
  EXPECT_TRUE(ui_.panels.empty());
  EXPECT_TRUE(log_.lines().empty());
}

TEST_F(FolderAccessTest, StaleBookmarkIsReplacedBeforeTheFolderIsReturned) {
  // The requested spelling is gone; the bookmark leads to the folder under its other name,
  // which was replaced by a new folder since it was made.
  const fs::path requested = dir_ / "Developer";
  const fs::path real = dir_ / "RealDeveloper";
  fs::create_directories(real);
  const auto old = Bookmark::create(real);
  store(requested, old);
  fs::create_directories(dir_ / "replacement");
  fs::remove(real);
  fs::rename(dir_ / "replacement", real);
  ASSERT_TRUE(Bookmark::resolve(old).isStale);

  EXPECT_EQ(acquireAccess(requested, old, CancelPolicy::allowed, kMessage, &ui_), real);

  const auto fresh = stored(requested);
  ASSERT_TRUE(fresh.has_value());
  EXPECT_NE(*fresh, old);
  const auto resolved = Bookmark::resolve(*fresh);
  EXPECT_EQ(resolved.path, real);
  EXPECT_FALSE(resolved.isStale);
  EXPECT_FALSE(stored(real).has_value());
  EXPECT_TRUE(ui_.panels.empty());
  EXPECT_TRUE(log_.lines().empty());
}

TEST_F(FolderAccessTest, WrongPickIsExplainedAndThePanelShownAgain) {
  const fs::path folder = dir_ / "Developer";
  const fs::path other = dir_ / "Documents";
  fs::create_directories(other);
  ui_.answers.push_back([&](long&) { return std::optional<fs::path>(other); });
  // Then the user makes the folder in the panel and picks it.
  ui_.answers.push_back([&](long&) {
    fs::create_directories(folder);
    return std::optional<fs::path>(folder.string() + "/");
  });

  EXPECT_EQ(acquireAccess(folder, std::nullopt, CancelPolicy::notAllowed, kMessage, &ui_), folder.string() + "/");

  ASSERT_EQ(ui_.panels.size(), 2u);
  for (const auto& panel : ui_.panels) {
    EXPECT_EQ(panel.folder, folder);
    EXPECT_EQ(panel.message, kMessage);
  }
  ASSERT_EQ(ui_.alerts.size(), 1u);
  EXPECT_EQ(ui_.alerts[0].message, "Can't get access to " + folder.string() + " folder");
  EXPECT_EQ(ui_.alerts[0].informativeText, "Did you choose the right folder?");
  EXPECT_EQ(ui_.alerts[0].button, "Repeat");
  ASSERT_TRUE(stored(folder).has_value());
  EXPECT_EQ(Bookmark::resolve(*stored(folder)).path, folder);
  EXPECT_FALSE(stored(other).has_value());
  EXPECT_TRUE(log_.lines().empty());
}

TEST_F(FolderAccessTest, PickThroughALinkCountsAsTheSameFolder) {
  const fs::path folder = dir_ / "Developer";
  ui_.answers.push_back([&](long&) {
    fs::create_directories(folder);
    fs::create_directory_symlink(folder, dir_ / "alias");
    return std::optional<fs::path>(dir_ / "alias" / "." / ".." / "alias");
  });
  EXPECT_TRUE(acquireAccess(folder, std::nullopt, CancelPolicy::allowed, kMessage, &ui_).has_value());
  EXPECT_TRUE(ui_.alerts.empty());
  EXPECT_TRUE(stored(folder).has_value());
}

TEST_F(FolderAccessTest, CancelEndsWithoutGrantOnlyWhenAllowed) {
  const fs::path folder = dir_ / "Developer";
  ui_.answers.push_back([](long& response) {
    response = 0;
    return std::optional<fs::path>();
  });
  EXPECT_EQ(acquireAccess(folder, std::nullopt, CancelPolicy::allowed, kMessage, &ui_), std::nullopt);
  EXPECT_EQ(log_.lines(), std::vector<std::string>{kWarning + "Didn't get folder from Open panel! Modal response: 0"});
  EXPECT_EQ(ui_.panels.size(), 1u);
  EXPECT_FALSE(stored(folder).has_value());

  log_.clear();
  ui_.answers.push_back([](long& response) {
    response = -1000;
    return std::optional<fs::path>();
  });
  ui_.answers.push_back([&](long&) {
    fs::create_directories(folder);
    return std::optional<fs::path>(folder);
  });
  EXPECT_EQ(acquireAccess(folder, std::nullopt, CancelPolicy::notAllowed, kMessage, &ui_), folder);
  EXPECT_EQ(log_.lines(),
            std::vector<std::string>{kWarning + "Didn't get folder from Open panel! Modal response: -1000"});
  EXPECT_EQ(ui_.panels.size(), 3u);
}

TEST_F(FolderAccessTest, UnusableBookmarkIsLoggedAndThePanelAsks) {
  const fs::path folder = dir_ / "Developer";
  ui_.answers.push_back([](long&) { return std::optional<fs::path>(); });

  EXPECT_EQ(acquireAccess(folder, std::vector<uint8_t>{'j', 'u', 'n', 'k'}, CancelPolicy::allowed, kMessage, &ui_),
            std::nullopt);

  // A bookmark whose folder has gone.
  fs::create_directories(dir_ / "Gone");
  const auto orphan = Bookmark::create(dir_ / "Gone");
  fs::remove(dir_ / "Gone");
  ui_.answers.push_back([](long&) { return std::optional<fs::path>(); });
  EXPECT_EQ(acquireAccess(folder, orphan, CancelPolicy::allowed, kMessage, &ui_), std::nullopt);

  EXPECT_EQ(ui_.panels.size(), 2u);
  const std::vector<std::string> expected = {
      kWarning +
          "Failed to resolve bookmark: The bookmark couldn\u2019t be resolved because its data isn\u2019t in "
          "the correct format.",
      kWarning + "Didn't get folder from Open panel! Modal response: 0",
      kWarning +
          "Failed to resolve bookmark: The file \u201CGone\u201D couldn\u2019t be opened because it "
          "doesn\u2019t exist.",
      kWarning + "Didn't get folder from Open panel! Modal response: 0"};
  EXPECT_EQ(log_.lines(), expected);
}

TEST_F(FolderAccessTest, CommandLineUsesTheFolderOrItsBookmarkAndNeverAsks) {
  const fs::path folder = dir_ / "Developer";
  EXPECT_EQ(acquireAccess(folder, std::nullopt, CancelPolicy::allowed, kMessage, nullptr), std::nullopt);

  const fs::path granted = dir_ / "Granted";
  fs::create_directories(granted);
  const auto blob = Bookmark::create(granted);
  EXPECT_EQ(acquireAccess(folder, blob, CancelPolicy::notAllowed, kMessage, nullptr), granted);
  EXPECT_TRUE(log_.lines().empty());

  fs::remove(granted);
  EXPECT_EQ(acquireAccess(folder, blob, CancelPolicy::notAllowed, kMessage, nullptr), std::nullopt);
  EXPECT_EQ(log_.lines().size(), 1u);
  EXPECT_TRUE(ui_.panels.empty());
}

// Checks of one unprivileged run, collected as text.
struct Problems {
  std::ostringstream text;
  template <class A, class B>
  void expectEqual(const A& actual, const B& expected, const char* what) {
    if (!(actual == expected)) text << what << " differs\n";
  }
};

TEST_F(FolderAccessTest, PickedFolderWithoutWriteAccessIsRefusedWithAdvice) {
  const fs::path folder = dir_ / "Developer";
  auto result = test::runUnprivileged(dir_.path(), [&]() -> std::string {
    Problems problems;
    fs::create_directories(folder);
    const auto blob = Bookmark::create(folder);
    store(folder, blob);
    ::chmod(folder.c_str(), 0500);
    ui_.answers.push_back([&](long&) { return std::optional<fs::path>(folder); });

    const auto granted = acquireAccess(folder, blob, CancelPolicy::notAllowed, kMessage, &ui_);

    problems.expectEqual(granted, std::nullopt, "grant");
    problems.expectEqual(stored(folder), std::nullopt, "stored bookmark");
    problems.expectEqual(ui_.panels.size(), 1u, "panel count");
    if (ui_.alerts.size() != 1) return "alerts: " + std::to_string(ui_.alerts.size());
    problems.expectEqual(ui_.alerts[0].message, "Can't get access to " + folder.string() + " folder", "alert");
    problems.expectEqual(ui_.alerts[0].informativeText, adviceText(), "advice");
    problems.expectEqual(ui_.alerts[0].button, std::string("OK"), "button");
    const std::vector<std::string> expected = {
        kWarning + "Access denied after using bookmark but bookmark is not stale!",
        kWarning +
            "Failed to resolve bookmark: The operation couldn\u2019t be completed. "
            "(Tidewell.SandboxFolderAccessError error 1.)",
        kError + "Can't access folder after selecting it from Open panel, no access: " + folder.string()};
    if (log_.lines() != expected) {
      problems.text << "log:\n";
      for (const auto& line : log_.lines()) problems.text << line << "\n";
    }
    return problems.text.str();
  });
  if (!result) GTEST_SKIP() << "no unprivileged user to run as";
  EXPECT_EQ(*result, "");
}

TEST_F(FolderAccessTest, ApplicationIdentifierComesFromTheBundle) {
  EXPECT_EQ(applicationIdentifier(), TIDEWELL_BUNDLE_IDENTIFIER);

  Host host = makeHost(dir_);
  host.bundle = dir_ / "Other.app";
  test::writeFile(host.bundle / "Contents" / "Info.plist",
                  "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
                  "<key>CFBundleIdentifier</key><string>org.example.Other</string></dict></plist>\n");
  ScopedHost withBundle(host);
  EXPECT_EQ(applicationIdentifier(), "org.example.Other");

  test::writeFile(host.bundle / "Contents" / "Info.plist", "not a property list");
  EXPECT_EQ(applicationIdentifier(), TIDEWELL_BUNDLE_IDENTIFIER);
}

}  // namespace
}  // namespace tw
