#include "app/Appcast.h"

#include <cctype>
#include <cstdint>
#include <memory>

#include "platform/Error.h"

namespace tw {
namespace {

// The few XML constructs a feed uses: elements with attributes, text, CDATA, character and the
// five named entity references; comments, processing instructions and the doctype are skipped.
// Enough for RSS, and strict about nesting so that a truncated download is reported.
struct Element {
  std::string name;
  std::vector<std::pair<std::string, std::string>> attributes;
  std::vector<std::unique_ptr<Element>> children;
  std::string text;

  const Element* child(std::string_view childName) const {
    for (const auto& element : children) {
      if (element->name == childName) return element.get();
    }
    return nullptr;
  }
  std::string attribute(std::string_view attributeName) const {
    for (const auto& [key, value] : attributes) {
      if (key == attributeName) return value;
    }
    return {};
  }
  std::string childText(std::string_view childName) const {
    const Element* element = child(childName);
    return element ? element->text : std::string();
  }
};

constexpr int kMaximumDepth = 64;

class XmlReader {
 public:
  explicit XmlReader(std::string_view text) : text_(text) {}

  std::unique_ptr<Element> document() {
    skipMisc();
    if (!lookingAt("<")) fail("no root element");
    auto root = element(0);
    skipMisc();
    if (position_ != text_.size()) fail("text after the root element");
    return root;
  }

 private:
  [[noreturn]] void fail(const std::string& what) const {
    throw Error("The update feed is not valid XML (" + what + " at byte " + std::to_string(position_) + ")");
  }

  bool lookingAt(std::string_view token) const { return text_.substr(position_, token.size()) == token; }

  void skipPast(std::string_view terminator) {
    auto end = text_.find(terminator, position_);
    if (end == std::string_view::npos) fail("unterminated markup");
    position_ = end + terminator.size();
  }

  void skipSpace() {
    while (position_ < text_.size() && std::isspace(static_cast<unsigned char>(text_[position_]))) ++position_;
  }

  // White space, comments, processing instructions and the doctype between elements.
  void skipMisc() {
    for (;;) {
      skipSpace();
      if (lookingAt("<?")) {
        skipPast("?>");
      } else if (lookingAt("<!--")) {
        skipPast("-->");
      } else if (lookingAt("<!DOCTYPE") || lookingAt("<!doctype")) {
        skipPast(">");
      } else {
        return;
      }
    }
  }

  std::string name() {
    size_t start = position_;
    while (position_ < text_.size()) {
      unsigned char c = static_cast<unsigned char>(text_[position_]);
      if (std::isspace(c) || c == '>' || c == '/' || c == '=' || c == '<') break;
      ++position_;
    }
    if (position_ == start) fail("a name is missing");
    return std::string(text_.substr(start, position_ - start));
  }

  void appendUtf8(std::string& out, uint32_t code) {
    if (code == 0 || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) fail("a bad character reference");
    if (code < 0x80) {
      out += static_cast<char>(code);
    } else if (code < 0x800) {
      out += static_cast<char>(0xC0 | (code >> 6));
      out += static_cast<char>(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
      out += static_cast<char>(0xE0 | (code >> 12));
      out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (code & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | (code >> 18));
      out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
      out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (code & 0x3F));
    }
  }

