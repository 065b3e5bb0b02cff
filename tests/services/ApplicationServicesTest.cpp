#include <gtest/gtest.h>

#include "platform/UserTimerNotificationCenter.h"
#include "support/LogCapture.h"
#include "support/StandInEnvironment.h"
#include "support/StandInTools.h"
#include "support/TempDir.h"
#include "ui/ApplicationServices.h"

namespace tw {
namespace {

class ApplicationServicesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    test::writeStandInTool(root.path(), "/usr/bin/systemctl", "exit 0");
    // A series left by an earlier run, when reminders were still on.
    auto earlier = makeDesktopNotificationCenter(host, "tidewell-remind", [] { return true; });
    ScanReminders(earlier, TIDEWELL_BUNDLE_IDENTIFIER).applySettings(true, Preferences::Period::everyWeek);
    ASSERT_EQ(earlier->pendingRequests().size(), 52u);
  }

  test::TempDir root;
  Host host = test::hostWithRoot(root.path());
  ScopedHost scopedHost{host};
};

TEST_F(ApplicationServicesTest, LaunchWithRemindersOffWithdrawsThemAfterLoggingWhatWasPending) {
  Preferences::shared().setNotificationsEnabled(false);
  test::LogCapture log;
  {
    ui::ApplicationServices services;
    services.finishLaunching();
    services.reminders().waitUntilIdle();
  }
  ASSERT_FALSE(log.lines().empty());
  EXPECT_EQ(log.lines()[0].rfind("❕ Next reminder: ", 0), 0u) << log.lines()[0];
  auto center = makeDesktopNotificationCenter(host, "tidewell-remind", [] { return true; });
  EXPECT_TRUE(center->pendingRequests().empty());
  EXPECT_EQ(Preferences::shared().launchCount(), 1);

  // Answered already, so the second start asks nothing (a modal question would stop the test).
  Preferences::shared().setAutomaticUpdateChecks(false);
  log.clear();
  ui::ApplicationServices again;
  again.finishLaunching();
  again.reminders().waitUntilIdle();
  EXPECT_EQ(log.lines().at(0), "❕ No reminder scheduled!");
}

}  // namespace
}  // namespace tw
