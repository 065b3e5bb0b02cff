// Hostile input through the real executable: property lists built to overflow the parser's
// stack or its memory in every place the scan reads one, a stuck system tool, and a lifetime
// total at the end of its range. The run must finish, say what it refused and lose nothing.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/Host.h"
#include "platform/UserDefaults.h"
#include "support/DeveloperFolderFixture.h"
#include "support/HostilePropertyLists.h"
#include "support/RunProcess.h"
#include "support/StandInTools.h"
#include "support/TempDir.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;

class HostileInput : public ::testing::Test {
 protected:
  test::ProcessResult run(const std::vector<std::string>& arguments,
                          std::map<std::string, std::optional<std::string>> extra = {}) {
    test::ProcessOptions options;
    options.environment = {
        {"TIDEWELL_FROM_COMMAND_LINE", "1"},          {"TIDEWELL_TEST_HOME", home.path().string()},
        {"TIDEWELL_TEST_ROOT", root.path().string()}, {"XDG_CONFIG_HOME", config.string()},
        {"TMPDIR", temporary.path().string()},
    };
    options.environment.merge(extra);
    return test::runProcess(TIDEWELL_EXECUTABLE, arguments, options);
  }

  std::string log() const { return test::readFile(temporary / "dev.tidewell.Tidewell-MainLog-LogFile-latest.log"); }

  UserDefaults preferences() const {
    Host host;
    host.configDirectory = config;
    return UserDefaults(UserDefaults::standardStorePath(host));
  }

  test::TempDir home, root, temporary, scratch;
  fs::path config = scratch / "config";
  test::DeveloperFolderFixture fixture{home / "Library/Developer"};
};

TEST_F(HostileInput, PropertyListsNestedTooDeepOrTooLargeAreRefusedWhereverTheScanReadsThem) {
  const fs::path runtimes =
      root / "Library/Developer/CoreSimulator/Volumes/iOS_21E213/Library/Developer/CoreSimulator/Profiles/Runtimes";
  test::writeFile(runtimes / "iOS 17.4.simruntime/Contents/Info.plist",
                  "<plist><dict><key>CFBundleIdentifier</key><string>com.apple.CoreSimulator.SimRuntime.iOS-17-4"
                  "</string></dict></plist>");
  const fs::path backups = home / "Library/Application Support/MobileSync/Backup";
  const fs::path developer = fixture.developerFolder();
  // Each place twice: '%' becomes 1 for an XML list nested 200,000 deep, 2 for a binary one
  // nested 100,000 deep.
  const std::vector<fs::path> places = {
      developer / "Xcode/DerivedData/Deep%-abcdefghijklmnopqrstuvwxyz/info.plist",
      developer / "Xcode/Archives/2024-05-01/Deep% 01-05-2024, 10.00.xcarchive/Info.plist",
      developer / "CoreSimulator/Devices/0A1B2C3D-0000-4000-8000-00000000000%/device.plist",
      runtimes / "Deep %.simruntime/Contents/Info.plist",
      backups / "00008110-00000000000000%/Info.plist",
  };
  std::vector<fs::path> written;
  for (const auto& place : places) {
    for (char format : {'1', '2'}) {
      std::string file = place.string();
      file[file.find('%')] = format;
      test::writeFile(file, format == '1' ? test::deepXmlList(200'000) : test::deepBinaryList(100'000));
      written.emplace_back(file);
    }
  }
  // A sparse Info.plist of 3 GiB in a device backup: refused by its size, never read.
  const fs::path huge = backups / "00008110-000000000000000H/Info.plist";
  fs::create_directories(huge.parent_path());
  int fd = ::open(huge.c_str(), O_WRONLY | O_CREAT, 0644);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(::ftruncate(fd, off_t{3} << 30), 0);
  ::close(fd);

  auto result = run({"info"});
  ASSERT_EQ(result.exitStatus, 0) << result.standardOutput << result.standardError;
  EXPECT_THAT(result.standardOutput, HasSubstr("Total size available to clean: "));
  const std::string logged = log();
  for (const auto& file : written) {
    EXPECT_THAT(logged, HasSubstr("The property list " + file.string() + " is unusable: it is nested more than 256"));
  }
  EXPECT_THAT(logged, HasSubstr("The property list " + huge.string() + " is unusable: it is 3221225472 bytes long"));
}

TEST_F(HostileInput, AStuckSimulatorToolIsEndedAndTheScanGoesOn) {
  test::writeStandInTool(root.path(), "/usr/bin/xcrun", "sleep 1000 & wait");
  auto result = run({"info"}, {{"TIDEWELL_TEST_COMMAND_TIME_LIMIT_MS", "500"}});
  ASSERT_EQ(result.exitStatus, 0) << result.standardOutput << result.standardError;
  EXPECT_THAT(result.standardOutput, HasSubstr("Total size available to clean: "));
  EXPECT_THAT(log(), HasSubstr("Shell: /usr/bin/xcrun did not finish within 500 ms"));
}

TEST_F(HostileInput, ALifetimeTotalAtTheEndOfItsRangeNeverStopsACleanOrReadsNegative) {
  const int64_t projectBytes = 3 << 20;
  const auto cleanOnce = [&](const std::string& name) {
    const fs::path project = fixture.addDerivedData(name + "-abcdefghijklmnopqrstuvwxyz",
                                                    "/Users/dev/" + name + "/" + name + ".xcodeproj", projectBytes);
    auto result = run({"clean", "derived-data"});
    EXPECT_EQ(result.exitStatus, 0) << result.standardOutput << result.standardError;
    EXPECT_FALSE(fs::exists(project));
    return result;
  };

  preferences().setInteger("TWTotalBytesCleaned", INT64_MAX - 10);
  auto first = cleanOnce("One");
  EXPECT_THAT(first.standardOutput, HasSubstr("Note: the lifetime total of bytes cleaned cannot grow any further"));
  EXPECT_EQ(preferences().object("TWTotalBytesCleaned"), UserDefaults::Value(INT64_MAX));
  auto second = cleanOnce("Two");  // and again, with the total already at the top
  EXPECT_THAT(second.standardOutput, HasSubstr("Total bytes cleaned: "));

  // Stored unsigned by another tool, beyond the signed range: read as the largest total.
  test::writeFile(preferences().storePath(),
                  "<plist><dict><key>TWTotalBytesCleaned</key><integer>18446744073709551615</integer></dict></plist>");
  cleanOnce("Three");
  EXPECT_EQ(preferences().object("TWTotalBytesCleaned"), UserDefaults::Value(INT64_MAX));

  // A total that cannot be saved is said on standard output, not only in the log.
  fs::remove_all(config);
  test::writeFile(config, "a file where the settings folder should be");
  auto unsaved = cleanOnce("Four");
  EXPECT_THAT(unsaved.standardOutput, HasSubstr("Warning: the lifetime total of bytes cleaned could not be saved: "));
  EXPECT_THAT(first.standardOutput, Not(HasSubstr("could not be saved")));
}

}  // namespace
}  // namespace tw
