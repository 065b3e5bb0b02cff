// A home folder and a system root in one temporary folder, installed as the current host.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Host.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"

namespace tw::test {

class CatalogueFixture {
 public:
  CatalogueFixture();
  CatalogueFixture(const CatalogueFixture&) = delete;
  CatalogueFixture& operator=(const CatalogueFixture&) = delete;

  const std::filesystem::path& home() const { return home_; }
  const std::filesystem::path& root() const { return root_; }
  // "~/x" below home(), "/x" below root().
  std::filesystem::path at(std::string_view pattern) const;

  // Creates `folder` holding one file of `bytes` bytes of real data; returns that file.
  std::filesystem::path makeFolderWithData(std::string_view folderPattern, size_t bytes) const;

 private:
  TempDir temp_;
  std::filesystem::path home_;
  std::filesystem::path root_;
  std::optional<ScopedHost> host_;
};

// Bytes the file system allocated for one file (st_blocks of 512 bytes).
int64_t allocatedBytes(const std::filesystem::path& file);

// Size of one file-system block at `folder`, the step in which allocations grow.
int64_t blockSize(const std::filesystem::path& folder);

// Makes removal below `folder` fail, even for root (immutable flag, else no write permission).
class RemovalBlocker {
 public:
  explicit RemovalBlocker(std::filesystem::path folder);
  ~RemovalBlocker();
  RemovalBlocker(const RemovalBlocker&) = delete;
  RemovalBlocker& operator=(const RemovalBlocker&) = delete;

  // False when this system cannot block removal for the current user.
  bool active() const { return active_; }
  // A shell command that lifts the block (what an administrator could do).
  std::string liftCommand() const;
  void lift();

 private:
  std::filesystem::path folder_;
  bool usesImmutableFlag_ = false;
  bool active_ = false;
};

}  // namespace tw::test
