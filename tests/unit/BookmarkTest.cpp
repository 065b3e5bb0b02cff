#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "platform/Bookmark.h"
#include "platform/Error.h"
#include "support/TempDir.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using test::TempDir;

// Replaces the trailing checksum so that a deliberately changed field gets past it.
void reseal(std::vector<uint8_t>& blob) {
  const size_t body = blob.size() - 32;
  unsigned int length = 0;
  ASSERT_TRUE(EVP_Digest(blob.data(), body, blob.data() + body, &length, EVP_sha256(), nullptr));
}

TEST(Bookmark, ResolvesToTheSameFolderWhileItIsUnchanged) {
  TempDir dir;
  const fs::path folder = dir / std::string("odd \n name \xff");
  fs::create_directories(folder);

  const auto blob = Bookmark::create(folder);
  const auto resolved = Bookmark::resolve(blob);
  EXPECT_EQ(resolved.path, folder);
  EXPECT_FALSE(resolved.isStale);

  // The folder's contents changing is not the folder changing.
  test::writeFile(folder / "new file", "x");
  ::chmod(folder.c_str(), 0700);
  EXPECT_FALSE(Bookmark::resolve(blob).isStale);
}

TEST(Bookmark, RecordsAnAbsoluteNormalPath) {
  TempDir dir;
  fs::create_directories(dir / "a" / "b");
  const fs::path previous = fs::current_path();
  fs::current_path(dir.path());
  std::vector<uint8_t> blob;
  EXPECT_NO_THROW(blob = Bookmark::create("a/./b/"));
  fs::current_path(previous);
  EXPECT_EQ(Bookmark::resolve(blob).path, dir / "a" / "b");
}

TEST(Bookmark, IsStaleWhenThePathNamesAnotherFolder) {
  TempDir dir;
  const fs::path folder = dir / "Developer";
  fs::create_directories(folder);
  const auto blob = Bookmark::create(folder);

  // Removed and made again (the new one exists before the old goes, so it is a new inode).
  fs::create_directories(dir / "replacement");
  fs::remove(folder);
  fs::rename(dir / "replacement", folder);
  auto resolved = Bookmark::resolve(blob);
  EXPECT_TRUE(resolved.isStale);
  EXPECT_EQ(resolved.path, folder);

  // A fresh bookmark of the new folder is no longer stale.
  EXPECT_FALSE(Bookmark::resolve(Bookmark::create(folder)).isStale);

  // A link to some other folder put in its place.
  const auto fresh = Bookmark::create(folder);
  fs::create_directories(dir / "elsewhere");
  fs::remove(folder);
  fs::create_directory_symlink(dir / "elsewhere", folder);
  EXPECT_TRUE(Bookmark::resolve(fresh).isStale);
}

TEST(Bookmark, MissingFolderIsAReadableError) {
  TempDir dir;
  fs::create_directories(dir / "Developer");
  const auto blob = Bookmark::create(dir / "Developer");
  fs::rename(dir / "Developer", dir / "Moved");
  try {
    Bookmark::resolve(blob);
    FAIL() << "resolved a folder that is gone";
  } catch (const FileSystemError& error) {
    EXPECT_STREQ(error.what(), "The file \u201CDeveloper\u201D couldn\u2019t be opened because it doesn\u2019t exist.");
    EXPECT_EQ(error.path(), dir / "Developer");
  }
  EXPECT_THROW(Bookmark::create(dir / "Developer"), FileSystemError);
}

TEST(Bookmark, DamagedBlobsAreRefusedWithAReadableError) {
  TempDir dir;
  fs::create_directories(dir / "folder");
  const auto blob = Bookmark::create(dir / "folder");
  const std::string expected =
      "The bookmark couldn\u2019t be resolved because its data isn\u2019t in the correct format.";

  for (size_t index = 0; index < blob.size(); ++index) {
    auto damaged = blob;
    damaged[index] ^= 0x20;
    try {
      Bookmark::resolve(damaged);
      ADD_FAILURE() << "a flipped byte at " << index << " went unnoticed";
    } catch (const Error& error) {
      EXPECT_EQ(error.what(), expected) << index;
    }
  }
  for (size_t length = 0; length < blob.size(); ++length) {
    EXPECT_THROW(Bookmark::resolve(std::vector<uint8_t>(blob.begin(), blob.begin() + length)), Error) << length;
  }
  auto longer = blob;
  longer.push_back(0);
  EXPECT_THROW(Bookmark::resolve(longer), Error);
  const std::string json = R"({"path": "/tmp"})";
  EXPECT_THROW(Bookmark::resolve(std::vector<uint8_t>(json.begin(), json.end())), Error);
}

TEST(Bookmark, SealedButInconsistentFieldsAreRefused) {
  TempDir dir;
  fs::create_directories(dir / "folder");
  const auto blob = Bookmark::create(dir / "folder");
  constexpr size_t kVersionOffset = 8;
  constexpr size_t kFlagsOffset = 8 + 4 + 8 + 8;
  constexpr size_t kLengthOffset = kFlagsOffset + 1 + 8 + 4;

  auto newer = blob;
  newer[kVersionOffset] = 2;
  reseal(newer);
  try {
    Bookmark::resolve(newer);
    FAIL() << "a newer format was read";
  } catch (const Error& error) {
    EXPECT_STREQ(error.what(),
                 "The bookmark couldn\u2019t be resolved because it was made by a newer version of Tidewell.");
  }

  auto badFlags = blob;
  badFlags[kFlagsOffset] = 7;
  reseal(badFlags);
  EXPECT_THROW(Bookmark::resolve(badFlags), Error);

  auto hugeLength = blob;
  hugeLength[kLengthOffset + 3] = 0x7f;
  reseal(hugeLength);
  EXPECT_THROW(Bookmark::resolve(hugeLength), Error);

  auto relative = blob;
  relative[kLengthOffset + 4] = 'x';  // the path's leading slash
  reseal(relative);
  EXPECT_THROW(Bookmark::resolve(relative), Error);
}

}  // namespace
}  // namespace tw
