#include "support/Unprivileged.h"

#include <grp.h>
#include <sys/wait.h>
#include <unistd.h>

#include <exception>

#include "support/TempDir.h"

namespace tw::test {
namespace {

namespace fs = std::filesystem;
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

std::string runInChild(const std::function<std::string()>& body) {
  int channel[2];
  if (::pipe(channel) != 0) return "no pipe";
  const pid_t child = ::fork();
  if (child < 0) return "no fork";
  if (child == 0) {
    ::close(channel[0]);
    const std::string result = runCatching(body);
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
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) output += "\nthe child did not end normally";
  return output;
}

std::optional<std::string> runUnprivileged(const fs::path& workFolder, const std::function<std::string()>& body) {
  if (::geteuid() != 0) return runCatching(body);
  if (::chown(workFolder.c_str(), kNobody, kNobody) != 0) return std::nullopt;
  std::string output = runInChild([&]() -> std::string {
    if (::setgroups(0, nullptr) != 0 || ::setgid(kNobody) != 0 || ::setuid(kNobody) != 0) return kCannotDrop;
    return body();
  });
  if (output == kCannotDrop) return std::nullopt;
  return output;
}

bool handOverTree(const fs::path& folder) {
  if (::geteuid() != 0) return true;
  if (::lchown(folder.c_str(), kNobody, kNobody) != 0) return false;
  std::error_code error;
  for (auto it = fs::recursive_directory_iterator(folder, error); !error && it != fs::recursive_directory_iterator();
       it.increment(error)) {
    if (::lchown(it->path().c_str(), kNobody, kNobody) != 0) return false;
  }
  return !error;
}

std::string failureOf(const std::function<void()>& body) {
  try {
    body();
  } catch (const std::exception& error) {
    return error.what();
  }
  return "";
}

void withDescriptorLimit(rlim_t limit, const std::function<void()>& body) {
  rlimit saved{};
  ::getrlimit(RLIMIT_NOFILE, &saved);
  rlimit lowered = saved;
  lowered.rlim_cur = limit;
  if (::setrlimit(RLIMIT_NOFILE, &lowered) != 0) throw std::runtime_error("setrlimit failed");
  try {
    body();
  } catch (...) {
    ::setrlimit(RLIMIT_NOFILE, &saved);
    throw;
  }
  ::setrlimit(RLIMIT_NOFILE, &saved);
}

int countFiles(const fs::path& folder) {
  int count = 0;
  std::error_code error;
  for (auto it = fs::recursive_directory_iterator(folder, error); !error && it != fs::recursive_directory_iterator();
       it.increment(error)) {
    if (it->is_regular_file() && !it->is_symlink()) ++count;
  }
  return count;
}

std::map<std::string, std::string> snapshot(const fs::path& root) {
  std::map<std::string, std::string> result;
  for (auto it = fs::recursive_directory_iterator(root); it != fs::recursive_directory_iterator(); ++it) {
    const auto status = it->symlink_status();
    std::string& description = result[fs::relative(it->path(), root).string()];
    description = std::to_string(int(status.type())) + ":" + std::to_string(int(status.permissions())) + ":";
    if (fs::is_regular_file(status)) description += readFile(it->path());
    if (fs::is_symlink(status)) description += fs::read_symlink(it->path()).string();
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

LinkSwapper::~LinkSwapper() {
  stop_ = true;
  thread_.join();
}

}  // namespace tw::test
