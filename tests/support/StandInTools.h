// Stand-ins for the system's own tools (xcrun, osascript, pkexec, ...): small shell scripts
// written at a system path below a test root, so code that runs "/usr/bin/xcrun" through the
// host's root runs the stand-in instead.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace tw::test {

// `text` in single quotes for /bin/sh, single quotes inside written as '\''.
std::string shellQuoted(std::string_view text);

// Writes an executable /bin/sh script at root + absolutePath with `body` after the "#!/bin/sh"
// line. Returns the file's path.
std::filesystem::path writeStandInTool(const std::filesystem::path& root, std::string_view absolutePath,
                                       std::string_view body);

// "/usr/bin/osascript" that accepts only `-e 'do shell script "<literal>" with administrator
// privileges'` with a well-formed string literal, writes the unescaped command to
// `receivedCommandFile` and runs it with /bin/sh, exiting with its status.
std::filesystem::path writeStandInOsascript(const std::filesystem::path& root,
                                            const std::filesystem::path& receivedCommandFile);

// "/usr/bin/pkexec" that writes its arguments to `argumentsFile` (each terminated by a NUL
// byte) and then runs them as the command ("$@").
std::filesystem::path writeStandInPkexec(const std::filesystem::path& root, const std::filesystem::path& argumentsFile);

// "/usr/bin/pkexec" that prints `message` and exits with `status` without running anything.
std::filesystem::path writeFailingPkexec(const std::filesystem::path& root, std::string_view message, int status);

// What a stand-in "/usr/bin/xcrun" does for "simctl runtime ...".
struct StandInSimctl {
  std::string listOutput = "{}";  // printed for "simctl runtime list -j"
  int listStatus = 0;
  std::string deleteOutput;  // printed for "simctl runtime delete <id>"
  int deleteStatus = 0;
};

// "/usr/bin/xcrun" that appends one line per call to `callLog` (its arguments joined by single
// spaces) and answers as `behaviour` says; any other call prints an error and exits 64.
std::filesystem::path writeStandInXcrun(const std::filesystem::path& root, const std::filesystem::path& callLog,
                                        const StandInSimctl& behaviour);

// The lines of a call log written by a stand-in (empty when the file does not exist).
std::vector<std::string> readCallLog(const std::filesystem::path& callLog);

}  // namespace tw::test
