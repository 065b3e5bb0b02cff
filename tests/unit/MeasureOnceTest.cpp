// Whole scans of a realistic home: how often folders are walked, hard-linked files, icon names.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <mutex>
#include <set>
#include <string>

#include "fs/DirectorySize.h"
#include "model/SystemEntries.h"
#include "model/SystemImages.h"
#include "platform/Host.h"
#include "scan/DevFiles.h"
#include "support/CatalogueFixture.h"
#include "support/DeveloperFolderFixture.h"
#include "support/FixtureHome.h"
#include "support/TempDir.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using Location = DevFiles::Location;

std::shared_ptr<DevFiles> devFilesFor(const fs::path& home) {
  return DevFiles::create(home / "Library/Developer", std::nullopt, std::nullopt, nullptr).value_or(nullptr);
}

class FullScan : public ::testing::Test {
 protected:
  test::TempDir temp;
  test::FixtureHome home = test::FixtureHome::write(temp / "home");
  bool rootMade = fs::create_directories(temp / "root");  // before the host points at it
  ScopedHost host{Host{
      .home = home.root, .root = temp / "root", .temporaryDirectory = temp.path(), .configDirectory = temp / "config"}};
  std::shared_ptr<DevFiles> devFiles = devFilesFor(home.root);
};

// The window maps each system image name to a picture, so every scanner must use the shared names.
TEST_F(FullScan, EveryIconIsOneOfTheSharedSystemImageNames) {
  ASSERT_NE(devFiles, nullptr);
  devFiles->scan({DevFiles::allLocations().begin(), DevFiles::allLocations().end()});
  std::vector<CleanupEntryPtr> entries(devFiles->rootEntries());
  entries.push_back(std::make_shared<TimeMachineSnapshotFileEntry>("2024-01-01-000000", false));
  entries.push_back(std::make_shared<CloudSyncFolderEntry>("Dropbox", temp / "Dropbox", "synced"));
  std::set<std::string> used;
  while (!entries.empty()) {
    CleanupEntryPtr entry = entries.back();
    entries.pop_back();
    if (entry->icon() && entry->icon()->kind == CleanupEntry::Icon::Kind::system) used.insert(entry->icon()->name);
    entries.insert(entries.end(), entry->items().begin(), entry->items().end());
  }
  for (const auto& name : used) EXPECT_THAT(systemImage::all, ::testing::Contains(name)) << name;
  EXPECT_GE(used.size(), 4u);  // folders, documents and computers come from several scanners each
}

#if defined(TIDEWELL_TEST_HOOKS)

std::mutex walksMutex;
std::map<fs::path, int> walks;

struct CountedWalks {
  CountedWalks() {
    walks.clear();
    setDirectoryWalkObserver([](const fs::path& folder) {
      std::lock_guard lock(walksMutex);
      ++walks[folder];
    });
  }
  ~CountedWalks() { setDirectoryWalkObserver(nullptr); }
};

// Group sizes come from each item's first measurement; a folder two locations list is walked by each.
TEST_F(FullScan, TheScanOfALocationWalksEveryFolderOnce) {
  ASSERT_NE(devFiles, nullptr);
  std::map<fs::path, int> walkedInAll;
  for (Location location : DevFiles::allLocations()) {
    CountedWalks counted;
    devFiles->scan({location});
    for (const auto& [folder, count] : walks) {
      EXPECT_EQ(count, 1) << DevFiles::commandLineName(location) << ": " << folder;
      walkedInAll[folder] += count;
    }
  }
  for (const auto& folder : home.projectBuildFolders) EXPECT_EQ(walkedInAll[folder], 1) << folder;
}

// Projects' node_modules share packages through hard links, as pnpm's store makes them: each
// shared file is charged to the first folder of the group that holds it, on every scan.
TEST(MeasureOnce, HardLinkedFilesAreChargedToTheFirstItemOfTheGroupOnEveryScan) {
  test::CatalogueFixture fixture;
  test::DeveloperFolderFixture developer{fixture.at("~/Library/Developer")};
  const fs::path store = fixture.at("~/.pnpm-store/typescript.js");
  test::writeFileOfSize(store, 3 << 20);
  constexpr size_t kProjects = 6;
  for (size_t project = 0; project < kProjects; ++project) {
    const fs::path folder = fixture.at("~/code/project" + std::to_string(project));
    test::writeFile(folder / "package.json", "{}");
    test::writeFileOfSize(folder / "node_modules/own.js", (project + 2) << 20);
    fs::create_directories(folder / "node_modules/typescript");
    fs::create_hard_link(store, folder / "node_modules/typescript/typescript.js");
  }
  std::string first;
  for (int scan = 0; scan < 20; ++scan) {
    auto devFiles = devFilesFor(fixture.home());
    ASSERT_NE(devFiles, nullptr);
    devFiles->scan({Location::projectBuilds});
    const CleanupEntryPtr& builds = devFiles->entry(Location::projectBuilds);
    if (scan > 0) {
      ASSERT_EQ(builds->description(0), first) << "scan " << scan;
      continue;
    }
    ASSERT_EQ(builds->items().size(), 1u);  // one kind: node_modules
    const auto& folders = builds->items()[0]->items();
    ASSERT_EQ(folders.size(), kProjects);
    int64_t total = 0;
    for (size_t index = 0; index < kProjects; ++index) {
      HardLinkTracker own;
      const int64_t alone = allocatedSizeOfDirectory(folders[index]->paths().at(0), &own);
      const int64_t charged = index == 0 ? alone : alone - test::allocatedBytes(store);
      EXPECT_EQ(folders[index]->size(), CleanupEntry::Size::value(charged)) << folders[index]->paths().at(0);
      total += charged;
    }
    EXPECT_EQ(builds->size(), CleanupEntry::Size::value(total));
    first = builds->description(0);
  }
}

#endif

}  // namespace
}  // namespace tw
