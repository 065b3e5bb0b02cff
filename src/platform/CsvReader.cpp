#include "platform/CsvReader.h"

#include <fcntl.h>
#include <unicode/utf8.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>

#include "platform/Error.h"

namespace tw {
namespace {

// Tables are small resources; anything larger is not a table we should hold in memory.
constexpr size_t maximumFileSize = 64 * 1024 * 1024;

struct Field {
  std::string text;
  bool quoted = false;
};

struct Record {
  std::vector<Field> fields;
  size_t line = 0;
};

bool isBlankLine(const Record& record) {
  if (record.fields.size() != 1 || record.fields[0].quoted) return false;
  return record.fields[0].text.find_first_not_of(" \t") == std::string::npos;
}

std::vector<Record> splitRecords(std::string_view text) {
  std::vector<Record> records;
  Record record;
  Field field;
  size_t line = 1;
  record.line = line;
  size_t i = 0;
  bool fieldStarted = false;  // distinguishes an empty line from a line with one empty field

  auto endField = [&] {
    record.fields.push_back(std::move(field));
    field = Field{};
  };
  auto endRecord = [&] {
    if (fieldStarted || !record.fields.empty()) {
      endField();
      if (!isBlankLine(record)) records.push_back(std::move(record));
    }
    record = Record{};
    record.line = line;
    fieldStarted = false;
  };
  auto consumeLineBreak = [&](size_t at) {  // returns the index after the break
    size_t next = at + 1;
    if (text[at] == '\r' && next < text.size() && text[next] == '\n') ++next;
    ++line;
    return next;
  };

  while (i < text.size()) {
    char c = text[i];
    if (c == '"' && field.text.empty() && !field.quoted) {
      // A quoted field: runs to the next lone quote, across commas and line breaks.
      field.quoted = true;
      fieldStarted = true;
      size_t openedOnLine = line;
      ++i;
      for (;;) {
        if (i >= text.size()) {
          throw Error("unterminated quoted field starting on line " + std::to_string(openedOnLine));
        }
        if (text[i] == '"') {
          if (i + 1 < text.size() && text[i + 1] == '"') {
            field.text += '"';
            i += 2;
            continue;
          }
          ++i;
          break;
        }
        if (text[i] == '\n' || text[i] == '\r') {
          size_t next = consumeLineBreak(i);
          field.text.append(text.substr(i, next - i));
          i = next;
          continue;
        }
        field.text += text[i++];
      }
      if (i < text.size() && text[i] != ',' && text[i] != '\n' && text[i] != '\r') {
        throw Error("unexpected text after a closing quote on line " + std::to_string(line));
      }
      continue;
    }
    if (c == '"') throw Error("misplaced quote inside an unquoted field on line " + std::to_string(line));
    if (c == ',') {
      endField();
      fieldStarted = true;
      ++i;
      continue;
    }
    if (c == '\n' || c == '\r') {
      i = consumeLineBreak(i);
      endRecord();
      continue;
    }
    field.text += c;
    fieldStarted = true;
    ++i;
  }
  endRecord();
  return records;
}

bool isValidUtf8(std::string_view text) {
  int32_t i = 0;
  const auto length = static_cast<int32_t>(text.size());
  while (i < length) {
    UChar32 c = 0;
    U8_NEXT(text.data(), i, length, c);
    if (c < 0) return false;
  }
  return true;
}

bool isBooleanWord(std::string_view cell) {
  static constexpr std::array<std::string_view, 8> words = {"1", "True",  "TRUE",  "true",
                                                            "0", "False", "FALSE", "false"};
  for (auto word : words) {
    if (cell == word) return true;
  }
  return false;
}

bool isInteger(std::string_view cell) {
  if (!cell.empty() && cell.front() == '+') cell.remove_prefix(1);
  int64_t value = 0;
  auto [end, error] = std::from_chars(cell.data(), cell.data() + cell.size(), value);
  return !cell.empty() && error == std::errc() && end == cell.data() + cell.size();
}

bool isDecimal(std::string_view cell) {
  if (!cell.empty() && cell.front() == '+') cell.remove_prefix(1);
  double value = 0;
  auto [end, error] = std::from_chars(cell.data(), cell.data() + cell.size(), value);
  return !cell.empty() && error == std::errc() && end == cell.data() + cell.size();
}

}  // namespace

bool CsvTable::isMissingValueWord(std::string_view cell) {
  static constexpr std::array<std::string_view, 10> words = {"",   "#N/A", "#N/A N/A", "#NA", "N/A",
                                                             "NA", "NULL", "n/a",      "nil", "null"};
  for (auto word : words) {
    if (cell == word) return true;
  }
  return false;
}

CsvTable CsvTable::parse(std::string_view text) {
  if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
  if (!isValidUtf8(text)) throw Error("the file is not UTF-8 text");

  std::vector<Record> records = splitRecords(text);
  CsvTable table;
  if (records.empty()) return table;

  for (auto& field : records.front().fields) table.columnNames_.push_back(std::move(field.text));
  const size_t columnCount = table.columnNames_.size();
  for (size_t r = 1; r < records.size(); ++r) {
    auto& record = records[r];
    if (record.fields.size() != columnCount) {
      auto fields = [](size_t count) { return std::to_string(count) + (count == 1 ? " field" : " fields"); };
      throw Error("line " + std::to_string(record.line) + " has " + fields(record.fields.size()) + ", the header has " +
                  std::to_string(columnCount));
    }
    std::vector<std::optional<std::string>> row;
    row.reserve(columnCount);
    for (auto& field : record.fields) {
      if (isMissingValueWord(field.text)) {
        row.emplace_back(std::nullopt);
      } else {
        row.emplace_back(std::move(field.text));
      }
    }
    table.rows_.push_back(std::move(row));
  }

  for (size_t column = 0; column < columnCount; ++column) {
    bool anyValue = false, allIntegers = true, allBooleans = true, allDecimals = true;
    for (const auto& row : table.rows_) {
      if (!row[column]) continue;
      anyValue = true;
      const std::string& cell = *row[column];
      allIntegers = allIntegers && isInteger(cell);
      allBooleans = allBooleans && isBooleanWord(cell);
      allDecimals = allDecimals && isDecimal(cell);
    }
    ColumnType type = ColumnType::text;
    if (anyValue && allIntegers) {
      type = ColumnType::integer;
    } else if (anyValue && allBooleans) {
      type = ColumnType::boolean;
    } else if (anyValue && allDecimals) {
      type = ColumnType::decimal;
    }
    table.columnTypes_.push_back(type);
  }
  return table;
}

CsvTable CsvTable::readFile(const std::filesystem::path& file) {
  int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    int code = errno;
    throw FileSystemError("cannot open " + file.string() + ": " + std::strerror(code), code, file);
  }
  std::string contents;
  std::array<char, 64 * 1024> buffer{};
  for (;;) {
    ssize_t count = ::read(fd, buffer.data(), buffer.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) {
      int code = errno;
      ::close(fd);
      throw FileSystemError("cannot read " + file.string() + ": " + std::strerror(code), code, file);
    }
    if (count == 0) break;
    contents.append(buffer.data(), static_cast<size_t>(count));
    if (contents.size() > maximumFileSize) {
      ::close(fd);
      throw FileSystemError(file.string() + " is larger than a table can be", EFBIG, file);
    }
  }
  ::close(fd);
  return parse(contents);
}

std::optional<size_t> CsvTable::columnIndex(std::string_view name) const {
  for (size_t i = 0; i < columnNames_.size(); ++i) {
    if (columnNames_[i] == name) return i;
  }
  return std::nullopt;
}

std::optional<std::string> CsvTable::text(size_t row, size_t column) const {
  if (columnTypes_[column] != ColumnType::text) return std::nullopt;
  return rows_[row][column];
}

}  // namespace tw
