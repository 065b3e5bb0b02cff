#include <gmock/gmock.h>
#include <openssl/evp.h>

#include "platform/Bookmark.h"
#include "platform/Error.h"
#include "support/TempDir.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using ::testing::StrEq;
using ::testing::ThrowsMessage;

TEST(Bookmark, ResolvesOnlyIntactBlobsAndIsStaleOnlyWhenThePathNamesAnotherFolder) {
  test::TempDir dir;
  const fs::path folder = dir / std::string("odd \n name \xff");
  fs::create_directories(folder);
  const auto blob = Bookmark::create(folder);
  const auto damagedMessage = ThrowsMessage<Error>(
      StrEq("The bookmark couldn\u2019t be resolved because its data isn\u2019t in the correct format."));
  for (size_t index = 0; index < blob.size(); ++index) {
    auto damaged = blob;
    damaged[index] ^= 0x20;
    EXPECT_THAT([&] { Bookmark::resolve(damaged); }, damagedMessage) << "a flipped byte at " << index;
    damaged.resize(index);
    EXPECT_THAT([&] { Bookmark::resolve(damaged); }, damagedMessage) << "cut short at " << index;
  }
  // Fields changed and the trailing checksum made to match: version, flags, path length, path.
  constexpr size_t kFlags = 8 + 4 + 8 + 8, kLength = kFlags + 1 + 8 + 4;
  for (auto [offset, value] : {std::pair<size_t, uint8_t>{8, 2},
                               {kFlags, 7},
                               {kLength + 3, static_cast<uint8_t>(blob[kLength + 3] ^ 0x40)},
                               {kLength + 4, 'x'}}) {
    auto changed = blob;
    changed[offset] = value;
    ASSERT_TRUE(EVP_Digest(changed.data(), changed.size() - 32, changed.data() + changed.size() - 32, nullptr,
                           EVP_sha256(), nullptr));
    EXPECT_THAT([&] { Bookmark::resolve(changed); },
                ThrowsMessage<Error>(testing::HasSubstr(offset == 8 ? "made by a newer version of Tidewell" : "")))
        << "a changed field at " << offset;
  }

  test::writeFile(folder / "new file", "x");  // the contents changing is not the folder changing
  EXPECT_EQ(Bookmark::resolve(blob).path, folder);
  EXPECT_FALSE(Bookmark::resolve(blob).isStale);
  fs::create_directories(dir / "elsewhere");
  fs::remove_all(folder);
  fs::create_directory_symlink(dir / "elsewhere", folder);  // a link to some other folder in its place
  EXPECT_TRUE(Bookmark::resolve(blob).isStale);
  fs::remove(folder);
  EXPECT_THAT([&] { Bookmark::resolve(blob); },
              ThrowsMessage<FileSystemError>(StrEq("The file \u201C" + folder.filename().string() +
                                                   "\u201D couldn\u2019t be opened because it doesn\u2019t exist.")));
  EXPECT_THROW(Bookmark::create(folder), FileSystemError);
}

}  // namespace
}  // namespace tw
