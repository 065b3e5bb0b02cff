// "info" and "clean" through the real executable on generated homes, hostile input and a synced folder included.
#include <gmock/gmock.h>

#include "e2e/Sandbox.h"
#include "fs/DirectorySize.h"
#include "platform/ByteCountFormatter.h"
#include "support/DeveloperFolderFixture.h"
#include "support/FixtureHome.h"
#include "support/HostilePropertyLists.h"
#include "support/StandInTools.h"
#include "support/Unprivileged.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;

#define ASSERT_RAN(result) ASSERT_EQ((result).exitStatus, 0) << (result).standardOutput << (result).standardError

struct InfoClean : ::testing::Test, test::Sandbox {
  test::DeveloperFolderFixture fixture{home / "Library/Developer"};
};

TEST_F(InfoClean, InfoListsEveryLocationAndCleanDerivedDataRemovesOnlyItAddingToTheLifetimeTotalUpToItsEnd) {
  fixture.populate();
  const auto info = run({"info"});
  ASSERT_RAN(info);
  const int64_t seaLion = measurePath(fixture.xcode() / "DerivedData/Sea_Lion-abcdefghijklmnopqrstuvwxyz", nullptr);
  // Device-support groups sit one level deeper than their location, their items one further.
  for (const std::string& item : std::vector<std::string>{
           "Scanning...\n\n", "\t[" + formatByteCount(0) + "] tvOS \n",
           "\t[" + formatByteCount(seaLion) + "] Sea Lion (/Users/dev/Projects/Sea Lion/Sea Lion.xcodeproj)\n",
           "] iOS 17.4 (21E219) \n", "] 1.3 (14) \u274C ("})
    EXPECT_THAT(info.standardOutput, HasSubstr(item));
  // The order of the lines is the listing's own (CmdLineListing); the total comes last.
  EXPECT_THAT(info.standardOutput, MatchesRegex(".*\nTotal size available to clean: [^\n]*\n"));

  preferences().setInteger("TWTotalBytesCleaned", 1000);
  const fs::path derivedData = fixture.xcode() / "DerivedData";
  int64_t expected = 0;
  std::vector<fs::path> projects;
  for (const auto& item : fs::directory_iterator(derivedData))
    if (item.path().filename() != "ModuleCache") projects.push_back(item), expected += measurePath(item, nullptr);
  ASSERT_EQ(projects.size(), 4u);  // two projects, one without info.plist, ModuleCache.noindex

  const auto result = run({"clean", "derived-data"});
  ASSERT_RAN(result);
  // The lines' format is the driver's own (CmdLineDriver): here all four items go, without a warning.
  EXPECT_THAT(result.standardOutput, HasSubstr(" - 4/4\n\nTotal bytes cleaned: " + formatByteCount(expected) + "\n"));
  EXPECT_THAT(result.standardOutput, Not(HasSubstr("Warning:")));
  for (const auto& project : projects) EXPECT_FALSE(fs::exists(project)) << project;
  for (const fs::path& kept :
       {derivedData / "ModuleCache", fixture.xcode() / "Archives", fixture.developerFolder() / "Shared/Documentation"})
    EXPECT_TRUE(fs::exists(kept)) << kept;
  EXPECT_EQ(preferences().object("TWTotalBytesCleaned"), UserDefaults::Value(1000 + expected));

  // A lifetime total at the end of its range never stops a clean nor reads negative.
  const auto cleanOnce = [&](const std::string& name) {
    const fs::path project = fixture.addDerivedData(name + "-abcdefghijklmnopqrstuvwxyz",
                                                    "/Users/dev/" + name + "/" + name + ".xcodeproj", 3 << 20);
    const auto cleaned = run({"clean", "derived-data"});
    EXPECT_EQ(cleaned.exitStatus, 0) << cleaned.standardOutput << cleaned.standardError;
    EXPECT_FALSE(fs::exists(project));
    return cleaned.standardOutput;
  };
  preferences().setInteger("TWTotalBytesCleaned", INT64_MAX - 10);
  EXPECT_THAT(cleanOnce("One"), AllOf(HasSubstr("Note: the lifetime total of bytes cleaned cannot grow any further"),
                                      Not(HasSubstr("could not be saved"))));
  EXPECT_EQ(preferences().object("TWTotalBytesCleaned"), UserDefaults::Value(INT64_MAX));
  EXPECT_THAT(cleanOnce("Two"), HasSubstr("Total bytes cleaned: "));  // again, with the total at the top
  fs::remove_all(config);  // A total that cannot be saved is said on standard output, not only in the log.
  test::writeFile(config, "a file where the settings folder should be");
  EXPECT_THAT(cleanOnce("Four"), HasSubstr("Warning: the lifetime total of bytes cleaned could not be saved: "));
  fs::remove_all(fixture.developerFolder() / "CoreSimulator");
  fixture.addDerivedData("Late-abcdefghijklmnopqrstuvwxyz", "/Users/dev/Late/Late.xcodeproj", 4096);
  EXPECT_THAT(test::outcome(run({"clean", "derived-data"})),
              MatchesRegex("1 .*\nError: Cannot locate Xcode cache files.\nCheck if you have Xcode installed and "
                           "some projects built.\n.*"));
  EXPECT_TRUE(fs::exists(derivedData / "Late-abcdefghijklmnopqrstuvwxyz"));
}

