// Which paths the privileged remover accepts, and that a safety refusal never reaches the administrator.
#include <gmock/gmock.h>

#include "fs/RemoveItem.h"
#include "fs/Shell.h"
#include "model/SystemEntries.h"
#include "platform/AdministratorRunner.h"
#include "scan/PrivilegedRemoval.h"
#include "support/CatalogueFixture.h"
#include "support/StandInTools.h"
#include "support/Unprivileged.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using namespace test;
using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

class PrivilegedRemovalCheck : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* file : {"041-12345/update.pkg", "index.plist", ".hidden/x"}) writeFile(updates / file, "x");
    for (const char* app : {"Install macOS Sonoma.app", "Xcode.app"})
      writeFile(fixture.at("/Applications/" + std::string(app) + "/Contents/Info.plist"), "i");
    writeFile(fixture.at("/elsewhere/Updates/041-12345/update.pkg"), "outside");
    fs::create_directory_symlink(fixture.at("/elsewhere/Updates/041-12345"), updates / "041-link");
  }

  // The refusal text, or "accepted".
  static std::string verdict(const fs::path& path) {
    auto checked = PrivilegedRemoval::check(path.string());
    auto* refusal = std::get_if<PrivilegedRemoval::Refusal>(&checked);
    return refusal ? refusal->reason : "accepted";
  }

  CatalogueFixture fixture;
  fs::path updates = fixture.at("/Library/Updates");
};

TEST_F(PrivilegedRemovalCheck, AcceptsOnlyListedItemsReachedWithoutLinks) {
  const std::string root = fixture.root().string();
  const std::pair<std::string, std::string> cases[] = {
      // "accepted" or a part of the refusal
      {root + "/Library/Updates/041-12345", "accepted"},
      {root + "/Applications/Install macOS Sonoma.app", "accepted"},
      {"Library/Updates/041-12345", "not an absolute path"},
      {root + "/Library/Updates/../Updates/041-12345", "components"},
      {root + "/Library/Updates/./041-12345", "components"},
      {root + "/Library//Updates/041-12345", "components"},
      {root + "/Library/Updates/041-12345/", "components"},
      {root + "/Library/Updates/041-12345/update.pkg", "not a system item"},
      {root + "/Library/Updates/index.plist", "not a system item"},
      {root + "/Library/Updates/.hidden", "not a system item"},
      {root + "/Applications/Xcode.app", "not a system item"},
      {root + "/Library/Updates/041-link", "symbolic link"},
      {root + "/Library/Updates/041-missing", "No such file"},
  };
  for (const auto& [path, expected] : cases) EXPECT_THAT(verdict(path), HasSubstr(expected)) << path;

  // A link anywhere on the way: the location folder itself, or a folder above it.
  fs::rename(updates, fixture.at("/Library/Updates.real"));
  fs::create_directory_symlink(fixture.at("/elsewhere/Updates"), updates);
  EXPECT_THAT(verdict(updates / "041-12345"), HasSubstr("symbolic link"));
  fs::remove(updates);
  fs::rename(fixture.at("/Library/Updates.real"), updates);
  const fs::path viaLink = fixture.root().parent_path() / "via";
  fs::create_directory_symlink(fixture.root(), viaLink);
  {
    ScopedHost linkedRoot(Host{.home = fixture.home(), .root = viaLink});
    EXPECT_THAT(verdict(viaLink / "Library/Updates/041-12345"), HasSubstr("symbolic link"));
  }
}

TEST_F(PrivilegedRemovalCheck, RemovesTheCheckedItemEvenWhenItsFolderIsSwappedForALinkAfterwards) {
  auto checked = PrivilegedRemoval::check((updates / "041-12345").string());
  ASSERT_TRUE(std::holds_alternative<PrivilegedRemoval::Target>(checked));
  // The checked folder is moved and a link to an outside copy put in its place: the checked one is used.
  fs::rename(updates, fixture.at("/Library/Moved"));
  fs::create_directory_symlink(fixture.at("/elsewhere/Updates"), updates);
  const fs::path workingFolder = fs::current_path();
  PrivilegedRemoval::remove(std::get<PrivilegedRemoval::Target>(checked));
  EXPECT_FALSE(fs::exists(fixture.at("/Library/Moved/041-12345")));
  EXPECT_TRUE(fs::exists(fixture.at("/Library/Moved/index.plist")));
  EXPECT_EQ(readFile(fixture.at("/elsewhere/Updates/041-12345/update.pkg")), "outside");
  EXPECT_EQ(fs::current_path(), workingFolder);
}

#if defined(__linux__)
// A volume mounted at the item or inside it (a same-device bind mount included) is refused.
TEST_F(PrivilegedRemovalCheck, RefusesItemsThatAreOrHoldMountPoints) {
  const fs::path item = updates / "041-12345";
  fs::create_directories(item / "Payload" / "mnt");
  for (const fs::path& mountPoint : {item, item / "Payload" / "mnt"}) {
    const auto refusal = runWithMount(fixture.at("/elsewhere"), mountPoint, [&] { return verdict(item); });
    if (!refusal) GTEST_SKIP() << "no mount namespace for this user";
    EXPECT_THAT(*refusal, HasSubstr("mounted")) << "a mount at " << mountPoint;
  }
  EXPECT_EQ(verdict(item), "accepted");
}

