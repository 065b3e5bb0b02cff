#include <gtest/gtest.h>

#include <QCheckBox>
#include <QComboBox>
#include <QTest>

#include "MemoryNotificationCenter.h"
#include "app/ScanReminders.h"
#include "support/TempDir.h"
#include "ui/PreferencesWindow.h"

namespace tw {
namespace {

using ui::PreferencesWindow;
using Period = Preferences::Period;
using Keys = Preferences::Keys;

struct RecordingObserver : PreferencesObserver {
  void preferenceDidChange(const std::string& key) override { keys.push_back(key); }
  std::vector<std::string> keys;
};

class PreferencesWindowTest : public ::testing::Test {
 protected:
  void SetUp() override { preferences.addObserver(observer); }

  std::unique_ptr<PreferencesWindow> openWindow() {
    auto window = std::make_unique<PreferencesWindow>(
        preferences, [this](bool enabled, Period period) { reminders.applySettings(enabled, period); });
    window->show();
    return window;
  }

  test::TempDir folder;
  Preferences preferences{folder / "settings.plist"};
  std::shared_ptr<RecordingObserver> observer = std::make_shared<RecordingObserver>();
  std::shared_ptr<test::MemoryNotificationCenter> center = std::make_shared<test::MemoryNotificationCenter>();
  CalendarTime now = std::chrono::system_clock::now();
  ScanReminders reminders{center, "dev.tidewell.Tidewell", [this] { return now; }};
};

TEST_F(PreferencesWindowTest, ControlsShowTheStoredSettings) {
  auto window = openWindow();
  QStringList titles;
  for (int i = 0; i < window->notificationsPeriodPopUpButton()->count(); ++i) {
    titles << window->notificationsPeriodPopUpButton()->itemText(i);
  }
  EXPECT_EQ(titles, (QStringList{"Every week", "Every 2 weeks", "Every month", "Every 2 months"}));
  EXPECT_TRUE(window->notificationsEnabledButton()->isChecked());
  EXPECT_TRUE(window->notificationsPeriodPopUpButton()->isEnabled());
  EXPECT_EQ(window->notificationsPeriodPopUpButton()->currentText(), "Every month");
  EXPECT_FALSE(window->dryRunEnabledButton()->isChecked());

  const std::pair<Period, const char*> mapping[] = {{Period::everyWeek, "Every week"},
                                                    {Period::every2weeks, "Every 2 weeks"},
                                                    {Period::everyMonth, "Every month"},
                                                    {Period::every2Months, "Every 2 months"}};
  for (const auto& [period, title] : mapping) {
    preferences.setNotificationsPeriod(period);
    window->loadSettings();
    EXPECT_EQ(window->notificationsPeriodPopUpButton()->currentText(), title);
    EXPECT_EQ(PreferencesWindow::periodOf(title), period);
  }
  EXPECT_EQ(PreferencesWindow::periodOf("Every day"), std::nullopt);

  preferences.setNotificationsEnabled(false);
  preferences.setDryRunEnabled(true);
  auto reopened = openWindow();
  EXPECT_FALSE(reopened->notificationsEnabledButton()->isChecked());
  EXPECT_FALSE(reopened->notificationsPeriodPopUpButton()->isEnabled());
  EXPECT_TRUE(reopened->dryRunEnabledButton()->isChecked());
}

TEST_F(PreferencesWindowTest, EveryChangeIsStoredAtOnceAndMovesTheReminders) {
  preferences.setNotificationsEnabled(false);
  auto window = openWindow();
  observer->keys.clear();

  QTest::mouseClick(window->notificationsEnabledButton(), Qt::LeftButton);
  EXPECT_TRUE(preferences.notificationsEnabled());
  EXPECT_TRUE(window->notificationsPeriodPopUpButton()->isEnabled());
  ASSERT_EQ(center->pending.size(), 52u);
  auto monthly = reminders.reminderDates(Period::everyMonth, 1).at(0);
  EXPECT_EQ(std::get<CalendarTrigger>(center->pending[0].trigger).components, dateComponents(monthly));

  // The keyboard picks the next period, as a user does in the pop-up.
  window->notificationsPeriodPopUpButton()->setFocus();
  QTest::keyClick(window->notificationsPeriodPopUpButton(), Qt::Key_Down);
  EXPECT_EQ(preferences.notificationsPeriod(), Period::every2Months);
  ASSERT_EQ(center->pending.size(), 52u);
  auto twoMonthly = reminders.reminderDates(Period::every2Months, 1).at(0);
  EXPECT_EQ(std::get<CalendarTrigger>(center->pending[0].trigger).components, dateComponents(twoMonthly));

  QTest::mouseClick(window->dryRunEnabledButton(), Qt::LeftButton);
  EXPECT_TRUE(preferences.dryRunEnabled());

  QTest::mouseClick(window->notificationsEnabledButton(), Qt::LeftButton);
  EXPECT_FALSE(preferences.notificationsEnabled());
  EXPECT_FALSE(window->notificationsPeriodPopUpButton()->isEnabled());
  EXPECT_TRUE(center->pending.empty());

  EXPECT_EQ(observer->keys, (std::vector<std::string>{Keys::notificationsEnabled, Keys::notificationsPeriod,
                                                      Keys::dryRunEnabled, Keys::notificationsEnabled}));
}

}  // namespace
}  // namespace tw
