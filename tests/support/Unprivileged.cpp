#include "support/Unprivileged.h"

#include <grp.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <exception>

#include "support/TempDir.h"

namespace tw::test {
namespace {

namespace fs = std::filesystem;
constexpr uid_t kNobody = 65534;
constexpr const char* kUnprepared = "\x01the child could not be prepared";

std::string runCatching(const std::function<std::string()>& body) {
  try {
    return body();
  } catch (const std::exception& error) {
    return std::string("unexpected exception: ") + error.what();
  }
}

// `body` in a child once `prepare` succeeded there; nothing when it did not.
std::optional<std::string> runPrepared(const std::function<bool()>& prepare, const std::function<std::string()>& body) {
  std::string output = runInChild([&] { return prepare() ? body() : kUnprepared; });
  return output == kUnprepared ? std::nullopt : std::optional(output);
}

}  // namespace

std::string runInChild(const std::function<std::string()>& body) {
  int channel[2];
  if (::pipe(channel) != 0) return "no pipe";
  const pid_t child = ::fork();
  if (child < 0) return "no fork";
  if (child == 0) {
    ::close(channel[0]);
    const std::string result = runCatching(body);
    ::_exit(::write(channel[1], result.data(), result.size()) == static_cast<ssize_t>(result.size()) ? 0 : 1);
  }
  ::close(channel[1]);
  std::string output;
  char buffer[512];
  for (ssize_t count; (count = ::read(channel[0], buffer, sizeof buffer)) > 0;) output.append(buffer, count);
  ::close(channel[0]);
  int status = 0;
  ::waitpid(child, &status, 0);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) output += "\nthe child did not end normally";
  return output;
}

std::optional<std::string> runUnprivileged(const fs::path& workFolder, const std::function<std::string()>& body) {
  if (::geteuid() != 0) return runCatching(body);
  if (::chown(workFolder.c_str(), kNobody, kNobody) != 0) return std::nullopt;
  return runPrepared([] { return ::setgroups(0, nullptr) == 0 && ::setgid(kNobody) == 0 && ::setuid(kNobody) == 0; },
                     body);
}

std::optional<std::string> runWithMount(const fs::path& source, const fs::path& mountPoint,
                                        const std::function<std::string()>& body) {
  return runPrepared(
      [&] {
        return ::unshare(CLONE_NEWNS) == 0 && ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
               (source.empty() ? ::mount("tmpfs", mountPoint.c_str(), "tmpfs", 0, nullptr)
                               : ::mount(source.c_str(), mountPoint.c_str(), nullptr, MS_BIND, nullptr)) == 0;
      },
      body);
}

bool handOverTree(const fs::path& folder) {
  if (::geteuid() != 0) return true;
  bool handed = ::lchown(folder.c_str(), kNobody, kNobody) == 0;
  std::error_code error;
  for (fs::recursive_directory_iterator it(folder, error), end; handed && !error && it != end; it.increment(error))
    handed = ::lchown(it->path().c_str(), kNobody, kNobody) == 0;
  return handed && !error;
}

std::string failureOf(const std::function<void()>& body) {
  try {
    body();
  } catch (const std::exception& error) {
    return error.what();
  }
  return "";
}

int countFiles(const fs::path& folder) {
  int count = 0;
  std::error_code error;
  for (fs::recursive_directory_iterator it(folder, error), end; !error && it != end; it.increment(error))
    count += fs::is_regular_file(it->symlink_status(error));
  return count;
}

std::map<std::string, std::string> snapshot(const fs::path& root) {
  std::map<std::string, std::string> result;
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    const auto status = entry.symlink_status();
    std::string& description = result[fs::relative(entry.path(), root).string()];
    description = std::to_string(int(status.type())) + ":" + std::to_string(int(status.permissions())) + ":";
    if (fs::is_regular_file(status)) description += readFile(entry.path());
    if (fs::is_symlink(status)) description += fs::read_symlink(entry.path()).string();
  }
  return result;
}

LinkSwapper::LinkSwapper(const fs::path& folder, const fs::path& target)
    : thread_([this, real = folder.string(), moved = folder.string() + ".real", link = folder.string() + ".link",
               target = target.string()] {
        while (!stop_.load()) {
          (void)::symlink(target.c_str(), link.c_str());
          (void)::rename(real.c_str(), moved.c_str());
          (void)::rename(link.c_str(), real.c_str());
          std::this_thread::yield();
          (void)::rename(real.c_str(), link.c_str());
          (void)::rename(moved.c_str(), real.c_str());
          (void)::unlink(link.c_str());
        }
      }) {}

}  // namespace tw::test
