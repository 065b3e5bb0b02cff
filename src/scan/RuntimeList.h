// Reading the listing of "xcrun simctl runtime list -j": one JSON object whose values are the
// records of the runtime images, keyed by image identifier. Only the fields a scan uses are
// kept, in the tool's order, in one pass over the text, so that a listing of hundreds of
// thousands of records reads in time proportional to its length.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tw::simulators {

// One record. A field given with another type than the one shown counts as missing.
struct RuntimeRecord {
  std::string imageIdentifier;  // the record's key
  std::optional<std::string> runtimeIdentifier;
  std::optional<std::string> version;
  std::optional<std::string> build;
  std::optional<std::string> path;
  // Read as a signed 64-bit integer: a fraction is cut off toward zero, a negative count stays
  // negative; a number beyond that range cannot be read as one and counts as missing.
  std::optional<int64_t> sizeBytes;
  std::optional<bool> deletable;
};

// The records in the order of the text; a key given twice is one record at its first place
// holding the value given last. Absent when the text is no JSON object whose values are all
// objects.
std::optional<std::vector<RuntimeRecord>> readRuntimeList(std::string_view json);

}  // namespace tw::simulators
