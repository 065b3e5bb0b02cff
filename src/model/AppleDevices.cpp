#include "model/AppleDevices.h"

#include <system_error>

#include "app/Logger.h"
#include "platform/CsvReader.h"
#include "platform/Error.h"
#include "platform/Host.h"

namespace tw {
namespace {

constexpr std::string_view fileName = "device_identifiers.csv";

std::string trimmedName(const std::string& text) {
  // White space and line breaks, as a quoted cell may hold them.
  const char* blanks = " \t\n\r\f\v";
  auto first = text.find_first_not_of(blanks);
  if (first == std::string::npos) return {};
  auto last = text.find_last_not_of(blanks);
  return text.substr(first, last - first + 1);
}

}  // namespace

AppleDevices AppleDevices::fromFile(const std::filesystem::path& file) {
  AppleDevices devices;
  std::error_code error;
  if (!std::filesystem::exists(file, error)) {
    log::warning("AppleDevices: device_identifiers.csv missing in bundle.");
    return devices;
  }
  try {
    CsvTable table = CsvTable::readFile(file);
    auto identifierColumn = table.columnIndex("identifier");
    auto nameColumn = table.columnIndex("name");
    if (!identifierColumn || !nameColumn) {
      throw Error(std::string("the header has no \"") + (identifierColumn ? "name" : "identifier") + "\" column");
    }
    for (size_t row = 0; row < table.rowCount(); ++row) {
      auto identifier = table.text(row, *identifierColumn);
      if (!identifier) continue;
      auto nameCell = table.text(row, *nameColumn);
      std::string name = nameCell ? trimmedName(*nameCell) : std::string();
      if (name.empty()) name = *identifier;
      devices.names_.insert_or_assign(std::move(*identifier), std::move(name));
    }
  } catch (const std::exception& failure) {
    log::error("AppleDevices: Unable to load device_identifiers.csv: " + std::string(failure.what()));
    devices.names_.clear();
  }
  return devices;
}

const AppleDevices& AppleDevices::shared() {
  static const AppleDevices table = [] {
    const Host& host = Host::current();
    // Outside a bundle there are no resources; a relative path would read whatever the working
    // folder happens to hold.
    if (host.bundle.empty()) {
      log::warning("AppleDevices: device_identifiers.csv missing in bundle.");
      return AppleDevices();
    }
    return fromFile(host.resourcesDirectory() / fileName);
  }();
  return table;
}

std::string AppleDevices::name(std::string_view identifier) { return shared().lookup(identifier); }

std::string AppleDevices::lookup(std::string_view identifier) const {
  if (identifier.empty()) return "Unknown Device";
  auto found = names_.find(std::string(identifier));
  return found != names_.end() ? found->second : std::string(identifier);
}

}  // namespace tw
