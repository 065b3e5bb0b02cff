// The deletion engine: the ticked part of a scan driver's tree flattened into units, one per
// path of a ticked node (or one without a path for nodes that delete by other means), deleted
// one by one with progress and failures reported to the driver's delete delegate. The list is
// public so that it can be inspected without deleting anything.
#pragma once

#include <filesystem>
#include <optional>
#include <stop_token>
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

// Deletes every unit (or, in a dry run, only logs and pauses), reporting each to the driver's
// delete delegate on this thread; a failed unit is reported and the run goes on. A stop
// request ends the run between two units, never inside one; deleteFinished still follows.
void deleteSelected(DevFiles& devFiles, bool dryRun, std::stop_token stop = {});

// The log line written before each unit.
std::string deletionLogLine(const DeletionItem& item, bool dryRun);

}  // namespace tw
