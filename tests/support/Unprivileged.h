// Running a piece of a test in a child process (as an ordinary user, or with a mount namespace
// or descriptor limit that dies with the child), and the trees the removal and race tests share.
#pragma once

#include <sys/resource.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <thread>

namespace tw::test {

// Runs `body`, which returns its failures as text (empty when all is well), in a forked child
// and returns that text; an exception becomes text and an abnormal end is added to it.
std::string runInChild(const std::function<std::string()>& body);

// Runs `body` with no special privileges: root's child gives up root (as "nobody") after
// `workFolder` is handed to it; an ordinary user runs it in place. Nothing when no unprivileged
// user can be had (the test should then skip).
std::optional<std::string> runUnprivileged(const std::filesystem::path& workFolder,
                                           const std::function<std::string()>& body);

// Hands a whole tree to the unprivileged user (as root; without root it changes nothing), for
// bodies that must also write below the work folder. False when that is not possible.
bool handOverTree(const std::filesystem::path& folder);

// What `body` throws, as text; empty when it throws nothing.
std::string failureOf(const std::function<void()>& body);

// Runs `body` with the soft descriptor limit lowered to `limit`, restoring it afterwards.
void withDescriptorLimit(rlim_t limit, const std::function<void()>& body);

// Regular files below `folder`, links not followed.
int countFiles(const std::filesystem::path& folder);

// Everything below `root`, links not followed: relative path -> kind, mode and contents.
std::map<std::string, std::string> snapshot(const std::filesystem::path& root);

// Until destroyed, a thread keeps swapping `folder` for a link to `target` and back.
class LinkSwapper {
 public:
  LinkSwapper(const std::filesystem::path& folder, const std::filesystem::path& target);
  ~LinkSwapper();

 private:
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

}  // namespace tw::test
