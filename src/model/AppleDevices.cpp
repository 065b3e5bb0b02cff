#include "model/AppleDevices.h"

#include <atomic>
#include <system_error>

#include "platform/Log.h"
#include "platform/CsvReader.h"
#include "platform/Error.h"
#include "platform/Host.h"
#include "platform/Text.h"

namespace tw {
namespace {

constexpr std::string_view fileName = "device_identifiers.csv";

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
      std::string name = nameCell ? trimmedWhiteSpaceAndNewlines(*nameCell) : std::string();
      if (name.empty()) name = *identifier;
      devices.names_.insert_or_assign(std::move(*identifier), std::move(name));
    }
  } catch (const std::exception& failure) {
    log::error("AppleDevices: Unable to load device_identifiers.csv: " + std::string(failure.what()));
    devices.names_.clear();
  }
  return devices;
}

namespace {

std::atomic<const AppleDevices*> installedTable{nullptr};

}  // namespace

const AppleDevices& AppleDevices::shared() {
  if (const AppleDevices* installed = installedTable.load(std::memory_order_acquire)) return *installed;
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

ScopedAppleDevices::ScopedAppleDevices(AppleDevices table)
    : table_(std::move(table)), previous_(installedTable.exchange(&table_, std::memory_order_acq_rel)) {}

ScopedAppleDevices::~ScopedAppleDevices() { installedTable.store(previous_, std::memory_order_release); }

}  // namespace tw
