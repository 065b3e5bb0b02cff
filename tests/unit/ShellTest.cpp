// Running tools: output, arguments, time and output limits, and runs with administrator rights.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <thread>
#include <tuple>

#include "fs/Shell.h"
#include "platform/AdministratorRunner.h"
#include "support/StandInEnvironment.h"
#include "support/StandInTools.h"
#include "support/TempDir.h"
#include "support/Unprivileged.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using namespace test;

struct ShellRun : ::testing::Test {
  TempDir root;
  ScopedHost host{hostWithRoot(root.path())};
};

TEST_F(ShellRun, PassesArgumentsVerbatimAndReadsAllOutputAndTheStatus) {
  // The tool's body and arguments, its status and output.
  const std::tuple<const char*, std::vector<std::string>, int, std::string> cases[] = {
      // Standard error and output share one pipe, in write order.
      {"printf 'out1 '; printf 'err1 ' >&2; printf 'out2'", {}, 0, "out1 err1 out2"},
      // Far more than a pipe holds: waiting before reading would never end.
      {"yes x | tr -d '\\n' | head -c 10485760\necho ' end' >&2\nexit 7", {}, 7, std::string(10485760, 'x') + " end\n"},
      {"for a in \"$@\"; do printf '[%s]\\n' \"$a\"; done\nexit 255",
       {"two words", "", "$HOME", "*", "it's \"quoted\"", "back\\slash"},
       255,
       "[two words]\n[]\n[$HOME]\n[*]\n[it's \"quoted\"]\n[back\\slash]\n"},
      {"printf 'before'; kill -TERM $$", {}, SIGTERM, "before"},
      // Output that is not well-formed UTF-8 (the decoder's own cases are its business) becomes empty.
      {"printf \"$1\"", {"ok \\303\\251 \\360\\237\\230\\200"}, 0, "ok \u00e9 \U0001F600"},
      {"printf \"$1\"", {"stray \\377"}, 0, ""}};
  for (const auto& [body, arguments, status, output] : cases) {
    writeStandInTool(root.path(), "/usr/bin/tool", body);
    const auto result = Shell::run("/usr/bin/tool", arguments);
    EXPECT_EQ(result.status, status) << body;
    EXPECT_TRUE(result.output == output) << body << " printed " << result.output.substr(0, 100);
  }
}

TEST_F(ShellRun, ChildInheritsNoOtherDescriptorAndAProgramThatCannotStartIsLogged) {
  // A program that cannot start gives -1 and one line in the log.
  writeFile(root / "usr/bin/not-executable", "#!/bin/sh\necho never\n");
  for (const auto& [path, description] : std::vector<std::pair<std::string, std::string>>{
           {"/usr/bin/missing-tool", "No such file or directory"}, {"/usr/bin/not-executable", "Permission denied"}}) {
    LogCapture log;
    const auto failed = Shell::run(path, {"argument"});
    EXPECT_EQ(std::tie(failed.status, failed.output), std::tuple(-1, ""));
    EXPECT_EQ(log.lines(), std::vector<std::string>{"\u274C Shell: Cannot run " + path + ": " + description});
  }
  if (!fs::exists("/proc/self/fd")) GTEST_SKIP() << "needs /proc to list a child's descriptors";
  const int leaky = ::open((root / "leak-marker").c_str(), O_RDONLY | O_CREAT, 0600);  // without close-on-exec
  ASSERT_GE(leaky, 0);
  writeStandInTool(root.path(), "/usr/bin/fds", "exec ls -l /proc/self/fd");
  const auto result = Shell::run("/usr/bin/fds", {});
  ::close(leaky);
  ASSERT_EQ(result.status, 0) << result.output;
  EXPECT_NE(result.output.find(" 0 -> /dev/null"), std::string::npos) << result.output;
  EXPECT_EQ(result.output.find("leak-marker"), std::string::npos) << result.output;
}

// Whether the process is gone (or a zombie waiting for whoever inherited it), within a while.
bool processEnds(pid_t pid) {
  for (int tries = 0; tries < 1000; ++tries, std::this_thread::sleep_for(std::chrono::milliseconds(10))) {
    const std::string stat = readFile("/proc/" + std::to_string(pid) + "/stat");
    if (stat.empty() || stat[stat.rfind(") ") + 2] == 'Z') return true;
  }
  return false;
}

