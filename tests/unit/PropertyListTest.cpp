#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "platform/PropertyList.h"
#include "support/HostilePropertyLists.h"
#include "support/TempDir.h"

namespace tw {
namespace {

namespace fs = std::filesystem;
using Reason = PropertyListError::Reason;
using test::deepBinaryList;
using test::deepXmlList;

// `inner` nested inside `depth` arrays of an XML property list whose top level is a dictionary.
std::string xmlAround(const std::string& inner, uint32_t depth = 0) {
  std::string xml =
      "<?xml version=\"1.0\"?>\n<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
      "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n<plist version=\"1.0\"><dict><key>k</key>";
  for (uint32_t i = 0; i < depth; ++i) xml += "<array>";
  xml += inner;
  for (uint32_t i = 0; i < depth; ++i) xml += "</array>";
  return xml + "</dict></plist>";
}

// A binary property list {key: "v"}.
std::string binaryWithKey(const std::string& key) {
  return test::binaryList({"\xD1\x01\x02", static_cast<char>(0x50 | key.size()) + key, "\x51v"}, 1);
}

// Closing tags hidden from a naive scan, followed by openings: each round would take a check
// that believed the closings back to depth 0 while the parser goes 200 levels deeper.
std::string hiding(const std::string& before, const std::string& after) {
  std::string closings, openings;
  for (int i = 0; i < 200; ++i) closings += "</array>", openings += "<array>";
  std::string inner;
  for (int round = 0; round < 3; ++round) inner += before + closings + after + openings;
  return xmlAround(inner);
}

TEST(PropertyList, NestingIsBoundedBeforeTheParserRecurses) {
  const uint32_t limit = PropertyList::kDeepestNesting;
  // Depth counts every array and dictionary from the top: the root dictionary is one level.
  const std::tuple<const char*, std::string, std::optional<Reason>> cases[] = {
      {"XML at the limit", xmlAround("", limit - 1), std::nullopt},
      {"XML one past the limit", xmlAround("", limit), Reason::tooDeep},
      {"XML 200,000 deep", deepXmlList(200'000), Reason::tooDeep},
      {"binary at the limit", deepBinaryList(limit - 1), std::nullopt},
      {"binary one past the limit", deepBinaryList(limit), Reason::tooDeep},
      {"binary 100,000 deep", deepBinaryList(100'000), Reason::tooDeep},
      {"binary that contains itself", deepBinaryList(3, true), Reason::tooDeep},
      // Shared arrays are copied per reference: 10^4 values are fine, 10^9 would never finish.
      {"binary repeating into ten thousand values", test::repeatingBinaryList(10, 4), std::nullopt},
      {"binary repeating into a billion values", test::repeatingBinaryList(10, 9), Reason::tooDeep},
      {"closings hidden in a DOCTYPE subset", hiding("<!DOCTYPE x [", "]>"), Reason::tooDeep},
      {"closings hidden in a quoted attribute", hiding("<string a=\"", "\">s</string>"), Reason::tooDeep},
      {"closings hidden in a comment", hiding("<!--", "-->"), Reason::tooDeep},
      {"closings hidden in CDATA", hiding("<string><![CDATA[", "]]></string>"), Reason::tooDeep},
      {"an unknown declaration", xmlAround("<!ELEMENT x ANY>"), Reason::tooDeep},
      // libplist would accept these, then stop the program when the text is read.
      {"a NUL byte in XML", xmlAround(std::string("<string>a\0b</string>", 20)), Reason::malformed},
      {"a binary key", binaryWithKey("ab"), std::nullopt},
      {"a NUL in a binary key", binaryWithKey(std::string("a\0b", 3)), Reason::malformed},
      {"garbage", std::string("\x01\x02 not a property list", 23), Reason::malformed},
      {"empty", "", Reason::empty},
  };
  const auto parseFailure = [](const std::string& bytes) -> std::optional<Reason> {
    try {
      PropertyList::parse(bytes);
      return std::nullopt;
    } catch (const PropertyListError& error) {
      return error.reason();
    }
  };
  for (const auto& [name, bytes, failure] : cases) EXPECT_EQ(parseFailure(bytes), failure) << name;
  // Empty containers open nothing, however many there are.
  std::string emptyOnes;
  for (int i = 0; i < 300; ++i) emptyOnes += "<array/><dict/>";
  EXPECT_EQ(parseFailure(xmlAround(emptyOnes, 10)), std::nullopt);
}

TEST(PropertyList, FilesAreRefusedByKindAndSizeBeforeTheyAreRead) {
  test::TempDir dir;
  const fs::path info = dir / "Info.plist";
  test::writeFile(info, xmlAround("<string>v</string>"));
  auto list = PropertyList::readDictionary(info, PropertyList::Kind::metadata);
  EXPECT_EQ(PropertyList::string(PropertyList::item(list.root(), "k")), "v");

  // A sparse file of 3 GiB: refused from its size alone, without reading it.
  const fs::path huge = dir / "huge" / "Info.plist";
  test::writeSparseFile(huge, uint64_t{3} << 30);
  test::writeFile(dir / "array.plist", "<plist><array/></plist>");
  ASSERT_EQ(::mkfifo((dir / "fifo.plist").c_str(), 0600), 0);  // opening it must not hang
  const std::string backupSized(PropertyList::largestFile(PropertyList::Kind::metadata) + 1, ' ');
  test::writeFile(dir / "backup.plist", xmlAround("<string>v</string>") + backupSized);

  const std::tuple<fs::path, PropertyList::Kind, std::optional<Reason>> cases[] = {
      {huge, PropertyList::Kind::deviceBackup, Reason::tooLarge},
      {dir / "backup.plist", PropertyList::Kind::metadata, Reason::tooLarge},
      {dir / "backup.plist", PropertyList::Kind::deviceBackup, std::nullopt},
      {dir / "missing.plist", PropertyList::Kind::metadata, Reason::missing},
      {dir / "fifo.plist", PropertyList::Kind::metadata, Reason::notAFile},
      {dir.path(), PropertyList::Kind::metadata, Reason::notAFile},
      {dir / "array.plist", PropertyList::Kind::metadata, Reason::notADictionary},
  };
  for (const auto& [file, kind, failure] : cases) {
    SCOPED_TRACE(file.string());
    try {
      PropertyList::readDictionary(file, kind);
      EXPECT_EQ(failure, std::nullopt);
    } catch (const PropertyListError& error) {
      EXPECT_EQ(error.reason(), failure);
      EXPECT_NE(std::string(error.what()).find(file.string()), std::string::npos) << error.what();
    }
  }
}

}  // namespace
}  // namespace tw
