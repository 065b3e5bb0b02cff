// Security-scoped access to folders the user granted through a bookmark. On macOS a sandboxed
// process must bracket its use of such a folder with start/stop calls on the resolved URL;
// Linux has no sandbox of that kind, so there the pair only keeps the per-folder balance
// that callers can check (and that the macOS build would pass on to the real API).
#pragma once

#include <filesystem>

namespace tw {

// Begins access to `folder`. True when a scope was entered (always true on Linux, where
// nothing can refuse it); callers balance every true with stopAccessingSecurityScope.
bool startAccessingSecurityScope(const std::filesystem::path& folder);
void stopAccessingSecurityScope(const std::filesystem::path& folder);

// How many starts on `folder` are not yet balanced by a stop (for checks and diagnostics).
int securityScopeAccessCount(const std::filesystem::path& folder);

}  // namespace tw
