#include "support/StandInTools.h"

#include <fstream>

#include "support/TempDir.h"

namespace tw::test {

namespace fs = std::filesystem;

std::string shellQuoted(std::string_view text) {
  std::string quoted = "'";
  for (char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

fs::path writeStandInTool(const fs::path& root, std::string_view absolutePath, std::string_view body) {
  const fs::path path = root / fs::path(absolutePath).relative_path(), temporary = path.string() + ".writing";
  // Written beside and renamed: no "Text file busy" when an earlier copy still runs.
  writeFile(temporary, "#!/bin/sh\n" + std::string(body) + "\n");
  fs::permissions(temporary, fs::perms(0755));
  fs::rename(temporary, path);
  return path;
}

fs::path writeStandInOsascript(const fs::path& root, const fs::path& receivedCommandFile) {
  // Without its escape pairs, a well-formed literal has no quote or backslash left.
  return writeStandInTool(root, "/usr/bin/osascript",
                          R"SH(prefix='do shell script "'
suffix='" with administrator privileges'
case "$#:$1:$2" in
  "2:-e:$prefix"*"$suffix") ;;
  *) echo "osascript: unexpected arguments: $*" >&2; exit 2 ;;
esac
literal=${2#"$prefix"}
literal=${literal%"$suffix"}
case "$(printf '%s' "$literal" | sed 's/\\.//g')" in
  *'"'* | *'\'*) echo "osascript: syntax error in string literal: $literal" >&2; exit 2 ;;
esac
command=$(printf '%s' "$literal" | sed 's/\\\(.\)/\1/g'; printf x)
command=${command%x}
printf '%s' "$command" > )SH" +
                              shellQuoted(receivedCommandFile.string()) + "\nexec /bin/sh -c \"$command\"");
}

fs::path writeStandInPkexec(const fs::path& root, const fs::path& argumentsFile) {
  return writeStandInTool(root, "/usr/bin/pkexec",
                          "for argument in \"$@\"; do printf '%s\\0' \"$argument\"; done > " +
                              shellQuoted(argumentsFile.string()) + "\nexec \"$@\"");
}

fs::path writeStandInXcrun(const fs::path& root, const fs::path& callLog, const StandInSimctl& behaviour) {
  const auto answer = [](const std::string& output, int status) {
    return "\n  printf '%s' " + shellQuoted(output) + "\n  exit " + std::to_string(status) + " ;;";
  };
  return writeStandInTool(root, "/usr/bin/xcrun",
                          "printf '%s\\n' \"$*\" >> " + shellQuoted(callLog.string()) + "\ncase \"$#:$1:$2:$3:$4\" in" +
                              "\n4:simctl:runtime:list:-j)" + answer(behaviour.listOutput, behaviour.listStatus) +
                              "\n4:simctl:runtime:delete:*)" + answer(behaviour.deleteOutput, behaviour.deleteStatus) +
                              "\nesac\necho \"xcrun: unexpected arguments: $*\" >&2\nexit 64");
}

std::vector<std::string> readCallLog(const fs::path& callLog) {
  std::vector<std::string> lines;
  std::ifstream in(callLog);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

}  // namespace tw::test
