// How one shell command gets administrator rights behind the system's own credential prompt.
// macOS hands it to the AppleScript runner ("do shell script ... with administrator
// privileges"); Linux hands it to polkit's pkexec, which shows the desktop's authentication
// dialog (or asks on the terminal). The shell layer runs the invocation built here and turns
// a non-zero status into a command error; this file only knows the runners' conventions.
#pragma once

#include <filesystem>
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

// One program with its arguments, no shell in between where the runner allows it.
// polkit: "/usr/bin/pkexec" <program> <arguments...>, so the prompt is the one of the polkit
// action that names the program; appleScript: the words shell-quoted into a shell command.
AdministratorInvocation administratorProgramInvocation(AdministratorRunner runner, const std::string& program,
                                                       const std::vector<std::string>& arguments);

// `text` in single quotes for /bin/sh, each single quote inside written as '\''.
std::string quoteForShell(std::string_view text);

// Where the package installs the narrow remover that runs with administrator rights. The
// polkit action "dev.tidewell.Tidewell.remove-system-item" names this very path, so pkexec
// asks with Tidewell's own message and nothing else can be run under that action.
inline constexpr const char* kPrivilegedRemoverPath = "/usr/lib/tidewell/tidewell-privileged-remove";

// The installed privileged remover on this host (an executable file at kPrivilegedRemoverPath
// below the host's root); empty where it is not installed, as in a development build.
std::filesystem::path installedPrivilegedRemover();

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
