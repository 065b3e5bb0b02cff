// A home folder and a system root in one temporary folder, installed as the current host.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string_view>

#include "platform/Host.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"

namespace tw::test {

constexpr size_t kKiB = 1024, kMiB = 1'048'576;

class CatalogueFixture {
 public:
  CatalogueFixture();  // not copyable: it owns the temporary folder

  const std::filesystem::path& home() const { return home_; }
  const std::filesystem::path& root() const { return root_; }
  // "~/x" below home(), "/x" below root().
  std::filesystem::path at(std::string_view pattern) const;
  // Writes the file at(pattern) of `bytes` bytes of real data (folders created); returns its path.
  std::filesystem::path file(std::string_view pattern, size_t bytes) const;

 private:
  TempDir temp_;
  std::filesystem::path home_ = temp_ / "home", root_ = temp_ / "root";
  std::optional<ScopedHost> host_;
};

// Bytes the file system allocated for one file (st_blocks of 512 bytes).
int64_t allocatedBytes(const std::filesystem::path& file);

// Makes removal below `folder` fail, even for root (immutable flag, else no write permission).
class RemovalBlocker {
 public:
  explicit RemovalBlocker(std::filesystem::path folder);
  ~RemovalBlocker() { lift(); }
  RemovalBlocker(const RemovalBlocker&) = delete;
  RemovalBlocker& operator=(const RemovalBlocker&) = delete;

  bool active() const { return active_; }  // false when this system cannot block removal for this user
  void lift();
  std::string liftCommand() const;  // a shell command that lifts the block, as an administrator could

 private:
  std::filesystem::path folder_;
  bool usesImmutableFlag_ = false, active_ = false;
};

}  // namespace tw::test