TEST_F(InfoClean, PropertyListsNestedTooDeepOrTooLargeAreRefusedAndAStuckToolIsEnded) {
  test::writeStandInTool(root, "/usr/bin/xcrun", "sleep 1000 & wait");
  const fs::path runtimes =
      root / "Library/Developer/CoreSimulator/Volumes/iOS_21E213/Library/Developer/CoreSimulator/Profiles/Runtimes";
  test::writeFile(runtimes / "iOS 17.4.simruntime/Contents/Info.plist",
                  "<plist><dict><key>CFBundleIdentifier</key><string>com.apple.CoreSimulator.SimRuntime.iOS-17-4"
                  "</string></dict></plist>");
  const fs::path backups = home / "Library/Application Support/MobileSync/Backup",
                 developer = fixture.developerFolder();
  // Each place twice: '%' becomes 1 for XML nested 200,000 deep, 2 for binary nested 100,000 deep.
  std::vector<fs::path> written;
  for (const fs::path& place :
       {developer / "Xcode/DerivedData/Deep%-abcdefghijklmnopqrstuvwxyz/info.plist",
        developer / "Xcode/Archives/2024-05-01/Deep% 01-05-2024, 10.00.xcarchive/Info.plist",
        developer / "CoreSimulator/Devices/0A1B2C3D-0000-4000-8000-00000000000%/device.plist",
        runtimes / "Deep %.simruntime/Contents/Info.plist", backups / "00008110-00000000000000%/Info.plist"}) {
    for (char format : {'1', '2'}) {
      written.push_back(std::string(place).replace(place.string().find('%'), 1, 1, format));
      test::writeFile(written.back(), format == '1' ? test::deepXmlList(200'000) : test::deepBinaryList(100'000));
    }
  }
  // A sparse Info.plist of 3 GiB in a device backup: refused by its size, never read.
  const fs::path huge = backups / "00008110-000000000000000H/Info.plist";
  test::writeSparseFile(huge, uint64_t{3} << 30);

  auto result = run({"info"}, {{"TIDEWELL_TEST_COMMAND_TIME_LIMIT_MS", "500"}});
  ASSERT_RAN(result);
  const std::string logged = test::readFile(logFile());
  EXPECT_THAT(logged, HasSubstr("Shell: /usr/bin/xcrun did not finish within 500 ms"));
  for (const auto& file : written)
    EXPECT_THAT(logged, HasSubstr("The property list " + file.string() + " is unusable: it is nested more than 256"));
  EXPECT_THAT(logged, HasSubstr("The property list " + huge.string() + " is unusable: it is 3221225472 bytes long"));
}

// A synced Dropbox folder, also reached through ~/Dropbox; $HOME points elsewhere: the home is the test host's.
TEST_F(InfoClean, ASyncedCloudFolderIsListedButOnlyItsCacheIsCountedAndCleaned) {
  const auto written = test::FixtureHome::write(home);
  const fs::path dropbox = home / "Library/CloudStorage/Dropbox";
  test::writeFileOfSize(dropbox / "Photos/holiday.jpg", 3 << 20);
  test::writeFile(dropbox / "Notes/todo.txt", "call the plumber\n");
  test::writeFileOfSize(dropbox / ".dropbox.cache/2024-03-04/deleted.bin", 2 << 20);
  fs::create_directory_symlink(dropbox, home / "Dropbox");
  auto syncedFiles = [&] {  // everything below the synced folder except the client's cache
    auto files = test::snapshot(dropbox);
    std::erase_if(files, [](const auto& item) { return item.first.starts_with(".dropbox.cache"); });
    return files;
  };
  const auto before = syncedFiles();
  ASSERT_EQ(before.size(), 4u);  // two folders, two files
  HardLinkTracker tracker;
  const int64_t cacheBytes = allocatedSizeOfDirectory(dropbox / ".dropbox.cache", &tracker);
  ASSERT_GE(allocatedSizeOfDirectory(dropbox / "Photos", &tracker), int64_t{3 << 20});
  const test::Environment elsewhere = {{"HOME", (scratch / "not-the-home").string()}};
  const auto info = run({"info"}, elsewhere);
  ASSERT_RAN(info);
  // The location line shows only the cache, counted once; the synced folder is listed below it with its own size.
  EXPECT_THAT(info.standardOutput, HasSubstr("[" + formatByteCount(cacheBytes) + "] Cloud Storage "));
  EXPECT_THAT(info.standardOutput, HasSubstr("] Dropbox \n"));

  const auto cloud = run({"clean", "cloud-caches"}, elsewhere);
  ASSERT_RAN(cloud);
  EXPECT_THAT(cloud.standardOutput, HasSubstr("Total bytes cleaned: " + formatByteCount(cacheBytes) + "\n"));
  EXPECT_FALSE(fs::exists(dropbox / ".dropbox.cache")) << "the client's cache is an ordinary cleanable item";
  const auto all = run({"clean", "all"}, elsewhere);
  ASSERT_RAN(all);
  EXPECT_THAT(all.standardOutput, Not(HasSubstr("Warning: Following file couldn't be removed")));
  EXPECT_THAT(all.standardOutput, Not(HasSubstr(dropbox.string())));
  EXPECT_EQ(syncedFiles(), before) << "synced files must never be touched";
  EXPECT_TRUE(fs::is_symlink(home / "Dropbox"));
  for (const fs::path& kept : written.keep) EXPECT_TRUE(fs::exists(kept)) << kept;
  for (const char* cache : {".npm", ".cargo/registry", "Library/Caches/Google/Chrome", ".Trash/Old Installer.dmg"})
    EXPECT_FALSE(fs::exists(home / cache)) << cache;
}

}  // namespace
}  // namespace tw