  // Text up to `stop`, with references replaced.
  std::string characters(char stop) {
    std::string out;
    while (position_ < text_.size() && text_[position_] != stop) {
      char c = text_[position_];
      if (stop != '<' && c == '<') fail("'<' inside an attribute");
      if (c != '&') {
        out += c;
        ++position_;
        continue;
      }
      auto end = text_.find(';', position_);
      if (end == std::string_view::npos || end - position_ > 12) fail("an unterminated reference");
      std::string_view reference = text_.substr(position_ + 1, end - position_ - 1);
      position_ = end + 1;
      if (reference == "amp")
        out += '&';
      else if (reference == "lt")
        out += '<';
      else if (reference == "gt")
        out += '>';
      else if (reference == "quot")
        out += '"';
      else if (reference == "apos")
        out += '\'';
      else if (reference.size() > 1 && reference[0] == '#') {
        bool hex = reference[1] == 'x' || reference[1] == 'X';
        std::string digits(reference.substr(hex ? 2 : 1));
        if (digits.empty() ||
            digits.find_first_not_of(hex ? "0123456789abcdefABCDEF" : "0123456789") != std::string::npos)
          fail("a bad character reference");
        appendUtf8(out, static_cast<uint32_t>(std::stoul(digits, nullptr, hex ? 16 : 10)));
      } else {
        fail("an unknown entity &" + std::string(reference) + ";");
      }
    }
    return out;
  }

  std::unique_ptr<Element> element(int depth) {
    if (depth > kMaximumDepth) fail("elements nested too deeply");
    ++position_;  // '<'
    auto result = std::make_unique<Element>();
    result->name = name();
    for (;;) {
      skipSpace();
      if (position_ >= text_.size()) fail("an unterminated start tag");
      if (lookingAt("/>")) {
        position_ += 2;
        return result;
      }
      if (lookingAt(">")) {
        ++position_;
        break;
      }
      std::string key = name();
      skipSpace();
      if (!lookingAt("=")) fail("an attribute without a value");
      ++position_;
      skipSpace();
      if (position_ >= text_.size() || (text_[position_] != '"' && text_[position_] != '\''))
        fail("an unquoted attribute");
      char quote = text_[position_++];
      std::string value = characters(quote);
      if (position_ >= text_.size()) fail("an unterminated attribute");
      ++position_;
      result->attributes.emplace_back(std::move(key), std::move(value));
    }
    for (;;) {
      if (position_ >= text_.size()) fail("<" + result->name + "> is not closed");
      if (lookingAt("</")) {
        position_ += 2;
        if (name() != result->name) fail("</...> does not match <" + result->name + ">");
        skipSpace();
        if (!lookingAt(">")) fail("an unterminated end tag");
        ++position_;
        return result;
      }
      if (lookingAt("<![CDATA[")) {
        position_ += 9;
        auto end = text_.find("]]>", position_);
        if (end == std::string_view::npos) fail("an unterminated CDATA section");
        result->text += text_.substr(position_, end - position_);
        position_ = end + 3;
      } else if (lookingAt("<!--")) {
        skipPast("-->");
      } else if (lookingAt("<?")) {
        skipPast("?>");
      } else if (lookingAt("<")) {
        result->children.push_back(element(depth + 1));
      } else {
        result->text += characters('<');
      }
    }
  }

