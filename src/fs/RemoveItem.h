// Permanent, race-safe removal of a file or a folder tree: works through directory
// descriptors, never follows a symbolic link (a link is removed, never its target) and never
// leaves the given path even when the tree changes underneath.
#pragma once

#include <filesystem>
#include <string>

#include "platform/Error.h"

namespace tw {

// Why a removal stopped short. Callers that could retry with more rights need to know whether
// rights were the problem: a refusal to go where the removal must not (into a link, onto
// another volume, through a folder that changed under it) has to stand, however privileged
// the next attempt would be.
enum class RemovalFailure {
  permission,  // the user may not change something in the tree
  safety,      // the removal refused to follow a link, cross a volume or chase a changing tree
  other,       // anything else: missing item, read-only volume, input/output error
};

// The error removeItem throws: the first failure's description, errno and path, and the kind
// of the whole removal (safety when any part of the tree was refused for safety, even when the
// first failure was about permission).
class RemovalError : public FileSystemError {
 public:
  RemovalError(std::string description, int code, std::filesystem::path path, RemovalFailure kind)
      : FileSystemError(std::move(description), code, std::move(path)), kind_(kind) {}
  RemovalFailure kind() const { return kind_; }

 private:
  RemovalFailure kind_;
};

// Removes whatever is at `path`. Removes everything it can and then throws a RemovalError
// describing the first failure, if there was one.
void removeItem(const std::filesystem::path& path);

#if defined(TIDEWELL_TEST_HOOKS)
// Test builds only: called with a folder's name after it was looked at and before it is
// opened, so that tests can change the tree in exactly that window.
extern void (*removeItemBeforeOpeningFolderHook)(const char* name);
#endif

}  // namespace tw
