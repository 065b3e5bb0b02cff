// tidewell-privileged-remove: the only program Tidewell runs with administrator rights.
// Tidewell's polkit action names it, so the password prompt says what is about to happen
// instead of offering a root shell. It removes the system items it is given (downloaded OS
// updates and full OS installers) and refuses every other path: a relative one, one with "."
// or ".." in it, one that passes through a symbolic link, one outside the locations the
// system-items scan lists, another volume. It never crosses into another mount on the way down.
//
//   tidewell-privileged-remove <absolute path>...
//
// Exit status: 0 when everything was removed; 1 when something could not be removed (each
// failure on standard error, the others are still removed); 2 when a path was refused or none
// was given (nothing is removed then).
#include <sys/stat.h>

#include <cstdio>
#include <string>
#include <variant>
#include <vector>

#include "fs/RemoveItem.h"
#include "scan/PrivilegedRemoval.h"

namespace {

constexpr int kRemovalFailed = 1;
constexpr int kRefused = 2;

void say(const std::string& line) { std::fprintf(stderr, "tidewell-privileged-remove: %s\n", line.c_str()); }

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    say("usage: tidewell-privileged-remove <absolute path>...");
    return kRefused;
  }
  ::umask(022);

  // Every path is checked before anything is removed: a caller that sends one bad path is not
  // trusted with the others either.
  std::vector<tw::PrivilegedRemoval::Target> targets;
  bool refused = false;
  for (int index = 1; index < argc; ++index) {
    auto checked = tw::PrivilegedRemoval::check(argv[index]);
    if (auto* refusal = std::get_if<tw::PrivilegedRemoval::Refusal>(&checked)) {
      say(refusal->reason);
      refused = true;
    } else {
      targets.push_back(std::move(std::get<tw::PrivilegedRemoval::Target>(checked)));
    }
  }
  if (refused) return kRefused;

  int status = 0;
  for (const auto& target : targets) {
    try {
      tw::PrivilegedRemoval::remove(target);
    } catch (const std::exception& error) {
      say(target.path() + ": " + error.what());
      status = kRemovalFailed;
    }
  }
  return status;
}