// A volume inside an installer is refused for safety and never handed to pkexec (which would empty it).
TEST(PrivilegedFallback, AnotherVolumeInsideTheItemIsNeverHandedToTheAdministrator) {
  CatalogueFixture fixture;
  ScopedAdministratorRunner polkit{AdministratorRunner::polkit};
  const fs::path item = fixture.at("/Applications/Install macOS Sonoma.app"), calls = fixture.root() / "pkexec-calls";
  const fs::path volume = item / "Contents" / "SharedSupport" / "Volume";
  writeFile(item / "Contents" / "Info.plist", "i");
  fs::create_directories(volume);
  writeStandInTool(fixture.root(), "/usr/bin/pkexec",
                   "echo \"$@\" >> " + shellQuoted(calls.string()) + "\nexec \"$@\"");
  const auto failure = runWithMount({}, volume, [&]() -> std::string {
    writeFile(volume / "precious", "p");
    try {
      PrivilegedFileEntry{"Install macOS Sonoma.app", "", "installer"}.deleteItem(item);
    } catch (const RemovalError& error) {
      if (error.kind() != RemovalFailure::safety || error.code() != EXDEV) return "not a safety refusal";
    }
    return fs::exists(volume / "precious") && !fs::exists(calls) ? "" : "the volume was emptied or pkexec called";
  });
  if (!failure) GTEST_SKIP() << "no mount namespace for this user";
  EXPECT_EQ(*failure, "");
}
#endif

#if defined(TIDEWELL_TEST_HOOKS)
// Plain removal of an update fails; what the administrator runner gets to see depends on why.
TEST(PrivilegedFallback, OnlyALackOfRightsReachesTheAdministratorRunner) {
  CatalogueFixture fixture;
  ScopedAdministratorRunner polkit{AdministratorRunner::polkit};
  const fs::path updates = fixture.at("/Library/Updates"), item = updates / "041-12345";
  const fs::path calls = fixture.root() / "pkexec-calls", remover = fixture.at(kPrivilegedRemoverPath);

  // A folder inside keeps being replaced just before it is opened: a safety refusal, tried no further.
  static fs::path changing;
  removeItemBeforeOpeningFolderHook = [](const char* name) {
    if (changing.filename() != name) return;
    fs::rename(changing, changing.string() + ".old" + std::to_string(std::rand()));
    fs::create_directory(changing);
  };
  changing = item / "Payload";
  writeFile(changing / "data", "d");
  writeStandInTool(fixture.root(), "/usr/bin/pkexec", "echo \"$@\" >> " + shellQuoted(calls.string()));
  PrivilegedFileEntry entry{"041-12345", "", "update"};
  try {
    entry.deleteItem(item);
    ADD_FAILURE() << "a tree that keeps changing must not count as removed";
  } catch (const RemovalError& error) {
    EXPECT_EQ(error.kind(), RemovalFailure::safety) << error.what();
  }
  removeItemBeforeOpeningFolderHook = nullptr;
  // Nor is an item that is gone: more rights would only turn the failure into a false success.
  EXPECT_THROW(entry.deleteItem(updates / "041-gone"), RemovalError);
  EXPECT_FALSE(fs::exists(calls)) << readFile(calls);

  // A lack of rights goes to the installed privileged remover.
  fs::remove_all(item);
  writeFile(item / "Payload" / "data", "d");
  // Without one, to an administrator's shell: quotes, blanks and a would-be command substitution stay one word.
  const fs::path hostile = updates / "041-91 Ann's $(touch pwned) \"update\"";
  writeFile(hostile / "Payload" / "data", "d");
  writeStandInTool(fixture.root(), kPrivilegedRemoverPath, "exit 0");
  RemovalBlocker blocker(updates);
  if (!blocker.active()) GTEST_SKIP() << "cannot make removal fail on this file system";
  EXPECT_NO_THROW(entry.deleteItem(item));
  EXPECT_EQ(readFile(calls), remover.string() + " " + item.string() + "\n");

  fs::remove(remover);
  writeStandInTool(fixture.root(), "/usr/bin/pkexec",
                   "echo 'Error executing command as another user: Request dismissed' >&2; exit 126");
  EXPECT_THAT([&] { entry.deleteItem(hostile); }, ThrowsMessage<Shell::CommandError>(HasSubstr("Request dismissed")));
  EXPECT_TRUE(fs::exists(hostile)) << "what plain removal could not take stays";
  // The stand-in plays the administrator: it lifts the block, then runs the command it was given.
  writeStandInTool(
      fixture.root(), "/usr/bin/pkexec",
      "printf '%s\\n' \"$@\" > " + shellQuoted(calls.string()) + "\n" + blocker.liftCommand() + "\nexec \"$@\"");
  EXPECT_NO_THROW(entry.deleteItem(hostile));
  EXPECT_FALSE(fs::exists(fs::symlink_status(hostile)));
  EXPECT_FALSE(fs::exists(updates / "pwned"));
  EXPECT_EQ(readFile(calls), "/bin/sh\n-c\n" + privilegedRemovalCommand(hostile) + "\n");
}
#endif

TEST(PrivilegedRemovalCommand, StaysOnOneFileSystemAndQuotesThePath) {
#if defined(__APPLE__)
  EXPECT_EQ(privilegedRemovalCommand("/x/'$(touch y)'"), "/bin/rm -rf -x -- '/x/'\\''$(touch y)'\\'''");
#else
  EXPECT_EQ(privilegedRemovalCommand("/x/'$(touch y)'"),
            "/bin/rm -rf --one-file-system --preserve-root=all -- '/x/'\\''$(touch y)'\\'''");
#endif
}

}  // namespace
}  // namespace tw
