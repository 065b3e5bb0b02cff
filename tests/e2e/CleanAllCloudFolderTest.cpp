// "tidewell clean all" on a developer's home that holds a synced cloud folder: everything that
// is cleanable goes, including the cloud client's own cache inside the synced folder, while
// the synced files themselves are neither deleted nor counted.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "fs/DirectorySize.h"
#include "platform/ByteCountFormatter.h"
#include "support/FixtureHome.h"
#include "support/RunProcess.h"
#include "support/TempDir.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
constexpr size_t kMiB = 1'048'576;

class CleanAllWithCloudFolder : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const fs::path& folder : {home, root, temporary}) fs::create_directories(folder);
    fixtureHome = test::FixtureHome::write(home);
    // A synced Dropbox folder with the user's files and the client's cache inside it.
    test::writeFileOfSize(dropbox / "Photos/holiday.jpg", 3 * kMiB);
    test::writeFile(dropbox / "Notes/todo.txt", "call the plumber\n");
    test::writeFileOfSize(dropbox / ".dropbox.cache/2024-03-04/deleted.bin", 2 * kMiB);
  }

  test::ProcessResult run(const std::vector<std::string>& arguments) const {
    test::ProcessOptions options;
    options.environment = {
        {"TIDEWELL_FROM_COMMAND_LINE", "1"},
        {"TIDEWELL_TEST_HOME", home.string()},
        {"TIDEWELL_TEST_ROOT", root.string()},
        {"TMPDIR", temporary.string()},
        {"XDG_CONFIG_HOME", (temp / "config").string()},
        {"HOME", (temp / "not-the-home").string()},
    };
    return test::runProcess(TIDEWELL_EXECUTABLE, arguments, options);
  }

  // Every regular file below the synced folder, except the client's cache, with its contents.
  std::map<fs::path, std::string> syncedFiles() const {
    std::map<fs::path, std::string> files;
    for (auto it = fs::recursive_directory_iterator(dropbox); it != fs::recursive_directory_iterator(); ++it) {
      if (it->path().filename() == ".dropbox.cache") {
        it.disable_recursion_pending();
        continue;
      }
      if (it->is_regular_file()) files[it->path()] = test::readFile(it->path());
    }
    return files;
  }

  test::TempDir temp;
  fs::path home = temp / "home";
  fs::path root = temp / "root";
  fs::path temporary = temp / "tmp";
  fs::path dropbox = home / "Library/CloudStorage/Dropbox";
  test::FixtureHome fixtureHome;
};

TEST_F(CleanAllWithCloudFolder, LeavesTheSyncedFilesAndRemovesTheRest) {
  const auto before = syncedFiles();
  ASSERT_EQ(before.size(), 2u);
  test::ProcessResult result = run({"clean", "all"});
  ASSERT_EQ(result.exitStatus, 0) << result.standardOutput << result.standardError;
  EXPECT_EQ(result.standardOutput.find("Warning: Following file couldn't be removed"), std::string::npos)
      << result.standardOutput;

  EXPECT_EQ(syncedFiles(), before) << "synced files must never be touched";
  EXPECT_FALSE(fs::exists(dropbox / ".dropbox.cache")) << "the client's cache is an ordinary cleanable item";
  for (const fs::path& kept : fixtureHome.keep) EXPECT_TRUE(fs::exists(kept)) << kept;
  for (const char* cache : {".npm", ".cargo/registry", "Library/Caches/Google/Chrome", ".Trash/Old Installer.dmg"}) {
    EXPECT_FALSE(fs::exists(home / cache)) << cache;
  }

  // Nothing in the deletion lines names the synced folder other than its cache.
  const std::string dropboxPath = dropbox.string() + "/";
  size_t position = 0;
  while ((position = result.standardOutput.find(dropboxPath, position)) != std::string::npos) {
    EXPECT_EQ(result.standardOutput.compare(position, dropboxPath.size() + 14, dropboxPath + ".dropbox.cache"), 0)
        << result.standardOutput.substr(position, 120);
    position += dropboxPath.size();
  }
}

TEST_F(CleanAllWithCloudFolder, CloudLocationCountsOnlyTheCaches) {
  HardLinkTracker tracker;
  const int64_t cacheBytes = allocatedSizeOfDirectory(dropbox / ".dropbox.cache", &tracker);
  const int64_t syncedBytes = allocatedSizeOfDirectory(dropbox / "Photos", &tracker);
  ASSERT_GE(syncedBytes, static_cast<int64_t>(3 * kMiB));

  test::ProcessResult info = run({"info"});
  ASSERT_EQ(info.exitStatus, 0) << info.standardOutput << info.standardError;
  // The location line shows only the cache; the synced folder is listed below it with its own size.
  EXPECT_NE(info.standardOutput.find("[" + formatByteCount(cacheBytes) + "] Cloud Storage "), std::string::npos)
      << info.standardOutput;
  EXPECT_NE(info.standardOutput.find("] Dropbox \n"), std::string::npos) << info.standardOutput;

  test::ProcessResult result = run({"clean", "cloud-caches"});
  ASSERT_EQ(result.exitStatus, 0) << result.standardOutput << result.standardError;
  EXPECT_NE(result.standardOutput.find("Total bytes cleaned: " + formatByteCount(cacheBytes) + "\n"), std::string::npos)
      << result.standardOutput;
  EXPECT_TRUE(fs::exists(dropbox / "Photos/holiday.jpg"));
  EXPECT_FALSE(fs::exists(dropbox / ".dropbox.cache"));
}

TEST_F(CleanAllWithCloudFolder, SyncedFilesStayWhenTheHomeLinksToTheSyncedFolder) {
  // The usual set-up: ~/Dropbox links to the synced folder, so the client's cache is reached
  // through two of the catalogue's Dropbox patterns.
  fs::create_directory_symlink(dropbox, home / "Dropbox");
  const auto before = syncedFiles();
  test::ProcessResult result = run({"clean", "cloud-caches"});
  ASSERT_EQ(result.exitStatus, 0) << result.standardOutput << result.standardError;
  EXPECT_EQ(syncedFiles(), before);
  EXPECT_TRUE(fs::is_symlink(home / "Dropbox"));
  EXPECT_FALSE(fs::exists(dropbox / ".dropbox.cache"));
}

}  // namespace
}  // namespace tw
