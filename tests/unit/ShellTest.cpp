#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <thread>
#include <tuple>

#include "fs/Shell.h"
#include "platform/Host.h"
#include "support/StandInEnvironment.h"
#include "support/StandInTools.h"
#include "support/TempDir.h"

namespace tw {
namespace {

using test::writeStandInTool;

class ShellRun : public ::testing::Test {
 protected:
  test::TempDir root;
  ScopedHost host{test::hostWithRoot(root.path())};
};

TEST_F(ShellRun, StandardErrorAndOutputShareOnePipeInWriteOrder) {
  writeStandInTool(root.path(), "/usr/bin/mixed", "printf 'out1 '; printf 'err1 ' >&2; printf 'out2'");
  EXPECT_EQ(Shell::run("/usr/bin/mixed", {}).output, "out1 err1 out2");
}

TEST_F(ShellRun, ReadsTenMegabytesBeforeWaiting) {
  // Far more than a pipe holds: waiting before reading would never end.
  writeStandInTool(root.path(), "/usr/bin/chatty",
                   "head -c 10485760 /dev/zero | tr '\\000' 'x'\necho ' end' >&2\nexit 7");
  auto result = Shell::run("/usr/bin/chatty", {});
  EXPECT_EQ(result.status, 7);
  ASSERT_EQ(result.output.size(), 10485760u + 5u);
  EXPECT_EQ(result.output.find_first_not_of('x'), 10485760u);
}

TEST_F(ShellRun, PassesArgumentsVerbatimAndSignalsAsFailure) {
  writeStandInTool(root.path(), "/usr/bin/args", "for a in \"$@\"; do printf '[%s]\\n' \"$a\"; done\nexit 255");
  auto result = Shell::run("/usr/bin/args", {"two words", "", "$HOME", "*", "it's \"quoted\"", "back\\slash"});
  EXPECT_EQ(result.output, "[two words]\n[]\n[$HOME]\n[*]\n[it's \"quoted\"]\n[back\\slash]\n");
  EXPECT_EQ(result.status, 255);

  writeStandInTool(root.path(), "/usr/bin/killed", "printf 'before'; kill -TERM $$");
  auto killed = Shell::run("/usr/bin/killed", {});
  EXPECT_EQ(killed.status, SIGTERM);
  EXPECT_EQ(killed.output, "before");
}

TEST_F(ShellRun, ProgramThatCannotStartLogsOneLineAndGivesMinusOne) {
  test::writeFile(root / "usr/bin/not-executable", "#!/bin/sh\necho never\n");
  for (const auto& [path, description] : std::vector<std::pair<std::string, std::string>>{
           {"/usr/bin/missing-tool", "No such file or directory"}, {"/usr/bin/not-executable", "Permission denied"}}) {
    test::LogCapture log;
    auto result = Shell::run(path, {"argument"});
    EXPECT_EQ(result.status, -1);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(log.lines(), std::vector<std::string>{"\u274C Shell: Cannot run " + path + ": " + description});
  }
}

TEST_F(ShellRun, OutputThatIsNotWellFormedUTF8BecomesEmpty) {
  writeStandInTool(root.path(), "/usr/bin/bytes", "printf \"$1\"");
  EXPECT_EQ(Shell::run("/usr/bin/bytes", {"ok \\303\\251 \\360\\237\\230\\200"}).output, "ok \u00e9 \U0001F600");
  for (const char* bad : {"stray \\377", "overlong \\300\\257", "surrogate \\355\\240\\200", "cut \\342\\234"}) {
    EXPECT_EQ(Shell::run("/usr/bin/bytes", {bad}).output, "") << bad;
  }
}

TEST_F(ShellRun, ChildInheritsNoOtherDescriptor) {
  if (!std::filesystem::exists("/proc/self/fd")) GTEST_SKIP() << "needs /proc to list a child's descriptors";
  test::writeFile(root / "leak-marker", "");
  int leaky = ::open((root / "leak-marker").c_str(), O_RDONLY);  // without close-on-exec
  ASSERT_GE(leaky, 0);
  writeStandInTool(root.path(), "/usr/bin/fds", "exec ls -l /proc/self/fd");
  auto result = Shell::run("/usr/bin/fds", {});
  ::close(leaky);
  ASSERT_EQ(result.status, 0) << result.output;
  EXPECT_NE(result.output.find(" 0 -> /dev/null"), std::string::npos) << result.output;
  EXPECT_EQ(result.output.find("leak-marker"), std::string::npos) << result.output;
}

// Whether the process is gone (or a zombie waiting for whoever inherited it), within a while.
bool processEnds(pid_t pid) {
  for (int tries = 0; tries < 1000; ++tries) {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
    auto state = text.rfind(") ");
    if (text.empty() || (state != std::string::npos && text[state + 2] == 'Z')) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

TEST_F(ShellRun, AToolThatNeverFinishesOrFloodsIsEndedWithEverythingItStartedAndTheRunGoesOn) {
  if (!std::filesystem::exists("/proc/self/stat")) GTEST_SKIP() << "needs /proc to see the processes end";
  const auto pids = root / "pids";
  using namespace std::chrono_literals;
  // The limit leaves a busy machine time to start the tool and let it print and note its child;
  // where the limit is not what ends the tool, it is long enough never to be reached.
  const std::tuple<const char*, std::string, std::chrono::milliseconds, int, std::string, std::string> cases[] = {
      // Still running at the limit: ended, group and all, even when it ignores SIGTERM.
      {"/usr/bin/stuck", "echo started; sleep 1000 & echo $! >> '" + pids.string() + "'; wait", 2500ms, -1,
       "started\n",
       "\u274C Shell: /usr/bin/stuck did not finish within 2500 ms; it was ended with every process it started"},
      {"/usr/bin/stubborn",
       "trap '' TERM; echo started; sleep 1000 & echo $! >> '" + pids.string() + "'; while :; do wait; done", 2s, -1,
       "started\n",
       "\u274C Shell: /usr/bin/stubborn did not finish within 2 s; it was ended with every process it started"},
      // Printing without end: ended as soon as the output passes the limit.
      {"/usr/bin/flood", "yes flood & echo $! >> '" + pids.string() + "'; wait", 60s, -1, "",
       "\u274C Shell: /usr/bin/flood printed more than 1048576 bytes; it was ended with every process it started"},
      // Finished, but left a child holding the output open: its own status and output count.
      {"/usr/bin/leaves-child", "sleep 1000 & echo $! >> '" + pids.string() + "'; echo done; exit 3", 60s, 3,
       "done\n",
       "\u26A0\uFE0F Shell: /usr/bin/leaves-child exited but left a process holding its output open; that process "
       "was ended"},
  };
  for (const auto& [tool, body, limit, status, output, logged] : cases) {
    SCOPED_TRACE(tool);
    Host limited = test::hostWithRoot(root.path());
    limited.commandTimeLimit = limit;
    limited.commandOutputLimit = 1 << 20;
    ScopedHost scoped(limited);
    std::filesystem::remove(pids);
    writeStandInTool(root.path(), tool, body);
    test::LogCapture log;
    auto result = Shell::run(tool, {});
    EXPECT_EQ(result.status, status);
    EXPECT_EQ(result.output, output);
    EXPECT_EQ(log.lines(), std::vector<std::string>{logged});
    std::ifstream written(pids);
    pid_t child = 0;
    ASSERT_TRUE(written >> child);
    EXPECT_TRUE(processEnds(child)) << "the tool's child " << child << " is still running";
  }
}

TEST_F(ShellRun, SeveralRunsAtOnceFromThreadsKeepTheirOwnOutput) {
  writeStandInTool(root.path(), "/usr/bin/echo-many",
                   "i=0\nwhile [ $i -lt 2000 ]; do echo \"$1\"; i=$((i+1)); done\nexit \"$2\"");
  std::vector<std::vector<Shell::Result>> results(6);
  std::vector<std::thread> threads;
  for (int t = 0; t < 6; ++t) {
    threads.emplace_back([t, &results] {
      for (int run = 0; run < 4; ++run) {
        results[t].push_back(Shell::run("/usr/bin/echo-many", {"thread " + std::to_string(t), std::to_string(t)}));
      }
    });
  }
  for (auto& thread : threads) thread.join();
  for (int t = 0; t < 6; ++t) {
    std::string expected;
    for (int i = 0; i < 2000; ++i) expected += "thread " + std::to_string(t) + "\n";
    for (const auto& result : results[t]) {
      EXPECT_EQ(result.status, t);
      EXPECT_TRUE(result.output == expected) << "thread " << t << " got " << result.output.size() << " bytes";
    }
  }
}

}  // namespace
}  // namespace tw
