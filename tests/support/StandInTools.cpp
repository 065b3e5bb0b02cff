#include "support/StandInTools.h"

#include <sys/stat.h>

#include <fstream>
#include <stdexcept>

#include "support/TempDir.h"

namespace tw::test {

std::string shellQuoted(std::string_view text) {
  std::string quoted = "'";
  for (char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

std::filesystem::path writeStandInTool(const std::filesystem::path& root, std::string_view absolutePath,
                                       std::string_view body) {
  std::filesystem::path path = root / std::filesystem::path(absolutePath).relative_path();
  // Written beside and renamed: no "Text file busy" when an earlier copy still runs.
  std::filesystem::path temporary = path.string() + ".writing";
  writeFile(temporary, "#!/bin/sh\n" + std::string(body) + "\n");
  if (::chmod(temporary.c_str(), 0755) != 0) throw std::runtime_error("cannot chmod " + temporary.string());
  std::filesystem::rename(temporary, path);
  return path;
}

std::filesystem::path writeStandInOsascript(const std::filesystem::path& root,
                                            const std::filesystem::path& receivedCommandFile) {
  std::string body = R"SH(if [ "$#" -ne 2 ] || [ "$1" != "-e" ]; then
  echo "osascript: expected -e and one script" >&2
  exit 2
fi
prefix='do shell script "'
suffix='" with administrator privileges'
script=$2
case "$script" in
  "$prefix"*"$suffix") ;;
  *) echo "osascript: unexpected script: $script" >&2; exit 2 ;;
esac
literal=${script#"$prefix"}
literal=${literal%"$suffix"}
# Without its escape pairs, a well-formed literal has no quote or backslash left.
rest=$(printf '%s' "$literal" | sed 's/\\.//g')
case "$rest" in
  *'"'* | *'\'*) echo "osascript: syntax error in string literal: $literal" >&2; exit 2 ;;
esac
command=$(printf '%s' "$literal" | sed 's/\\\(.\)/\1/g'; printf x)
command=${command%x}
printf '%s' "$command" > )SH" +
                     shellQuoted(receivedCommandFile.string()) +
                     R"SH(
exec /bin/sh -c "$command")SH";
  return writeStandInTool(root, "/usr/bin/osascript", body);
}

std::filesystem::path writeStandInPkexec(const std::filesystem::path& root,
                                         const std::filesystem::path& argumentsFile) {
  std::string body = "for argument in \"$@\"; do printf '%s\\0' \"$argument\"; done > " +
                     shellQuoted(argumentsFile.string()) + "\nexec \"$@\"";
  return writeStandInTool(root, "/usr/bin/pkexec", body);
}

std::filesystem::path writeFailingPkexec(const std::filesystem::path& root, std::string_view message, int status) {
  std::string body = "printf '%s\\n' " + shellQuoted(message) + " >&2\nexit " + std::to_string(status);
  return writeStandInTool(root, "/usr/bin/pkexec", body);
}

std::filesystem::path writeStandInXcrun(const std::filesystem::path& root, const std::filesystem::path& callLog,
                                        const StandInSimctl& behaviour) {
  std::string body = "printf '%s\\n' \"$*\" >> " + shellQuoted(callLog.string()) + R"SH(
if [ "$#" -eq 4 ] && [ "$1" = simctl ] && [ "$2" = runtime ] && [ "$3" = list ] && [ "$4" = -j ]; then
  printf '%s' )SH" + shellQuoted(behaviour.listOutput) +
                     "\n  exit " + std::to_string(behaviour.listStatus) + R"SH(
fi
if [ "$#" -eq 4 ] && [ "$1" = simctl ] && [ "$2" = runtime ] && [ "$3" = delete ]; then
  printf '%s' )SH" + shellQuoted(behaviour.deleteOutput) +
                     "\n  exit " + std::to_string(behaviour.deleteStatus) + R"SH(
fi
echo "xcrun: unexpected arguments: $*" >&2
exit 64)SH";
  return writeStandInTool(root, "/usr/bin/xcrun", body);
}

std::vector<std::string> readCallLog(const std::filesystem::path& callLog) {
  std::vector<std::string> lines;
  std::ifstream in(callLog);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

}  // namespace tw::test
