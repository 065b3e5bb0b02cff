// Test bodies run in a child process (unprivileged, or with a mount or limit that dies with it), and race helpers.
#pragma once

#include <atomic>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <thread>

namespace tw::test {

// Runs `body` in a forked child; its failures as text (an exception or an abnormal end included).
std::string runInChild(const std::function<std::string()>& body);

// Runs `body` as an ordinary user (root's child becomes "nobody" owning `workFolder`); nothing: skip.
std::optional<std::string> runUnprivileged(const std::filesystem::path& workFolder,
                                           const std::function<std::string()>& body);

// Runs `body` in a child with `source` (a tmpfs when empty) mounted at `mountPoint`; nothing: no namespace.
std::optional<std::string> runWithMount(const std::filesystem::path& source, const std::filesystem::path& mountPoint,
                                        const std::function<std::string()>& body);

// Hands a whole tree to the unprivileged user (as root); false when that is not possible.
bool handOverTree(const std::filesystem::path& folder);

// What `body` throws, as text; empty when it throws nothing.
std::string failureOf(const std::function<void()>& body);

// Regular files below `folder`, links not followed.
int countFiles(const std::filesystem::path& folder);

// Everything below `root`, links not followed: relative path -> kind, mode and contents.
std::map<std::string, std::string> snapshot(const std::filesystem::path& root);

// Until destroyed, a thread keeps swapping `folder` for a link to `target` and back.
class LinkSwapper {
 public:
  LinkSwapper(const std::filesystem::path& folder, const std::filesystem::path& target);
  ~LinkSwapper() { stop_ = true, thread_.join(); }

 private:
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

}  // namespace tw::test
