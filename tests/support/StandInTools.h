// Stand-ins for system tools: /bin/sh scripts written at a system path below a test root.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace tw::test {

// `text` in single quotes for /bin/sh, single quotes inside written as '\''.
std::string shellQuoted(std::string_view text);

// Writes an executable script with `body` at root + absolutePath; returns its path.
std::filesystem::path writeStandInTool(const std::filesystem::path& root, std::string_view absolutePath,
                                       std::string_view body);

// "/usr/bin/osascript" running a well-formed `do shell script "..."` after writing the command to the file.
std::filesystem::path writeStandInOsascript(const std::filesystem::path& root,
                                            const std::filesystem::path& receivedCommandFile);

// "/usr/bin/pkexec" writing its arguments (NUL-terminated) to `argumentsFile`, then running them.
std::filesystem::path writeStandInPkexec(const std::filesystem::path& root, const std::filesystem::path& argumentsFile);

// What a stand-in "/usr/bin/xcrun" prints and returns for "simctl runtime list -j" and "... delete <id>".
struct StandInSimctl {
  std::string listOutput = "{}";
  int listStatus = 0;
  std::string deleteOutput;
  int deleteStatus = 0;
};

// "/usr/bin/xcrun" logging each call's arguments as a line of `callLog`, answering as `behaviour` says.
std::filesystem::path writeStandInXcrun(const std::filesystem::path& root, const std::filesystem::path& callLog,
                                        const StandInSimctl& behaviour);

// The lines of a call log (none when it does not exist).
std::vector<std::string> readCallLog(const std::filesystem::path& callLog);

}  // namespace tw::test
