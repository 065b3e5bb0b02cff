#include "support/Unprivileged.h"

#include <grp.h>
#include <sys/wait.h>
#include <unistd.h>

#include <exception>

namespace tw::test {
namespace {

constexpr uid_t kNobody = 65534;
constexpr const char* kCannotDrop = "\x01no unprivileged user";

std::string runCatching(const std::function<std::string()>& body) {
  try {
    return body();
  } catch (const std::exception& error) {
    return std::string("unexpected exception: ") + error.what();
  }
}

}  // namespace

std::optional<std::string> runUnprivileged(const std::filesystem::path& workFolder,
                                           const std::function<std::string()>& body) {
  if (::geteuid() != 0) return runCatching(body);
  if (::chown(workFolder.c_str(), kNobody, kNobody) != 0) return std::nullopt;
  int channel[2];
  if (::pipe(channel) != 0) return std::nullopt;
  const pid_t child = ::fork();
  if (child < 0) return std::nullopt;
  if (child == 0) {
    ::close(channel[0]);
    std::string result = kCannotDrop;
    if (::setgroups(0, nullptr) == 0 && ::setgid(kNobody) == 0 && ::setuid(kNobody) == 0) result = runCatching(body);
    const bool written = ::write(channel[1], result.data(), result.size()) == static_cast<ssize_t>(result.size());
    ::_exit(written ? 0 : 1);
  }
  ::close(channel[1]);
  std::string output;
  char buffer[512];
  for (ssize_t count; (count = ::read(channel[0], buffer, sizeof buffer)) > 0;) output.append(buffer, count);
  ::close(channel[0]);
  int status = 0;
  ::waitpid(child, &status, 0);
  if (output == kCannotDrop) return std::nullopt;
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) output += "\nthe unprivileged child did not end normally";
  return output;
}

bool handOverTree(const std::filesystem::path& folder) {
  if (::geteuid() != 0) return true;
  if (::lchown(folder.c_str(), kNobody, kNobody) != 0) return false;
  std::error_code error;
  for (auto it = std::filesystem::recursive_directory_iterator(folder, error);
       !error && it != std::filesystem::recursive_directory_iterator(); it.increment(error)) {
    if (::lchown(it->path().c_str(), kNobody, kNobody) != 0) return false;
  }
  return !error;
}

}  // namespace tw::test
