// The privileged remover program as pkexec runs it: arguments in, exit status and messages out.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "support/RunProcess.h"
#include "support/TempDir.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using test::writeFile;

TEST(PrivilegedRemover, RemovesListedItemsAndRefusesTheWholeCallForOneBadPath) {
  test::TempDir root;
  const fs::path updates = root / "Library/Updates";
  writeFile(updates / "041-1" / "a.pkg", "a");
  writeFile(updates / "041-2" / "b.pkg", "b");
  writeFile(root / "Applications/Install macOS Sonoma.app/Contents/x", "x");
  fs::create_directory_symlink(root / "Applications", updates / "041-link");
  test::ProcessOptions options;
  options.environment = {{"TIDEWELL_TEST_ROOT", root.path().string()}};
  auto run = [&](const std::vector<std::string>& arguments) {
    return test::runProcess(TIDEWELL_PRIVILEGED_REMOVER, arguments, options);
  };

  auto refused = run({(updates / "041-1").string(), (updates / "041-link").string()});
  EXPECT_EQ(refused.exitStatus, 2);
  EXPECT_NE(refused.standardError.find("041-link\u201D: it is a symbolic link"), std::string::npos)
      << refused.standardError;
  EXPECT_TRUE(fs::exists(updates / "041-1")) << "nothing goes when one path is refused";
  EXPECT_EQ(run({}).exitStatus, 2);
  EXPECT_EQ(run({"Library/Updates/041-1"}).exitStatus, 2);

  auto removed = run({(updates / "041-1").string(), (root / "Applications/Install macOS Sonoma.app").string()});
  EXPECT_EQ(removed.exitStatus, 0) << removed.standardError;
  EXPECT_FALSE(fs::exists(updates / "041-1"));
  EXPECT_FALSE(fs::exists(root / "Applications/Install macOS Sonoma.app"));
  EXPECT_TRUE(fs::exists(updates / "041-2"));
  EXPECT_TRUE(fs::exists(root / "Applications"));
}

}  // namespace
}  // namespace tw
