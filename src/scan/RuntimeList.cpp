#include "scan/RuntimeList.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>
#include <numeric>
#include <unordered_map>

namespace tw::simulators {
namespace {

using Json = nlohmann::json;

// Events of the JSON parser turned into records directly, without building the document: the
// insertion-ordered document type looks every key up linearly, which made long listings
// quadratic, and the sorted one loses the tool's order.
class RuntimeListReader final : public nlohmann::json_sax<Json> {
 public:
  std::vector<RuntimeRecord> records;
  bool wellFormed = true;

  bool null() override { return scalar(); }
  bool boolean(bool value) override {
    if (depth_ == kFieldDepth && field_ == Field::deletable) current().deletable = value;
    return scalar();
  }
  bool number_integer(number_integer_t value) override { return count(value); }
  bool number_unsigned(number_unsigned_t value) override {
    if (value > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) return scalar();
    return count(static_cast<int64_t>(value));
  }
  bool number_float(number_float_t value, const string_t&) override {
    const double whole = std::trunc(value);
    // -2^63 is the smallest double in range, 2^63 the first one beyond it.
    if (!std::isfinite(whole) || whole < -9223372036854775808.0 || whole >= 9223372036854775808.0) return scalar();
    return count(static_cast<int64_t>(whole));
  }
  bool string(string_t& value) override {
    if (depth_ == kFieldDepth) {
      if (auto* text = textField()) *text = std::move(value);
    }
    return scalar();
  }
  bool binary(binary_t&) override { return scalar(); }

  bool start_object(std::size_t) override {
    if (depth_ == kFieldDepth) field_ = Field::other;  // a nested object is no field value
    ++depth_;
    return true;
  }
  bool key(string_t& name) override {
    if (depth_ == kRecordDepth) startRecord(std::move(name));
    if (depth_ == kFieldDepth) startField(name);
    return true;
  }
  bool end_object() override {
    --depth_;
    return true;
  }
  bool start_array(std::size_t) override {
    if (depth_ < kFieldDepth) return fail();  // the listing or a record is no object
    if (depth_ == kFieldDepth) field_ = Field::other;
    ++depth_;
    return true;
  }
  bool end_array() override {
    --depth_;
    return true;
  }
  bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) override { return fail(); }

 private:
  // Depth counts the objects and arrays open around a value: keys of the listing's object
  // name records, keys inside a record name its fields.
  static constexpr int kRecordDepth = 1;
  static constexpr int kFieldDepth = 2;
  enum class Field { runtimeIdentifier, version, build, path, sizeBytes, deletable, other };

  bool fail() {
    wellFormed = false;
    return false;
  }
  // A value without a container, or a record that is no object, spoils the listing.
  bool scalar() { return depth_ >= kFieldDepth || fail(); }

  bool count(int64_t value) {
    if (depth_ == kFieldDepth && field_ == Field::sizeBytes) current().sizeBytes = value;
    return scalar();
  }

  RuntimeRecord& current() { return records[current_]; }

  void startRecord(std::string name) {
    records.push_back(RuntimeRecord{.imageIdentifier = std::move(name)});
    current_ = records.size() - 1;
  }

  // The value given last counts, so a field starts over at each of its keys.
  void startField(const std::string& name) {
    static const std::unordered_map<std::string_view, Field> fields{{"runtimeIdentifier", Field::runtimeIdentifier},
                                                                    {"version", Field::version},
                                                                    {"build", Field::build},
                                                                    {"path", Field::path},
                                                                    {"sizeBytes", Field::sizeBytes},
                                                                    {"deletable", Field::deletable}};
    auto found = fields.find(name);
    field_ = found == fields.end() ? Field::other : found->second;
    if (auto* text = textField()) text->reset();
    if (field_ == Field::sizeBytes) current().sizeBytes.reset();
    if (field_ == Field::deletable) current().deletable.reset();
  }

  std::optional<std::string>* textField() {
    switch (field_) {
      case Field::runtimeIdentifier:
        return &current().runtimeIdentifier;
      case Field::version:
        return &current().version;
      case Field::build:
        return &current().build;
      case Field::path:
        return &current().path;
      case Field::sizeBytes:
      case Field::deletable:
      case Field::other:
        return nullptr;
    }
    return nullptr;
  }

  int depth_ = 0;
  Field field_ = Field::other;
  size_t current_ = 0;
};

// A key given twice is one record, at its first place, holding the value given last. Such
// keys are rare, so they are looked for once the text is read, by sorting the positions by
// key, rather than with a lookup per record.
void mergeRepeatedKeys(std::vector<RuntimeRecord>& records) {
  std::vector<size_t> byKey(records.size());
  std::iota(byKey.begin(), byKey.end(), size_t{0});
  std::stable_sort(byKey.begin(), byKey.end(),
                   [&](size_t a, size_t b) { return records[a].imageIdentifier < records[b].imageIdentifier; });
  std::vector<bool> dropped(records.size(), false);
  bool anyDropped = false;
  for (size_t begin = 0, end = 0; begin < byKey.size(); begin = end) {
    end = begin + 1;
    while (end < byKey.size() && records[byKey[end]].imageIdentifier == records[byKey[begin]].imageIdentifier) ++end;
    if (end - begin == 1) continue;
    records[byKey[begin]] = std::move(records[byKey[end - 1]]);
    for (size_t later = begin + 1; later < end; ++later) dropped[byKey[later]] = true;
    anyDropped = true;
  }
  if (!anyDropped) return;
  size_t kept = 0;
  for (size_t index = 0; index < records.size(); ++index) {
    if (dropped[index]) continue;
    if (kept != index) records[kept] = std::move(records[index]);
    ++kept;
  }
  records.resize(kept);
}

}  // namespace

std::optional<std::vector<RuntimeRecord>> readRuntimeList(std::string_view json) {
  RuntimeListReader reader;
  const bool parsed = Json::sax_parse(json.begin(), json.end(), &reader);
  if (!parsed || !reader.wellFormed) return std::nullopt;
  mergeRepeatedKeys(reader.records);
  return std::move(reader.records);
}

}  // namespace tw::simulators