  std::string_view text_;
  size_t position_ = 0;
};

std::string trimmed(std::string text) {
  auto isSpace = [](char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; };
  while (!text.empty() && isSpace(text.back())) text.pop_back();
  size_t start = 0;
  while (start < text.size() && isSpace(text[start])) ++start;
  return text.substr(start);
}

enum class RunKind { number, letters, separator };

RunKind kindOf(char c) {
  if (std::isdigit(static_cast<unsigned char>(c))) return RunKind::number;
  if (c == '.' || c == '-' || c == '_' || c == '+' || std::isspace(static_cast<unsigned char>(c)))
    return RunKind::separator;
  return RunKind::letters;
}

std::vector<std::pair<RunKind, std::string>> runsOf(std::string_view version) {
  std::vector<std::pair<RunKind, std::string>> runs;
  for (char c : version) {
    RunKind kind = kindOf(c);
    if (!runs.empty() && runs.back().first == kind && kind != RunKind::separator) {
      runs.back().second += c;
    } else {
      runs.emplace_back(kind, std::string(1, c));
    }
  }
  return runs;
}

int compareNumbers(const std::string& a, const std::string& b) {
  size_t i = a.find_first_not_of('0');
  size_t j = b.find_first_not_of('0');
  std::string_view x = i == std::string::npos ? std::string_view() : std::string_view(a).substr(i);
  std::string_view y = j == std::string::npos ? std::string_view() : std::string_view(b).substr(j);
  if (x.size() != y.size()) return x.size() < y.size() ? -1 : 1;
  return x.compare(y) < 0 ? -1 : x.compare(y) > 0 ? 1 : 0;
}

}  // namespace

int compareVersions(std::string_view a, std::string_view b) {
  auto left = runsOf(a);
  auto right = runsOf(b);
  size_t count = std::min(left.size(), right.size());
  for (size_t i = 0; i < count; ++i) {
    const auto& [leftKind, leftText] = left[i];
    const auto& [rightKind, rightText] = right[i];
    if (leftKind == rightKind) {
      int order = leftKind == RunKind::number    ? compareNumbers(leftText, rightText)
                  : leftKind == RunKind::letters ? leftText.compare(rightText)
                                                 : 0;
      if (order != 0) return order < 0 ? -1 : 1;
      continue;
    }
    // 1.0.1 > 1.0b: a number where the other has letters or a separator is the later release.
    if (leftKind == RunKind::number) return 1;
    if (rightKind == RunKind::number) return -1;
    // "1.0" against "1.0b": the separator side continues the release, letters mark a pre-release.
    return leftKind == RunKind::letters ? -1 : 1;
  }
  if (left.size() == right.size()) return 0;
  // The longer version continues the shorter one: newer, unless it goes on with a pre-release tag.
  const auto& longer = left.size() > right.size() ? left : right;
  RunKind next = longer[count].first;
  bool longerIsNewer = next != RunKind::letters;
  if (next == RunKind::separator && count + 1 < longer.size())
    longerIsNewer = longer[count + 1].first == RunKind::number;
  bool leftIsLonger = left.size() > right.size();
  return (longerIsNewer == leftIsLonger) ? 1 : -1;
}

std::vector<AppcastItem> parseAppcast(std::string_view xml) {
  if (trimmed(std::string(xml)).empty()) throw Error("The update feed is empty");
  auto root = XmlReader(xml).document();
  if (root->name != "rss") throw Error("The update feed is not an RSS feed (its root is <" + root->name + ">)");
  const Element* channel = root->child("channel");
  if (!channel) throw Error("The update feed has no channel");

  std::vector<AppcastItem> items;
  for (const auto& element : channel->children) {
    if (element->name != "item") continue;
    const Element* enclosure = element->child("enclosure");
    AppcastItem item;
    item.title = trimmed(element->childText("title"));
    item.version = trimmed(element->childText("sparkle:version"));
    if (item.version.empty() && enclosure) item.version = trimmed(enclosure->attribute("sparkle:version"));
    item.shortVersion = trimmed(element->childText("sparkle:shortVersionString"));
    if (item.shortVersion.empty() && enclosure)
      item.shortVersion = trimmed(enclosure->attribute("sparkle:shortVersionString"));
    if (item.shortVersion.empty()) item.shortVersion = item.version;
    item.releaseNotesLink = trimmed(element->childText("sparkle:releaseNotesLink"));
    item.downloadLink = trimmed(element->childText("link"));
    if (item.downloadLink.empty() && enclosure) item.downloadLink = trimmed(enclosure->attribute("url"));
    if (enclosure) item.os = trimmed(enclosure->attribute("sparkle:os"));
    if (item.version.empty()) {
      throw Error("The update feed has an item without a version (" + (item.title.empty() ? "untitled" : item.title) +
                  ")");
    }
    items.push_back(std::move(item));
  }
  return items;
}

std::optional<AppcastItem> newestItem(const std::vector<AppcastItem>& items, std::string_view os) {
  std::optional<AppcastItem> newest;
  for (const auto& item : items) {
    if (!item.os.empty() && item.os != os) continue;
    if (!newest || compareVersions(item.version, newest->version) > 0) newest = item;
  }
  return newest;
}

}  // namespace tw
