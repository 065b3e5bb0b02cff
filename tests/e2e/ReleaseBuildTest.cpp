#include <gtest/gtest.h>

#include "platform/Host.h"
#include "support/RunProcess.h"
#include "support/TempDir.h"

namespace tw {
namespace {

TEST(ReleaseBuild, IgnoresTheTestOnlyHomeAndRootVariables) {
  test::TempDir decoy;
  test::ProcessOptions options;
  options.environment = {{"TIDEWELL_TEST_HOME", decoy.path().string()},
                         {"TIDEWELL_TEST_ROOT", decoy.path().string()},
                         {"TIDEWELL_TEST_COMMAND_TIME_LIMIT_MS", "5"},
                         {"HOME", decoy.path().string()}};
  auto result = test::runProcess(TIDEWELL_RELEASE_HOST_PROBE, {}, options);
  ASSERT_EQ(result.exitStatus, 0) << result.standardError;
  // The home comes from the user database, never from the environment; "/" stays "/", and an
  // external tool keeps its minute.
  ASSERT_FALSE(userDatabaseHome().empty());
  EXPECT_EQ(result.standardOutput,
            "home=" + userDatabaseHome().string() + "\nroot=/\ncommandTimeLimitMs=60000\n");

  // The same variables do reach a test build: the probe is not simply blind to them.
  ASSERT_NE(userDatabaseHome(), decoy.path());
  setenv("TIDEWELL_TEST_HOME", decoy.path().c_str(), 1);
  EXPECT_EQ(Host::fromProcess().home, decoy.path());
  unsetenv("TIDEWELL_TEST_HOME");
}

}  // namespace
}  // namespace tw
