#include <gtest/gtest.h>

#include "fs/Shell.h"
#include "platform/AdministratorRunner.h"
#include "platform/Host.h"
#include "support/StandInEnvironment.h"
#include "support/StandInTools.h"
#include "support/TempDir.h"

namespace tw {
namespace {

using test::readFile;

// The output of the Shell::CommandError that `body` throws ("no error" when it throws none).
template <typename Body>
std::string commandErrorOutput(Body body) {
  try {
    body();
  } catch (const Shell::CommandError& error) {
    return error.output();
  }
  return "no error";
}

TEST(AppleScriptEscaping, DoublesBackslashesBeforeEscapingQuotes) {
  EXPECT_EQ(escapeForAppleScript(R"(say "hi" a\b)"), R"(say \"hi\" a\\b)");
  EXPECT_EQ(escapeForAppleScript(R"(\")"), R"(\\\")");  // the backslash doubles, the quote gets one more
  EXPECT_EQ(appleScriptAdministratorScript(R"(echo "x" \)"),
            R"(do shell script "echo \"x\" \\" with administrator privileges)");
}

class RunAsAdministrator : public ::testing::Test {
 protected:
  void SetUp() override {
    test::writeStandInOsascript(root.path(), root / "received-command");
    test::writeStandInPkexec(root.path(), root / "pkexec-arguments");
  }
  test::TempDir root;
  ScopedHost host{test::hostWithRoot(root.path())};
};

TEST_F(RunAsAdministrator, EachRunnerHandsTheShellTheCommandUnchanged) {
  // Backslashes and double quotes everywhere, ending in a backslash: the script literal breaks
  // if either escape is missing or done in the wrong order.
  const std::string command = "printf '%s|' \"say \\\"hi\\\"\" 'back\\slash' > " +
                              test::shellQuoted((root / "written").string()) + "; printf '%s\\n' quoted \\\\";
  {
    ScopedAdministratorRunner runner(AdministratorRunner::appleScript);
    EXPECT_NO_THROW(Shell::runAsAdministrator(command));
    EXPECT_EQ(readFile(root / "received-command"), command);
    EXPECT_EQ(readFile(root / "written"), "say \"hi\"|back\\slash|");
  }
  std::filesystem::remove(root / "written");
  ScopedAdministratorRunner runner(AdministratorRunner::polkit);
  EXPECT_NO_THROW(Shell::runAsAdministrator(command));
  EXPECT_EQ(readFile(root / "pkexec-arguments"), std::string("/bin/sh\0-c\0", 11) + command + std::string(1, '\0'));
  EXPECT_EQ(readFile(root / "written"), "say \"hi\"|back\\slash|");
}

TEST_F(RunAsAdministrator, FailingCommandRaisesErrorWithUnescapedCommandAndOutput) {
  const std::string command = R"(echo "no \"luck\"" >&2; exit 3)";
  for (auto flavour : {AdministratorRunner::appleScript, AdministratorRunner::polkit}) {
    ScopedAdministratorRunner runner(flavour);
    try {
      Shell::runAsAdministrator(command);
      ADD_FAILURE() << "no error";
    } catch (const Shell::CommandError& error) {
      EXPECT_EQ(error.command(), command);
      EXPECT_STREQ(error.what(), ("Command failed: " + command + "\nno \"luck\"\n").c_str());
    }
  }
}

// The privileged remover's own arguments reach it unchanged through either runner.
TEST_F(RunAsAdministrator, EachRunnerHandsTheProgramItsArgumentsUnchanged) {
  const std::filesystem::path program = test::writeStandInTool(
      root.path(), "/usr/lib/tidewell/remover", "printf '%s|' \"$@\" > " + test::shellQuoted((root / "got").string()));
  const std::vector<std::string> arguments{"/Applications/Install macOS 'Big' \"Sur\" $(x) \\.app", "-rf"};
  for (auto flavour : {AdministratorRunner::appleScript, AdministratorRunner::polkit}) {
    ScopedAdministratorRunner runner(flavour);
    std::filesystem::remove(root / "got");
    EXPECT_NO_THROW(Shell::runAsAdministrator(program.string(), arguments));
    EXPECT_EQ(readFile(root / "got"), arguments[0] + "|" + arguments[1] + "|");
  }
  EXPECT_EQ(readFile(root / "pkexec-arguments"), program.string() + std::string(1, '\0') + arguments[0] +
                                                     std::string(1, '\0') + arguments[1] + std::string(1, '\0'));
}

TEST_F(RunAsAdministrator, DismissedOrRefusedPkexecPromptBecomesCommandError) {
  ScopedAdministratorRunner runner(AdministratorRunner::polkit);
  auto run = [] { Shell::runAsAdministrator("/bin/rm -rf '/Library/Updates/041-12345'"); };
  test::writeFailingPkexec(root.path(), "Error executing command as another user: Request dismissed", 126);
  EXPECT_EQ(commandErrorOutput(run), "Error executing command as another user: Request dismissed\n");
  // A silent refusal still says why.
  test::writeStandInTool(root.path(), "/usr/bin/pkexec", "exit 126");
  EXPECT_EQ(commandErrorOutput(run), "The administrator authentication was dismissed.");
  test::writeStandInTool(root.path(), "/usr/bin/pkexec", "exit 127");
  EXPECT_EQ(commandErrorOutput(run), "Not authorized to run the command as administrator.");
}

}  // namespace
}  // namespace tw