TEST_F(ShellRun, AToolThatNeverFinishesOrFloodsIsEndedWithEverythingItStartedAndTheRunGoesOn) {
  if (!fs::exists("/proc/self/stat")) GTEST_SKIP() << "needs /proc to see the processes end";
  const std::string notePid = "& echo $! >> " + shellQuoted((root / "pids").string()) + ";";
  using namespace std::chrono_literals;
  // Stuck (even past SIGTERM) or flooding: ended with its group; a child left holding the output: its status counts.
  const std::string ended = " it was ended with every process it started";
  const std::tuple<const char*, std::string, std::chrono::milliseconds, int, std::string, std::string> cases[] = {
      {"/usr/bin/stuck", "echo started; sleep 1000 " + notePid + " wait", 2500ms, -1, "started\n",
       "\u274C Shell: /usr/bin/stuck did not finish within 2500 ms;" + ended},
      {"/usr/bin/stubborn", "trap '' TERM; echo started; sleep 1000 " + notePid + " while :; do wait; done", 2s, -1,
       "started\n", "\u274C Shell: /usr/bin/stubborn did not finish within 2 s;" + ended},
      {"/usr/bin/flood", "yes flood " + notePid + " wait", 60s, -1, "",
       "\u274C Shell: /usr/bin/flood printed more than 1048576 bytes;" + ended},
      {"/usr/bin/leaves-child", "sleep 1000 " + notePid + " echo done; exit 3", 60s, 3, "done\n",
       "\u26A0\uFE0F Shell: /usr/bin/leaves-child exited but left a process holding its output open; that process "
       "was ended"}};
  for (const auto& [tool, body, limit, status, output, logged] : cases) {
    SCOPED_TRACE(tool);
    Host limited = hostWithRoot(root.path());
    limited.commandTimeLimit = limit, limited.commandOutputLimit = 1 << 20;
    ScopedHost scoped(limited);
    fs::remove(root / "pids");
    writeStandInTool(root.path(), tool, body);
    LogCapture log;
    const auto result = Shell::run(tool, {});
    EXPECT_EQ(std::tie(result.status, result.output), std::tie(status, output));
    EXPECT_EQ(log.lines(), std::vector<std::string>{logged});
    const pid_t child = std::stoi(readFile(root / "pids"));  // throws, failing the test, when nothing was noted
    EXPECT_TRUE(processEnds(child)) << "the tool's child " << child << " is still running";
  }
}

TEST_F(ShellRun, SeveralRunsAtOnceFromThreadsKeepTheirOwnOutput) {
  writeStandInTool(root.path(), "/usr/bin/echo-many",
                   "i=0\nwhile [ $i -lt 2000 ]; do echo \"$1\"; i=$((i+1)); done\nexit \"$2\"");
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 6; ++t)
    threads.emplace_back([t, &wrong] {
      std::string expected;
      for (int i = 0; i < 2000; ++i) expected += "thread " + std::to_string(t) + "\n";
      for (int run = 0; run < 4; ++run) {
        const auto result = Shell::run("/usr/bin/echo-many", {"thread " + std::to_string(t), std::to_string(t)});
        wrong += result.status != t || result.output != expected;
      }
    });
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(wrong.load(), 0) << "runs that got another's output or status";
}

TEST_F(ShellRun, AdministratorRunnersHandOverCommandsUnchangedAndFailuresBecomeCommandErrors) {
  writeStandInOsascript(root.path(), root / "received");
  writeStandInPkexec(root.path(), root / "received");
  // Backslashes and quotes ending in a backslash: osascript's literal breaks if an escape is missing or misordered.
  const std::string command = "printf '%s|' \"say \\\"hi\\\"\" 'back\\slash' > " +
                              shellQuoted((root / "written").string()) + "; printf '%s\\n' quoted \\\\";
  const std::string failing = R"(echo "no \"luck\"" >&2; exit 3)";
  const fs::path program = writeStandInTool(root.path(), "/usr/lib/tidewell/remover",
                                            "printf '%s|' \"$@\" > " + shellQuoted((root / "got").string()));
  const std::vector<std::string> arguments{"/Applications/Install macOS 'Big' \"Sur\" $(x) \\.app", "-rf"};
  const std::string nul(1, '\0');
  for (auto flavour : {AdministratorRunner::appleScript, AdministratorRunner::polkit}) {
    ScopedAdministratorRunner runner(flavour);
    const bool polkit = flavour == AdministratorRunner::polkit;
    for (const char* file : {"written", "got"}) fs::remove(root / file);
    EXPECT_NO_THROW(Shell::runAsAdministrator(command));
    EXPECT_EQ(readFile(root / "received"), polkit ? "/bin/sh" + nul + "-c" + nul + command + nul : command);
    EXPECT_EQ(readFile(root / "written"), "say \"hi\"|back\\slash|");
    EXPECT_NO_THROW(Shell::runAsAdministrator(program.string(), arguments));
    EXPECT_EQ(readFile(root / "got"), arguments[0] + "|" + arguments[1] + "|");
    EXPECT_EQ(failureOf([&] { Shell::runAsAdministrator(failing); }), "Command failed: " + failing + "\nno \"luck\"\n");
  }
  ScopedAdministratorRunner polkit(AdministratorRunner::polkit);
  for (const auto& [pkexec, output] : {std::pair{"exit 126", "The administrator authentication was dismissed."},
                                       {"exit 127", "Not authorized to run the command as administrator."}}) {
    writeStandInTool(root.path(), "/usr/bin/pkexec", pkexec);
    EXPECT_EQ(failureOf([] { Shell::runAsAdministrator("rm x"); }), std::string("Command failed: rm x\n") + output);
  }
}

}  // namespace
}  // namespace tw
