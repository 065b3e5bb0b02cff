#include "platform/SecurityScope.h"

#include <map>
#include <mutex>

namespace tw {
namespace {

// Linux grants folder access through permissions alone, so entering a scope cannot fail and
// has no effect on the file system; the counts keep start/stop pairs honest all the same.
struct ScopeBook {
  std::mutex mutex;
  std::map<std::filesystem::path, int> counts;
};

ScopeBook& book() {
  static ScopeBook instance;
  return instance;
}

}  // namespace

bool startAccessingSecurityScope(const std::filesystem::path& folder) {
  ScopeBook& scopes = book();
  std::lock_guard lock(scopes.mutex);
  ++scopes.counts[folder.lexically_normal()];
  return true;
}

void stopAccessingSecurityScope(const std::filesystem::path& folder) {
  ScopeBook& scopes = book();
  std::lock_guard lock(scopes.mutex);
  auto found = scopes.counts.find(folder.lexically_normal());
  if (found == scopes.counts.end()) return;  // as on macOS, an unbalanced stop is harmless
  if (--found->second == 0) scopes.counts.erase(found);
}

int securityScopeAccessCount(const std::filesystem::path& folder) {
  ScopeBook& scopes = book();
  std::lock_guard lock(scopes.mutex);
  auto found = scopes.counts.find(folder.lexically_normal());
  return found == scopes.counts.end() ? 0 : found->second;
}

}  // namespace tw
