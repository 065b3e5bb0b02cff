// Synced cloud folders: their display names and their discovery on a fixture home.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "model/SystemEntries.h"
#include "scan/Scanners.h"
#include "scan/SystemItems.h"
#include "support/CatalogueFixture.h"
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
  EXPECT_EQ(cloudDisplayName("GoogleDrive-ann@example.com"), "Google Drive – ann@example.com");
  EXPECT_EQ(cloudDisplayName("Google Drive"), "Google Drive");
  EXPECT_EQ(cloudDisplayName("OneDrive-Personal"), "OneDrive – Personal");
  EXPECT_EQ(cloudDisplayName("OneDrive - Contoso Ltd"), "OneDrive – Contoso Ltd");
  EXPECT_EQ(cloudDisplayName("Dropbox (Personal)"), "Dropbox – Personal");
  EXPECT_EQ(cloudDisplayName("Dropbox"), "Dropbox");
  EXPECT_EQ(cloudDisplayName("Box-Box"), "Box");
  EXPECT_EQ(cloudDisplayName("Box"), "Box");
  EXPECT_EQ(cloudDisplayName("pCloud Drive"), "pCloud – Drive");
  EXPECT_EQ(cloudDisplayName("Sync-Work"), "Sync.com – Work");
  EXPECT_EQ(cloudDisplayName("ProtonDrive-ann@proton.me"), "Proton Drive – ann@proton.me");
  EXPECT_EQ(cloudDisplayName("Creative Cloud Files"), "Creative Cloud");
  EXPECT_EQ(cloudDisplayName("com~apple~CloudDocs"), "iCloud Drive");
  EXPECT_EQ(cloudDisplayName("Yandex.Disk.localized"), "Yandex.Disk – .localized");
  EXPECT_EQ(cloudDisplayName("SomethingElse-x"), "SomethingElse-x");
  EXPECT_EQ(cloudDisplayName("dropbox"), "dropbox") << "prefixes are case-sensitive";
  EXPECT_EQ(cloudDisplayName("MEGA ((x))"), "MEGA – x");
}

class CloudFolders : public ::testing::Test {
 protected:
  CatalogueFixture fixture;
};

TEST_F(CloudFolders, FindsEachSyncedFolderOnceLargestFirst) {
  test::writeFileOfSize(fixture.at("~/Library/CloudStorage/Dropbox/Photos/a.jpg"), 3 * kMiB);
  test::writeFileOfSize(fixture.at("~/Library/CloudStorage/GoogleDrive-ann@example.com/My Drive/b.pdf"), 5 * kMiB);
  fs::create_directories(fixture.at("~/Library/Mobile Documents/com~apple~CloudDocs"));  // empty: still listed
  fs::create_directory_symlink(fixture.at("~/Library/CloudStorage/Dropbox"), fixture.at("~/Dropbox"));
  test::writeFile(fixture.at("~/OneDrive notes.txt"), "a file, not a synced folder");
  fs::create_symlink(fixture.at("~/gone"), fixture.at("~/Google Drive"));

  auto entries = scanCloudFolders();
  ASSERT_EQ(entries.size(), 3u);
  std::vector<std::string> labels;
  for (const auto& entry : entries) labels.push_back(entry->label());
  EXPECT_EQ(labels, (std::vector<std::string>{"Google Drive – ann@example.com", "Dropbox", "iCloud Drive"}));

  auto* dropbox = dynamic_cast<CloudSyncFolderEntry*>(entries[1].get());
  ASSERT_TRUE(dropbox);
  EXPECT_EQ(dropbox->folderUrl(), fs::canonical(fixture.at("~/Library/CloudStorage/Dropbox")));
  EXPECT_EQ(dropbox->tooltipText(), "~/Library/CloudStorage/Dropbox\n\n" + kNote);
  EXPECT_GE(dropbox->size().bytesOrZero(), static_cast<int64_t>(3 * kMiB));
  EXPECT_EQ(entries[2]->size(), CleanupEntry::Size::value(0)) << "no size threshold for synced folders";
  EXPECT_EQ(entries[2]->tooltipText(), "~/Library/Mobile Documents/com~apple~CloudDocs\n\n" + kNote);
}

TEST_F(CloudFolders, AFolderReachedOnlyThroughALinkShowsItsRealPlace) {
  test::TempDir elsewhere;
  test::writeFileOfSize(elsewhere / "Dropbox (Team)/a.bin", kMiB);
  fs::create_directory_symlink(elsewhere / "Dropbox (Team)", fixture.at("~/Dropbox (Team)"));
  auto entries = scanCloudFolders();
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0]->label(), "Dropbox – Team");
  EXPECT_EQ(entries[0]->displayPaths(), std::vector<fs::path>{elsewhere / "Dropbox (Team)"});
  EXPECT_TRUE(entries[0]->tooltipText().starts_with((elsewhere / "Dropbox (Team)").string() + "\n\n"));
}

TEST_F(CloudFolders, NothingSyncedNothingListed) {
  fs::create_directories(fixture.at("~/Library/CloudStorage"));
  EXPECT_TRUE(scanCloudFolders().empty());
}

}  // namespace
}  // namespace tw
