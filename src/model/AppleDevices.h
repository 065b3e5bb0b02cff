// Marketing names of Apple hardware model identifiers ("iPhone16,2" → "iPhone 15 Pro Max"),
// read from the table device_identifiers.csv in the application's resources the first time a
// name is needed. Device-support folders and device logs are named after such identifiers.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <unordered_map>

namespace tw {

class AppleDevices {
 public:
  // The marketing name from the bundle's table: "Unknown Device" for an empty identifier, the
  // identifier itself when the table does not know it (or could not be read).
  static std::string name(std::string_view identifier);

  // The table of the bundle, read once for the life of the process (thread-safe).
  static const AppleDevices& shared();

  // Reads a table file with columns "identifier" and "name". A missing or unreadable file logs
  // a line and gives an empty table; it never throws.
  static AppleDevices fromFile(const std::filesystem::path& file);

  // The same lookup rules as name(), on this table.
  std::string lookup(std::string_view identifier) const;
  size_t size() const { return names_.size(); }

 private:
  friend class ScopedAppleDevices;
  std::unordered_map<std::string, std::string> names_;
};

// Makes name() and shared() answer from the given table for the lifetime of the object, so that
// tests see device names without a bundle. Not for use while other threads look names up.
class ScopedAppleDevices {
 public:
  explicit ScopedAppleDevices(AppleDevices table);
  ~ScopedAppleDevices();
  ScopedAppleDevices(const ScopedAppleDevices&) = delete;
  ScopedAppleDevices& operator=(const ScopedAppleDevices&) = delete;

 private:
  AppleDevices table_;
  const AppleDevices* previous_;
};

}  // namespace tw
