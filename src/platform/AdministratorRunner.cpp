#include "platform/AdministratorRunner.h"

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>

#include "platform/Host.h"

namespace tw {
namespace {

constexpr const char* kOsascript = "/usr/bin/osascript";
constexpr const char* kPkexec = "/usr/bin/pkexec";
constexpr const char* kShell = "/bin/sh";

// pkexec's own exit statuses (see pkexec(1)).
constexpr int kPkexecDismissed = 126;
constexpr int kPkexecNotAuthorised = 127;

// -1: no selection (the platform's runner); otherwise the selected runner's value.
std::atomic<int> selectedRunner{-1};

}  // namespace

std::string escapeForAppleScript(std::string_view command) {
  std::string backslashesDoubled;
  backslashesDoubled.reserve(command.size() + 8);
  for (char c : command) {
    if (c == '\\') backslashesDoubled += '\\';
    backslashesDoubled += c;
  }
  std::string escaped;
  escaped.reserve(backslashesDoubled.size() + 8);
  for (char c : backslashesDoubled) {
    if (c == '"') escaped += '\\';
    escaped += c;
  }
  return escaped;
}

std::string appleScriptAdministratorScript(std::string_view command) {
  return "do shell script \"" + escapeForAppleScript(command) + "\" with administrator privileges";
}

AdministratorInvocation administratorInvocation(AdministratorRunner runner, const std::string& command) {
  switch (runner) {
    case AdministratorRunner::appleScript:
      return {kOsascript, {"-e", appleScriptAdministratorScript(command)}};
    case AdministratorRunner::polkit:
      return {kPkexec, {kShell, "-c", command}};
  }
  return {kPkexec, {kShell, "-c", command}};
}

std::string quoteForShell(std::string_view text) {
  std::string quoted = "'";
  for (char character : text) {
    if (character == '\'') {
      quoted += "'\\''";
    } else {
      quoted += character;
    }
  }
  quoted += "'";
  return quoted;
}

AdministratorInvocation administratorProgramInvocation(AdministratorRunner runner, const std::string& program,
                                                       const std::vector<std::string>& arguments) {
  if (runner == AdministratorRunner::polkit) {
    AdministratorInvocation invocation{kPkexec, {program}};
    invocation.arguments.insert(invocation.arguments.end(), arguments.begin(), arguments.end());
    return invocation;
  }
  std::string command = quoteForShell(program);
  for (const std::string& argument : arguments) command += " " + quoteForShell(argument);
  return administratorInvocation(runner, command);
}

std::filesystem::path installedPrivilegedRemover() {
  const std::filesystem::path remover = Host::current().system(kPrivilegedRemoverPath);
  struct stat status {};
  if (::stat(remover.c_str(), &status) != 0 || !S_ISREG(status.st_mode) || ::access(remover.c_str(), X_OK) != 0) {
    return {};
  }
  return remover;
}

std::string administratorFailureOutput(AdministratorRunner runner, int status, std::string output) {
  if (!output.empty() || runner != AdministratorRunner::polkit) return output;
  if (status == kPkexecDismissed) return "The administrator authentication was dismissed.";
  if (status == kPkexecNotAuthorised) return "Not authorized to run the command as administrator.";
  return output;
}

AdministratorRunner platformAdministratorRunner() {
#if defined(__APPLE__)
  return AdministratorRunner::appleScript;
#else
  return AdministratorRunner::polkit;
#endif
}

AdministratorRunner currentAdministratorRunner() {
  int selected = selectedRunner.load();
  return selected < 0 ? platformAdministratorRunner() : static_cast<AdministratorRunner>(selected);
}

ScopedAdministratorRunner::ScopedAdministratorRunner(AdministratorRunner runner) {
  int previous = selectedRunner.exchange(static_cast<int>(runner));
  if (previous >= 0) previous_ = static_cast<AdministratorRunner>(previous);
}

ScopedAdministratorRunner::~ScopedAdministratorRunner() {
  selectedRunner.store(previous_ ? static_cast<int>(*previous_) : -1);
}

}  // namespace tw
