// The deletion engine's work list: the ticked part of the entry tree flattened into units,
// one per path of a ticked node (or one without a path for nodes that delete by other
// means). DevFiles::deleteSelected walks it; the list is public so that it can be inspected
// without deleting anything.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "model/CleanupEntry.h"

namespace tw {

class DevFiles;

struct DeletionItem {
  CleanupEntryPtr entry;
  std::string locationLabel;
  std::string itemDescription;
  std::optional<std::filesystem::path> url;
};

// Every unit of work under the ticked location entries, location by location in declaration
// order, each location depth first with the last child visited first.
std::vector<DeletionItem> makeDeletionList(const DevFiles& devFiles);

// The same walk over one location entry.
void appendDeletionItems(const CleanupEntryPtr& locationEntry, std::vector<DeletionItem>& list);

// The log line written before each unit.
std::string deletionLogLine(const DeletionItem& item, bool dryRun);

}  // namespace tw
