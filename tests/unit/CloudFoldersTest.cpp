// Synced cloud folders: their display names and their discovery on a fixture home.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "model/SystemEntries.h"
#include "scan/Scanners.h"
#include "scan/SystemItems.h"
#include "support/CatalogueFixture.h"
#include "support/DeveloperFolderFixture.h"
#include "support/TempDir.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using SystemItems::cloudDisplayName;
using test::CatalogueFixture;

constexpr size_t kMiB = 1'048'576;
const std::string kNote =
    "Synced cloud folder – shown for reference only, Tidewell never deletes anything here. Files kept online-only "
    "take no space on this Mac; to free space, make folders online-only in the cloud client itself.";

TEST(CloudDisplayName, NamesTheProviderAndTheAccount) {
  const std::pair<const char*, const char*> names[] = {
      {"GoogleDrive-ann@example.com", "Google Drive – ann@example.com"},
      {"OneDrive - Contoso Ltd", "OneDrive – Contoso Ltd"},
      {"Dropbox (Personal)", "Dropbox – Personal"},
      {"Box-Box", "Box"},
      {"pCloud Drive", "pCloud – Drive"},
      {"Sync-Work", "Sync.com – Work"},
      {"ProtonDrive-ann@proton.me", "Proton Drive – ann@proton.me"},
      {"Creative Cloud Files", "Creative Cloud"},
      {"com~apple~CloudDocs", "iCloud Drive"},
      {"MEGA ((x))", "MEGA – x"},
      {"SomethingElse-x", "SomethingElse-x"},
      {"dropbox", "dropbox"}};  // prefixes are case-sensitive
  for (const auto& [folder, name] : names) EXPECT_EQ(cloudDisplayName(folder), name) << folder;
}

TEST(CloudFolders, FindsEachSyncedFolderOnceLargestFirst) {
  CatalogueFixture fixture;
  fs::create_directories(fixture.at("~/Library/CloudStorage"));
  EXPECT_TRUE(scanCloudFolders().empty()) << "nothing synced, nothing listed";
  test::writeFileOfSize(fixture.at("~/Library/CloudStorage/Dropbox/Photos/a.jpg"), 3 * kMiB);
  test::writeFileOfSize(fixture.at("~/Library/CloudStorage/GoogleDrive-ann@example.com/My Drive/b.pdf"), 5 * kMiB);
  fs::create_directories(fixture.at("~/Library/Mobile Documents/com~apple~CloudDocs"));  // empty: still listed
  fs::create_directory_symlink(fixture.at("~/Library/CloudStorage/Dropbox"), fixture.at("~/Dropbox"));
  test::writeFile(fixture.at("~/OneDrive notes.txt"), "a file, not a synced folder");
  fs::create_symlink(fixture.at("~/gone"), fixture.at("~/Google Drive"));
  // Reached only through a link: shown at its real place.
  test::TempDir elsewhere;
  test::writeFileOfSize(elsewhere / "Dropbox (Team)/a.bin", kMiB);
  fs::create_directory_symlink(elsewhere / "Dropbox (Team)", fixture.at("~/Dropbox (Team)"));

  auto entries = scanCloudFolders();
  ASSERT_EQ(test::labelsOf(entries),
            (std::vector<std::string>{"Google Drive – ann@example.com", "Dropbox", "Dropbox – Team", "iCloud Drive"}));
  auto* dropbox = dynamic_cast<CloudSyncFolderEntry*>(entries[1].get());
  ASSERT_TRUE(dropbox);
  EXPECT_EQ(dropbox->folderUrl(), fs::canonical(fixture.at("~/Library/CloudStorage/Dropbox")));
  EXPECT_EQ(dropbox->tooltipText(), "~/Library/CloudStorage/Dropbox\n\n" + kNote);
  EXPECT_GE(dropbox->size().bytesOrZero(), static_cast<int64_t>(3 * kMiB));
  EXPECT_EQ(entries[2]->displayPaths(), std::vector<fs::path>{elsewhere / "Dropbox (Team)"});
  EXPECT_TRUE(entries[2]->tooltipText().starts_with((elsewhere / "Dropbox (Team)").string() + "\n\n"));
  EXPECT_EQ(entries[3]->size(), CleanupEntry::Size::value(0)) << "no size threshold for synced folders";
  EXPECT_EQ(entries[3]->tooltipText(), "~/Library/Mobile Documents/com~apple~CloudDocs\n\n" + kNote);
}

}  // namespace
}  // namespace tw
