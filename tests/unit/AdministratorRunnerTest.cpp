#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fs/Shell.h"
#include "platform/AdministratorRunner.h"
#include "platform/Host.h"
#include "support/StandInEnvironment.h"
#include "support/StandInTools.h"
#include "support/TempDir.h"

namespace tw {
namespace {

using test::hostWithRoot;
using test::LogCapture;
using test::readFile;
using test::TempDir;

// Runs `body` expecting a Shell::CommandError and returns it.
template <typename Body>
Shell::CommandError expectCommandError(Body body) {
  try {
    body();
  } catch (const Shell::CommandError& error) {
    return error;
  }
  ADD_FAILURE() << "no Shell::CommandError was thrown";
  return Shell::CommandError("", "");
}

TEST(AppleScriptEscaping, DoublesBackslashesBeforeEscapingQuotes) {
  EXPECT_EQ(escapeForAppleScript("plain /bin/rm -rf '/Library/Updates'"), "plain /bin/rm -rf '/Library/Updates'");
  EXPECT_EQ(escapeForAppleScript(R"(a\b)"), R"(a\\b)");
  EXPECT_EQ(escapeForAppleScript(R"(say "hi")"), R"(say \"hi\")");
  // A quote after a backslash: the backslash doubles, the quote gets exactly one more.
  EXPECT_EQ(escapeForAppleScript(R"(\")"), R"(\\\")");
  EXPECT_EQ(escapeForAppleScript(R"(trailing\)"), R"(trailing\\)");
  EXPECT_EQ(escapeForAppleScript(""), "");
  EXPECT_EQ(appleScriptAdministratorScript(R"(echo "x" \)"),
            R"(do shell script "echo \"x\" \\" with administrator privileges)");
}

TEST(AdministratorInvocation, EachRunnerGetsTheCommandItsOwnWay) {
  const std::string command = R"(/bin/rm -rf '/it'\''s "here"')";
  auto appleScript = administratorInvocation(AdministratorRunner::appleScript, command);
  EXPECT_EQ(appleScript.executablePath, "/usr/bin/osascript");
  EXPECT_EQ(appleScript.arguments,
            (std::vector<std::string>{
                "-e", "do shell script \"" + escapeForAppleScript(command) + "\" with administrator privileges"}));
  auto polkit = administratorInvocation(AdministratorRunner::polkit, command);
  EXPECT_EQ(polkit.executablePath, "/usr/bin/pkexec");
  EXPECT_EQ(polkit.arguments, (std::vector<std::string>{"/bin/sh", "-c", command}));
}

class RunAsAdministrator : public ::testing::Test {
 protected:
  TempDir root;
  ScopedHost host{hostWithRoot(root.path())};
  // A command with a backslash and double quotes everywhere, ending in a backslash: the
  // script literal breaks if either escape is missing or done in the wrong order.
  std::string commandWritingTo(const std::filesystem::path& file) {
    return "printf '%s|' \"say \\\"hi\\\"\" 'back\\slash' > " + test::shellQuoted(file.string()) +
           "; printf '%s\\n' quoted \\\\";
  }
};

TEST_F(RunAsAdministrator, AppleScriptRunnerHandsTheShellTheCommandUnchanged) {
  ScopedAdministratorRunner runner(AdministratorRunner::appleScript);
  auto received = root / "received-command";
  auto written = root / "written";
  test::writeStandInOsascript(root.path(), received);
  const std::string command = commandWritingTo(written);

  EXPECT_NO_THROW(Shell::runAsAdministrator(command));
  EXPECT_EQ(readFile(received), command);
  EXPECT_EQ(readFile(written), "say \"hi\"|back\\slash|");
}

TEST_F(RunAsAdministrator, PolkitRunnerHandsTheShellTheCommandUnchanged) {
  ScopedAdministratorRunner runner(AdministratorRunner::polkit);
  auto arguments = root / "pkexec-arguments";
  auto written = root / "written";
  test::writeStandInPkexec(root.path(), arguments);
  const std::string command = commandWritingTo(written);

  EXPECT_NO_THROW(Shell::runAsAdministrator(command));
  EXPECT_EQ(readFile(arguments), std::string("/bin/sh\0-c\0", 11) + command + std::string(1, '\0'));
  EXPECT_EQ(readFile(written), "say \"hi\"|back\\slash|");
}

TEST_F(RunAsAdministrator, FailingCommandRaisesErrorWithUnescapedCommandAndOutput) {
  test::writeStandInOsascript(root.path(), root / "received-command");
  test::writeStandInPkexec(root.path(), root / "pkexec-arguments");
  const std::string command = R"(echo "no \"luck\"" >&2; exit 3)";
  for (auto flavour : {AdministratorRunner::appleScript, AdministratorRunner::polkit}) {
    SCOPED_TRACE(static_cast<int>(flavour));
    ScopedAdministratorRunner runner(flavour);
    auto error = expectCommandError([&] { Shell::runAsAdministrator(command); });
    EXPECT_EQ(error.command(), command);
    EXPECT_EQ(error.output(), "no \"luck\"\n");
    EXPECT_STREQ(error.what(), ("Command failed: " + command + "\nno \"luck\"\n").c_str());
  }
}

TEST_F(RunAsAdministrator, DismissedOrRefusedPkexecPromptBecomesCommandError) {
  ScopedAdministratorRunner runner(AdministratorRunner::polkit);
  const std::string command = "/bin/rm -rf '/Library/Updates/041-12345'";

  test::writeFailingPkexec(root.path(), "Error executing command as another user: Request dismissed", 126);
  auto dismissed = expectCommandError([&] { Shell::runAsAdministrator(command); });
  EXPECT_EQ(dismissed.command(), command);
  EXPECT_EQ(dismissed.output(), "Error executing command as another user: Request dismissed\n");

  test::writeFailingPkexec(root.path(), "Error executing command as another user: Not authorized", 127);
  auto refused = expectCommandError([&] { Shell::runAsAdministrator(command); });
  EXPECT_EQ(refused.output(), "Error executing command as another user: Not authorized\n");

  // A silent refusal still says why.
  test::writeStandInTool(root.path(), "/usr/bin/pkexec", "exit 126");
  EXPECT_EQ(expectCommandError([&] { Shell::runAsAdministrator(command); }).output(),
            "The administrator authentication was dismissed.");
  test::writeStandInTool(root.path(), "/usr/bin/pkexec", "exit 127");
  EXPECT_EQ(expectCommandError([&] { Shell::runAsAdministrator(command); }).output(),
            "Not authorized to run the command as administrator.");
}

TEST_F(RunAsAdministrator, MissingRunnerLogsAndRaisesWithEmptyOutput) {
  ScopedAdministratorRunner runner(AdministratorRunner::appleScript);
  LogCapture log;
  auto error = expectCommandError([] { Shell::runAsAdministrator("true"); });
  EXPECT_STREQ(error.what(), "Command failed: true\n");
  EXPECT_EQ(log.lines(),
            std::vector<std::string>{"\u274C Shell: Cannot run /usr/bin/osascript: No such file or directory"});
}

TEST(AdministratorRunnerSelection, ScopedSelectionRestoresThePlatformRunner) {
  const auto platform = platformAdministratorRunner();
  EXPECT_EQ(currentAdministratorRunner(), platform);
  {
    ScopedAdministratorRunner outer(AdministratorRunner::appleScript);
    {
      ScopedAdministratorRunner inner(AdministratorRunner::polkit);
      EXPECT_EQ(currentAdministratorRunner(), AdministratorRunner::polkit);
    }
    EXPECT_EQ(currentAdministratorRunner(), AdministratorRunner::appleScript);
  }
  EXPECT_EQ(currentAdministratorRunner(), platform);
#if defined(__APPLE__)
  EXPECT_EQ(platform, AdministratorRunner::appleScript);
#else
  EXPECT_EQ(platform, AdministratorRunner::polkit);
#endif
}

}  // namespace
}  // namespace tw
