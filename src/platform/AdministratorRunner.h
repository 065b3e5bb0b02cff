// How one shell command gets administrator rights behind the system's own credential prompt.
// macOS hands it to the AppleScript runner ("do shell script ... with administrator
// privileges"); Linux hands it to polkit's pkexec, which shows the desktop's authentication
// dialog (or asks on the terminal). The shell layer runs the invocation built here and turns
// a non-zero status into a command error; this file only knows the runners' conventions.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tw {

enum class AdministratorRunner { appleScript, polkit };

// What to run: a program at an absolute system path and its separate arguments.
struct AdministratorInvocation {
  std::string executablePath;
  std::vector<std::string> arguments;
};

// `command` as the body of an AppleScript string literal: every backslash doubled first, then
// every double quote preceded by a backslash (in that order, so the added backslashes are not
// doubled again).
std::string escapeForAppleScript(std::string_view command);

// do shell script "<escaped command>" with administrator privileges
std::string appleScriptAdministratorScript(std::string_view command);

// appleScript: "/usr/bin/osascript" "-e" <script>; polkit: "/usr/bin/pkexec" "/bin/sh" "-c" <command>.
AdministratorInvocation administratorInvocation(AdministratorRunner runner, const std::string& command);

// The text a failed run reports: what the runner printed. pkexec ends with 126 when the
// prompt was dismissed and 127 when the user is not authorised; if it printed nothing then,
// the reason is named here so the error never ends up without one.
std::string administratorFailureOutput(AdministratorRunner runner, int status, std::string output);

// The platform's runner (appleScript on macOS, polkit elsewhere), unless one is selected.
AdministratorRunner platformAdministratorRunner();
AdministratorRunner currentAdministratorRunner();

// Selects a runner for the lifetime of the object (tests exercise both flavours anywhere).
class ScopedAdministratorRunner {
 public:
  explicit ScopedAdministratorRunner(AdministratorRunner runner);
  ~ScopedAdministratorRunner();
  ScopedAdministratorRunner(const ScopedAdministratorRunner&) = delete;
  ScopedAdministratorRunner& operator=(const ScopedAdministratorRunner&) = delete;

 private:
  std::optional<AdministratorRunner> previous_;
};

}  // namespace tw
