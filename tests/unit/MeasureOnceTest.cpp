#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <map>
#include <mutex>
#include <string>

#include "fs/DirectorySize.h"
#include "platform/Host.h"
#include "scan/DevFiles.h"
#include "support/FixtureHome.h"
#include "support/TempDir.h"

#if defined(TIDEWELL_TEST_HOOKS)

namespace tw {
namespace {

namespace fs = std::filesystem;
using Location = DevFiles::Location;
using test::TempDir;

std::mutex walksMutex;
std::map<fs::path, int> walks;

void countWalk(const fs::path& folder) {
  std::lock_guard lock(walksMutex);
  ++walks[folder];
}

struct CountedWalks {
  CountedWalks() {
    walks.clear();
    setDirectoryWalkObserver(countWalk);
  }
  ~CountedWalks() { setDirectoryWalkObserver(nullptr); }
};

std::shared_ptr<DevFiles> devFilesFor(const fs::path& home) {
  return DevFiles::create(home / "Library/Developer", std::nullopt, std::nullopt, nullptr).value_or(nullptr);
}

// The group sizes come from what the first measurement of each item recorded, so the scan of a
// location walks no folder twice (project builds and system items used to be walked again for
// their groups). A folder two locations both list, such as the simulator logs, is measured by
// each of them.
TEST(MeasureOnce, TheScanOfALocationWalksEveryFolderOnce) {
  TempDir temp;
  const auto home = test::FixtureHome::write(temp / "home");
  fs::create_directories(temp / "root");
  ScopedHost host(Host{
      .home = home.root, .root = temp / "root", .temporaryDirectory = temp.path(), .configDirectory = temp / "config"});
  auto devFiles = devFilesFor(home.root);
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

void writeBytes(const fs::path& file, size_t bytes, char fill) {
  fs::create_directories(file.parent_path());
  test::writeFile(file, std::string(bytes, fill));
}

int64_t allocated(const fs::path& file) {
  struct stat status {};
  EXPECT_EQ(::lstat(file.c_str(), &status), 0) << file;
  return static_cast<int64_t>(status.st_blocks) * 512;
}

// Two projects' node_modules share packages through hard links, as pnpm's store makes them.
// Each shared file is charged to the first folder of the group that holds it, on every scan.
TEST(MeasureOnce, HardLinkedFilesAreChargedToTheFirstItemOfTheGroupOnEveryScan) {
  TempDir temp;
  const fs::path home = temp / "home";
  const fs::path store = home / ".pnpm-store/typescript.js";
  writeBytes(store, 3 << 20, 's');
  constexpr size_t kProjects = 6;
  for (size_t project = 0; project < kProjects; ++project) {
    const fs::path folder = home / "code" / ("project" + std::to_string(project));
    test::writeFile(folder / "package.json", "{}");
    const fs::path modules = folder / "node_modules";
    writeBytes(modules / "own.js", (project + 2) << 20, 'o');
    fs::create_directories(modules / "typescript");
    fs::create_hard_link(store, modules / "typescript/typescript.js");
  }
  fs::create_directories(home / "Library/Developer/Xcode");
  fs::create_directories(home / "Library/Developer/CoreSimulator");
  fs::create_directories(temp / "root");
  ScopedHost host(
      Host{.home = home, .root = temp / "root", .temporaryDirectory = temp.path(), .configDirectory = temp / "config"});

  std::string first;
  for (int scan = 0; scan < 20; ++scan) {
    auto devFiles = devFilesFor(home);
    ASSERT_NE(devFiles, nullptr);
    devFiles->scan({Location::projectBuilds});
    const CleanupEntryPtr& builds = devFiles->entry(Location::projectBuilds);
    if (scan == 0) {
      ASSERT_EQ(builds->items().size(), 1u);  // one kind: node_modules
      const auto& folders = builds->items()[0]->items();
      ASSERT_EQ(folders.size(), kProjects);
      const int64_t shared = allocated(store);
      int64_t total = 0;
      for (size_t index = 0; index < kProjects; ++index) {
        HardLinkTracker own;
        const int64_t alone = allocatedSizeOfDirectory(folders[index]->paths().at(0), &own);
        const int64_t charged = index == 0 ? alone : alone - shared;
        EXPECT_EQ(folders[index]->size(), CleanupEntry::Size::value(charged)) << folders[index]->paths().at(0);
        total += charged;
      }
      EXPECT_EQ(builds->size(), CleanupEntry::Size::value(total));
      first = builds->description(0);
    } else {
      ASSERT_EQ(builds->description(0), first) << "scan " << scan;
    }
  }
}

}  // namespace
}  // namespace tw

#endif
