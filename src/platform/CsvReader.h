// Reading comma-separated tables the way the platform's tabular-data reader does: a header row,
// fields in double quotes (a doubled quote inside stands for one), no backslash escapes, empty
// lines ignored, a set of words that mean "no value", and a type inferred for every column, so a
// caller can tell a text cell from a number or a boolean.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tw {

class CsvTable {
 public:
  enum class ColumnType { text, boolean, integer, decimal };

  // Parses a whole file or text. Throws tw::Error for an unreadable file, unbalanced quotes,
  // a row with another number of fields than the header, or text that is not UTF-8.
  static CsvTable readFile(const std::filesystem::path& file);
  static CsvTable parse(std::string_view text);

  const std::vector<std::string>& columnNames() const { return columnNames_; }
  // Index of the first column with this header name.
  std::optional<size_t> columnIndex(std::string_view name) const;
  ColumnType columnType(size_t column) const { return columnTypes_[column]; }
  size_t rowCount() const { return rows_.size(); }
  // The raw cell; absent when it is empty or one of the "no value" words.
  const std::optional<std::string>& cell(size_t row, size_t column) const { return rows_[row][column]; }
  // The cell when its column holds text; absent otherwise.
  std::optional<std::string> text(size_t row, size_t column) const;

  // "", "#N/A", "NULL", "n/a", "nil", ...: cells that hold no value.
  static bool isMissingValueWord(std::string_view cell);

 private:
  std::vector<std::string> columnNames_;
  std::vector<ColumnType> columnTypes_;
  std::vector<std::vector<std::optional<std::string>>> rows_;
};

}  // namespace tw
