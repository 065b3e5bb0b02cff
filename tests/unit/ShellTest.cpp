#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "fs/Shell.h"
#include "platform/Host.h"
#include "support/StandInEnvironment.h"
#include "support/StandInTools.h"
#include "support/TempDir.h"

namespace tw {
namespace {

using test::hostWithRoot;
using test::LogCapture;
using test::TempDir;
using test::writeStandInTool;

class ShellRun : public ::testing::Test {
 protected:
  TempDir root;
  ScopedHost host{hostWithRoot(root.path())};
};

TEST_F(ShellRun, StandardErrorAndOutputShareOnePipeInWriteOrder) {
  writeStandInTool(root.path(), "/usr/bin/errors-only", "echo 'only on standard error' >&2");
  auto errorsOnly = Shell::run("/usr/bin/errors-only", {});
  EXPECT_EQ(errorsOnly.status, 0);
  EXPECT_EQ(errorsOnly.output, "only on standard error\n");

  writeStandInTool(root.path(), "/usr/bin/mixed",
                   "printf 'out1 '; printf 'err1 ' >&2; printf 'out2 '; printf 'err2' >&2");
  EXPECT_EQ(Shell::run("/usr/bin/mixed", {}).output, "out1 err1 out2 err2");
}

TEST_F(ShellRun, ReadsTenMegabytesBeforeWaiting) {
  // Far more than a pipe holds: waiting before reading would never end.
  writeStandInTool(root.path(), "/usr/bin/chatty",
                   "head -c 10485760 /dev/zero | tr '\\000' 'x'\necho ' the end' >&2\nexit 7");
  auto result = Shell::run("/usr/bin/chatty", {});
  EXPECT_EQ(result.status, 7);
  ASSERT_EQ(result.output.size(), 10485760u + 9u);
  EXPECT_EQ(result.output.find_first_not_of('x'), 10485760u);
  EXPECT_EQ(result.output.substr(10485760), " the end\n");
}

TEST_F(ShellRun, PassesArgumentsVerbatimAndExitStatusThrough) {
  writeStandInTool(root.path(), "/usr/bin/args", "for a in \"$@\"; do printf '[%s]\\n' \"$a\"; done");
  writeStandInTool(root.path(), "/usr/bin/status", "exit \"$1\"");
  auto result = Shell::run("/usr/bin/args", {"two words", "", "$HOME", "*", "it's \"quoted\"", "back\\slash"});
  EXPECT_EQ(result.output, "[two words]\n[]\n[$HOME]\n[*]\n[it's \"quoted\"]\n[back\\slash]\n");
  EXPECT_EQ(Shell::run("/usr/bin/status", {"0"}).status, 0);
  EXPECT_EQ(Shell::run("/usr/bin/status", {"1"}).status, 1);
  EXPECT_EQ(Shell::run("/usr/bin/status", {"255"}).status, 255);

  // A child ended by a signal reports the signal's number, never success.
  writeStandInTool(root.path(), "/usr/bin/killed", "printf 'before'; kill -TERM $$");
  auto killed = Shell::run("/usr/bin/killed", {});
  EXPECT_EQ(killed.status, SIGTERM);
  EXPECT_EQ(killed.output, "before");
}

TEST_F(ShellRun, ProgramThatCannotStartLogsOneLineAndGivesMinusOne) {
  std::filesystem::create_directories(root / "usr/bin/a-folder");
  test::writeFile(root / "usr/bin/not-executable", "#!/bin/sh\necho never\n");
  test::writeFile(root / "usr/bin/no-format", std::string("\x7f"
                                                          "ELF garbage",
                                                          12));
  ::chmod((root / "usr/bin/no-format").c_str(), 0755);

  struct Case {
    const char* path;
    const char* description;
  };
  for (const auto& [path, description] :
       {Case{"/usr/bin/missing-tool", "No such file or directory"},
        Case{"/usr/bin/not-executable", "Permission denied"}, Case{"/usr/bin/a-folder", "Is a directory"},
        Case{"/usr/bin/no-format", "Exec format error"}}) {
    SCOPED_TRACE(path);
    LogCapture log;
    auto result = Shell::run(path, {"argument"});
    EXPECT_EQ(result.status, -1);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(log.lines(),
              std::vector<std::string>{"\u274C Shell: Cannot run " + std::string(path) + ": " + description});
  }
}

TEST_F(ShellRun, OutputThatIsNotWellFormedUTF8BecomesEmpty) {
  writeStandInTool(root.path(), "/usr/bin/bytes", "printf \"$1\"\nexit 3");
  struct Case {
    const char* printfFormat;
    std::string expected;
  };
  const std::vector<Case> cases = {
      {"ok \\303\\251 \\342\\234\\223 \\360\\237\\230\\200", "ok \u00e9 \u2713 \U0001F600"},
      {"stray \\377 byte", ""},
      {"overlong \\300\\257 slash", ""},
      {"surrogate \\355\\240\\200", ""},
      {"beyond U+10FFFF \\364\\220\\200\\200", ""},
      {"cut at the end \\342\\234", ""},
  };
  for (const auto& [format, expected] : cases) {
    SCOPED_TRACE(format);
    auto result = Shell::run("/usr/bin/bytes", {format});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.output, expected);
  }
}

TEST_F(ShellRun, ChildInheritsNoDescriptorButItsStandardStreams) {
  if (!std::filesystem::exists("/proc/self/fd")) GTEST_SKIP() << "needs /proc to list a child's descriptors";
  // A descriptor opened without close-on-exec, as careless code elsewhere in the process may.
  test::writeFile(root / "leak-marker", "");
  int leaky = ::open((root / "leak-marker").c_str(), O_RDONLY);
  ASSERT_GE(leaky, 0);
  writeStandInTool(root.path(), "/usr/bin/fds", "exec ls -l /proc/self/fd");
  auto result = Shell::run("/usr/bin/fds", {});
  ::close(leaky);
  ASSERT_EQ(result.status, 0) << result.output;

  std::vector<std::string> open;
  std::istringstream lines(result.output);
  for (std::string line; std::getline(lines, line);) {
    auto arrow = line.find(" -> ");
    if (arrow == std::string::npos) continue;
    auto nameStart = line.rfind(' ', arrow - 1) + 1;
    std::string fd = line.substr(nameStart, arrow - nameStart);
    std::string target = line.substr(arrow + 4);
    if (fd == "0") {
      EXPECT_EQ(target, "/dev/null");
    } else if (fd == "1" || fd == "2") {
      EXPECT_EQ(target.rfind("pipe:", 0), 0u) << target;
    } else if (target.rfind("/proc/", 0) != 0) {  // ls's own listing of the folder
      open.push_back(fd + " -> " + target);
    }
  }
  EXPECT_EQ(open, std::vector<std::string>{});
  EXPECT_EQ(result.output.find("leak-marker"), std::string::npos);
}

TEST_F(ShellRun, SeveralRunsAtOnceFromThreadsKeepTheirOwnOutput) {
  writeStandInTool(root.path(), "/usr/bin/echo-many",
                   "i=0\nwhile [ $i -lt 2000 ]; do echo \"$1\"; i=$((i+1)); done\nexit \"$2\"");
  constexpr int kThreads = 6;
  constexpr int kRunsPerThread = 4;
  std::vector<std::vector<Shell::Result>> results(kThreads);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t, &results] {
      for (int run = 0; run < kRunsPerThread; ++run) {
        results[t].push_back(Shell::run("/usr/bin/echo-many", {"thread " + std::to_string(t), std::to_string(t)}));
      }
    });
  }
  for (auto& thread : threads) thread.join();

  for (int t = 0; t < kThreads; ++t) {
    std::string expected;
    for (int i = 0; i < 2000; ++i) expected += "thread " + std::to_string(t) + "\n";
    ASSERT_EQ(results[t].size(), static_cast<size_t>(kRunsPerThread));
    for (const auto& result : results[t]) {
      EXPECT_EQ(result.status, t);
      EXPECT_TRUE(result.output == expected) << "thread " << t << " got " << result.output.size() << " bytes";
    }
  }
}

TEST(ShellCommandError, DescriptionPutsCommandAboveOutput) {
  Shell::CommandError failed("tmutil deletelocalsnapshots 2024-01-01-120000", "Error: no such snapshot\n");
  EXPECT_STREQ(failed.what(),
               "Command failed: tmutil deletelocalsnapshots 2024-01-01-120000\nError: no such snapshot\n");
  EXPECT_EQ(failed.command(), "tmutil deletelocalsnapshots 2024-01-01-120000");
  EXPECT_EQ(failed.output(), "Error: no such snapshot\n");

  Shell::CommandError silent("simctl runtime delete ABC", "");
  EXPECT_STREQ(silent.what(), "Command failed: simctl runtime delete ABC\n");
  const Error& asError = silent;
  EXPECT_STREQ(asError.what(), "Command failed: simctl runtime delete ABC\n");
}

}  // namespace
}  // namespace tw
