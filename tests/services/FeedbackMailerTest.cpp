// Feedback and issue mails through the desktop's mail program, and the system report they carry.
#include <gtest/gtest.h>

#include "app/FeedbackMailer.h"
#include "app/Logger.h"
#include "app/Preferences.h"
#include "support/StandInEnvironment.h"
#include "support/StandInTools.h"
#include "support/TempDir.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using Strings = std::vector<std::string>;

struct RecordingAlerts : FeedbackAlerts {
  void showInformational(const std::string& message, const std::string& informative,
                         const std::string& button) override {
    shown.push_back(message + "|" + informative + "|" + button);
  }
  Strings shown;
};

class FeedbackMailerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    // The stand-in mail program writes one argument per line.
    test::writeStandInTool(
        root.path(), "/usr/bin/xdg-email",
        "for a in \"$@\"; do printf '%s\\n' \"$a\" >> " + test::shellQuoted(mailed.string()) + "; done");
    useMailtoHandler("thunderbird.desktop");
    host.bundle = root / "Tidewell.app";
  }
  void useMailtoHandler(const std::string& handler) {
    test::writeStandInTool(
        root.path(), "/usr/bin/xdg-mime",
        "[ \"$*\" = 'query default x-scheme-handler/mailto' ] && echo " + test::shellQuoted(handler));
  }

  test::TempDir root;
  Host host = test::hostWithRoot(root.path());
  ScopedHost scopedHost{host};
  fs::path mailed = root / "mailed";
  RecordingAlerts alerts;
  FeedbackMailer mailer() {
    return FeedbackMailer(host, alerts, {}, [](std::function<void()> task) { task(); });
  }
};

TEST_F(FeedbackMailerTest, FeedbackGoesToTheDecodedAddressOrTheAlertTellsIt) {
  const std::pair<const char*, std::optional<std::string>> decoded[] = {
      {"YQ==", "a"}, {"YWI=", "ab"}, {"YWJj", "abc"}, {"YWJ", std::nullopt}, {"Y!==", std::nullopt}};
  for (const auto& [text, plain] : decoded) EXPECT_EQ(FeedbackMailer::decodeBase64(text), plain) << text;
  mailer().sendFeedback();
  EXPECT_EQ(test::readCallLog(mailed), (Strings{"--utf8", "--subject", "Tidewell Feedback", "support@tidewell.dev"}));
  EXPECT_TRUE(alerts.shown.empty());

  fs::remove(mailed);
  useMailtoHandler("");
  mailer().sendFeedback();
  EXPECT_FALSE(fs::exists(mailed));
  EXPECT_EQ(alerts.shown, (Strings{"Can't send e-mail|It seems your system doesn't have e-mail configured. You can "
                                   "send your feedback manually to support@tidewell.dev|OK"}));
  fs::remove(root / "usr/bin/xdg-email");
  test::LogCapture log;
  mailer().sendFeedback();
  EXPECT_EQ(log.lines(), (Strings{"⚠️ FeedbackMailer: Can't create compose e-mail NSSharingService"}));
}

TEST_F(FeedbackMailerTest, IssueReportAttachesTheLogsThatExist) {
  test::TempDir logs;
  auto attached = [&](const Logger& logger) {
    fs::remove(mailed);
    mailer().reportAnIssue(logger);
    auto arguments = test::readCallLog(mailed);
    EXPECT_EQ(arguments.at(2), "Tidewell Issue Report");
    EXPECT_EQ(arguments.at(4), "Write your report here");
    Strings files;
    for (size_t i = 0; i + 1 < arguments.size(); ++i)
      if (arguments[i] == "--attach") files.push_back(arguments[i + 1]);
    return files;
  };
  const auto log = [&](std::string which) {
    return (logs / ("dev.tidewell.Tidewell-MainLog-LogFile-" + which + ".log")).string();
  };
  auto start = [&] {
    return Logger("MainLog", Logger::Level::info, Logger::FileLogging::on, logs.path(), "dev.tidewell.Tidewell");
  };
  EXPECT_EQ(attached(start()), (Strings{log("latest")}));
  EXPECT_EQ(attached(start()), (Strings{log("latest"), log("previous")}));
  EXPECT_EQ(attached(Logger("MainLog", Logger::Level::info, Logger::FileLogging::off)), Strings{});
}

TEST_F(FeedbackMailerTest, SystemReportTellsVersionFoldersSystemAndModel) {
  test::writeFile(host.bundle / "Contents/Info.plist",
                  "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>CFBundleShortVersionString</key>"
                  "<string>1.4.2</string><key>CFBundleVersion</key><string>87</string></dict></plist>");
  test::writeFile(
      root / "etc/os-release",
      "NAME=\"Debian GNU/Linux\"\nVERSION=\"12 (bookworm)\"\nPRETTY_NAME=\"Debian GNU/Linux 12 (bookworm)\"\n");
  test::writeFile(root / "sys/class/dmi/id/product_name", "ThinkPad X1 Carbon Gen 11\n");
  fs::create_directories(host.developerFolder());
  Preferences::shared().setCustomDerivedDataFolder("/Volumes/Fast/DerivedData");
  Preferences::shared().setCustomArchivesFolder(std::nullopt);
  EXPECT_EQ(mailer().systemReport(),
            "Tidewell 1.4.2 (87)\nDoes '~/Library/Developer' folder exists: YES\nCan read '~/Library/Developer' "
            "folder: YES\nCan write '~/Library/Developer' folder: YES\n\nCustom derived data folder: "
            "/Volumes/Fast/DerivedData\nCustom archives folder: -\n\nSystem: Debian GNU/Linux 12 (bookworm)\nMac "
            "model: ThinkPad X1 Carbon Gen 11\n");

  fs::remove_all(root / "home");
  fs::remove(root / "sys/class/dmi/id/product_name");
  fs::remove(host.bundle / "Contents/Info.plist");
  test::writeFile(root / "etc/os-release", "NAME='Arch Linux'\nVERSION=\"rolling\"\n");
  EXPECT_EQ(mailer().systemReport(),
            "Tidewell - (-)\nDoes '~/Library/Developer' folder exists: NO\nCan read '~/Library/Developer' folder: "
            "NO\nCan write '~/Library/Developer' folder: NO\n\nCustom derived data folder: -\nCustom archives folder: "
            "-\n\nSystem: Arch Linux rolling\nMac model: -\n");
}

}  // namespace
}  // namespace tw
