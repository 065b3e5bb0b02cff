// "info" and "clean" through the real executable, on a home folder written for the run.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

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
using test::DeveloperFolderFixture;
using test::TempDir;
using ::testing::HasSubstr;
using ::testing::Not;

std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> result;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) result.push_back(line);
  return result;
}

class InfoClean : public ::testing::Test {
 protected:
  InfoClean() : fixture(home / "Library/Developer") {
    fixture.populate();
    fs::create_directories(root.path());
  }

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

  int64_t lifetimeTotal() const {
    const auto value = preferences().object("TWTotalBytesCleaned");
    if (!value) return 0;
    return std::get<int64_t>(*value);
  }

  TempDir home, root, config, temporary;
  DeveloperFolderFixture fixture;
};

TEST_F(InfoClean, InfoListsEveryLocationWithTheScannedItems) {
  const auto result = run({"info"});
  ASSERT_EQ(result.exitStatus, 0) << result.standardOutput << result.standardError;
  const std::string& out = result.standardOutput;
  EXPECT_THAT(out, HasSubstr("Scanning...\n\n"));
  EXPECT_THAT(out, HasSubstr("\t[" +
                             formatByteCount(measurePath(
                                 fixture.xcode() / "DerivedData/Sea_Lion-abcdefghijklmnopqrstuvwxyz", nullptr)) +
                             "] Sea Lion (/Users/dev/Projects/Sea Lion/Sea Lion.xcodeproj)\n"));
  // Device-support groups sit one level deeper than their location, their items one further.
  EXPECT_THAT(out, HasSubstr("\t[" + formatByteCount(0) + "] tvOS \n"));
  EXPECT_THAT(out, HasSubstr("] iOS 17.4 (21E219) \n"));
  EXPECT_THAT(out, HasSubstr("] 1.3 (14) \u274C ("));
  EXPECT_THAT(out, HasSubstr("] Logs from Xcode 16.4 \n"));
  EXPECT_THAT(out, HasSubstr("] Cache from Xcode 15.3 \n"));
  EXPECT_THAT(out, HasSubstr("] SwiftUI Previews \n"));

  // Location entries in descending label order, each followed by an empty line.
  const auto all = lines(out);
  auto position = [&](const std::string& label) {
    for (size_t index = 0; index < all.size(); ++index) {
      if (all[index].rfind("[", 0) == 0 && all[index].find("] " + label + " ") != std::string::npos) return index;
    }
    ADD_FAILURE() << "no line for " << label << "\n" << out;
    return size_t{0};
  };
  EXPECT_LT(position("UserData Cache"), position("System"));
  EXPECT_LT(position("System"), position("Old Logs"));
  EXPECT_LT(position("Old Logs"), position("Derived Data"));
  EXPECT_LT(position("Derived Data"), position("Archives"));
  EXPECT_LT(position("Archives"), position("AI Caches"));
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
  const fs::path archives = fixture.xcode() / "Archives";

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
  EXPECT_TRUE(fs::exists(archives));
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
