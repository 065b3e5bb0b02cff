// "info" and "clean" through the real executable, on a home folder written for the run.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "fs/DirectorySize.h"
#include "platform/ByteCountFormatter.h"
#include "platform/Host.h"
#include "platform/UserDefaults.h"
#include "support/DeveloperFolderFixture.h"
#include "support/RunProcess.h"
#include "support/TempDir.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using test::TempDir;
using ::testing::HasSubstr;
using ::testing::Not;

class InfoClean : public ::testing::Test {
 protected:
  InfoClean() { fixture.populate(); }

  test::ProcessResult run(const std::vector<std::string>& arguments) {
    test::ProcessOptions options;
    options.environment = {
        {"TIDEWELL_FROM_COMMAND_LINE", "1"},          {"TIDEWELL_TEST_HOME", home.path().string()},
        {"TIDEWELL_TEST_ROOT", root.path().string()}, {"XDG_CONFIG_HOME", config.path().string()},
        {"TMPDIR", temporary.path().string()},
    };
    return test::runProcess(TIDEWELL_EXECUTABLE, arguments, options);
  }

  UserDefaults preferences() const {
    Host host;
    host.configDirectory = config.path();
    return UserDefaults(UserDefaults::standardStorePath(host));
  }

  TempDir home, root, config, temporary;
  test::DeveloperFolderFixture fixture{home / "Library/Developer"};
};

TEST_F(InfoClean, InfoListsEveryLocationWithTheScannedItems) {
  const auto result = run({"info"});
  ASSERT_EQ(result.exitStatus, 0) << result.standardOutput << result.standardError;
  const std::string& out = result.standardOutput;
  EXPECT_THAT(out, HasSubstr("Scanning...\n\n"));
  const int64_t seaLion = measurePath(fixture.xcode() / "DerivedData/Sea_Lion-abcdefghijklmnopqrstuvwxyz", nullptr);
  EXPECT_THAT(out, HasSubstr("\t[" + formatByteCount(seaLion) +
                             "] Sea Lion (/Users/dev/Projects/Sea Lion/Sea Lion.xcodeproj)\n"));
  // Device-support groups sit one level deeper than their location, their items one further.
  EXPECT_THAT(out, HasSubstr("\t[" + formatByteCount(0) + "] tvOS \n"));
  for (const char* item : {"] iOS 17.4 (21E219) \n", "] 1.3 (14) \u274C (", "] Logs from Xcode 16.4 \n",
                           "] Cache from Xcode 15.3 \n", "] SwiftUI Previews \n"})
    EXPECT_THAT(out, HasSubstr(item));

  // Location entries in descending label order; the total comes last.
  std::vector<std::string> all;
  std::istringstream stream(out);
  for (std::string line; std::getline(stream, line);) all.push_back(line);
  std::vector<ptrdiff_t> positions;
  for (const std::string label : {"UserData Cache", "System", "Old Logs", "Derived Data", "Archives", "AI Caches"}) {
    auto found = std::find_if(all.begin(), all.end(), [&](const std::string& line) {
      return line.rfind("[", 0) == 0 && line.find("] " + label + " ") != std::string::npos;
    });
    EXPECT_NE(found, all.end()) << label << "\n" << out;
    positions.push_back(found - all.begin());
  }
  EXPECT_TRUE(std::is_sorted(positions.begin(), positions.end())) << out;
  EXPECT_EQ(all.back().rfind("Total size available to clean: ", 0), 0u) << all.back();
}

TEST_F(InfoClean, CleanDerivedDataRemovesOnlyItAndAddsToTheLifetimeTotal) {
  preferences().setInteger("TWTotalBytesCleaned", 1000);
  const fs::path derivedData = fixture.xcode() / "DerivedData";
  int64_t expected = 0;
  std::vector<fs::path> projects;
  for (const auto& item : fs::directory_iterator(derivedData)) {
    if (item.path().filename() == "ModuleCache") continue;
    projects.push_back(item.path());
    expected += measurePath(item.path(), nullptr);
  }
  ASSERT_EQ(projects.size(), 4u);  // two projects, one without info.plist, ModuleCache.noindex
  auto lifetimeTotal = [&] { return std::get<int64_t>(preferences().object("TWTotalBytesCleaned").value()); };

  const auto result = run({"clean", "derived-data"});
  ASSERT_EQ(result.exitStatus, 0) << result.standardOutput << result.standardError;
  const std::string& out = result.standardOutput;
  EXPECT_THAT(out, HasSubstr("Removing files:\n"));
  EXPECT_THAT(out, HasSubstr("Derived Data: Sea Lion /Users/dev/Projects/Sea Lion/Sea Lion.xcodeproj - "));
  EXPECT_THAT(out, HasSubstr(" - 4/4\n"));
  EXPECT_THAT(out, Not(HasSubstr("Warning:")));
  EXPECT_THAT(out, HasSubstr("\nTotal bytes cleaned: " + formatByteCount(expected) + "\n"));
  for (const auto& project : projects) EXPECT_FALSE(fs::exists(project)) << project;
  EXPECT_TRUE(fs::exists(derivedData / "ModuleCache"));
  EXPECT_TRUE(fs::exists(fixture.xcode() / "Archives"));
  EXPECT_TRUE(fs::exists(fixture.developerFolder() / "Shared/Documentation"));
  EXPECT_EQ(lifetimeTotal(), 1000 + expected);

  // A second run over the now empty location adds nothing.
  const auto again = run({"clean", "derived-data"});
  ASSERT_EQ(again.exitStatus, 0) << again.standardOutput;
  EXPECT_THAT(again.standardOutput, HasSubstr("Total bytes cleaned: " + formatByteCount(0) + "\n"));
  EXPECT_EQ(lifetimeTotal(), 1000 + expected);
}

TEST_F(InfoClean, CleanWithoutCoreSimulatorFailsWithTheLocateMessage) {
  fs::remove_all(fixture.developerFolder() / "CoreSimulator");
  const auto result = run({"clean", "derived-data"});
  EXPECT_EQ(result.exitStatus, 1);
  EXPECT_THAT(result.standardOutput,
              HasSubstr("Error: Cannot locate Xcode cache files.\nCheck if you have Xcode installed and some projects "
                        "built.\n"));
  EXPECT_TRUE(fs::exists(fixture.xcode() / "DerivedData"));
}

}  // namespace
}  // namespace tw
