#include "clean/DeletionEngine.h"

#include <cassert>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <string>

#include "app/Logger.h"
#include "platform/Error.h"
#include "scan/DevFiles.h"

namespace tw {
namespace {

// A dry run pauses per unit so that the progress a user watches looks like a real run.
constexpr auto kDryRunPause = std::chrono::milliseconds(150);

}  // namespace

namespace {

bool holdsTickedEntry(const CleanupEntry& entry) {
  std::vector<const CleanupEntry*> stack{&entry};
  while (!stack.empty()) {
    const CleanupEntry* node = stack.back();
    stack.pop_back();
    if (node->selection() != CleanupEntry::Selection::off) return true;
    for (const auto& item : node->items()) stack.push_back(item.get());
  }
  return false;
}

}  // namespace

void appendDeletionItems(const CleanupEntryPtr& locationEntry, std::vector<DeletionItem>& list) {
  // An unticked location is skipped whole. That is only right while the tree's selections are
  // consistent: a caller that ticks an item without recomputing its ancestors (what
  // CleanupEntry::changeSelection does) would lose that item here without a word, so debug
  // builds insist on it.
  if (locationEntry->selection() == CleanupEntry::Selection::off) {
    assert(!holdsTickedEntry(*locationEntry) && "a ticked item under an unticked location");
    return;
  }
  const std::string locationLabel = locationEntry->label();

  // An explicit stack: trees of project build folders can be deep, and the order (last child
  // first) is what users see in the progress list.
  std::vector<CleanupEntryPtr> stack{locationEntry};
  while (!stack.empty()) {
    CleanupEntryPtr node = std::move(stack.back());
    stack.pop_back();
    if (node->selection() != CleanupEntry::Selection::off && node->hasPaths()) {
      const auto& paths = node->paths();
      if (paths.empty()) {
        list.push_back({node, locationLabel, node->itemDescription(), std::nullopt});
      } else {
        const std::string description = node->itemDescription();
        for (const auto& path : paths) list.push_back({node, locationLabel, description, path});
      }
    }
    // An unticked node may still hold ticked children.
    for (const auto& child : node->items()) stack.push_back(child);
  }
}

std::vector<DeletionItem> makeDeletionList(const DevFiles& devFiles) {
  std::vector<DeletionItem> list;
  for (const auto& [location, entry] : devFiles.locations()) appendDeletionItems(entry, list);
  return list;
}

std::string deletionLogLine(const DeletionItem& item, bool dryRun) {
  std::string line = "Deleting ";
  if (dryRun) line += "[DRY RUN!]";
  line += ": " + item.locationLabel + ": " + item.itemDescription + " (";
  line += item.url ? item.url->string() : std::string("-");
  line += ")";
  return line;
}

int64_t DevFiles::selectedSize() const {
  int64_t total = 0;
  for (const auto& [location, entry] : locations_) total = addSizes(total, entry->selectedSize());
  return total;
}

void DevFiles::deleteSelected(bool dryRun, std::stop_token stop) {
  if (auto delegate = deleteDelegate()) delegate->deleteStarted(*this);

  const std::vector<DeletionItem> list = makeDeletionList(*this);
  const size_t count = list.size();
  for (size_t position = 0; position < count; ++position) {
    // Only between units: a folder is never left half removed by a stop.
    if (stop.stop_requested()) {
      log::info("DevFiles: Deletion stopped after " + std::to_string(position) + " of " + std::to_string(count) +
                " items");
      break;
    }
    const DeletionItem& item = list[position];
    if (auto delegate = deleteDelegate()) {
      delegate->deletingItem(*this, item.locationLabel, item.itemDescription, item.url, position + 1, count);
    }
    log::info(deletionLogLine(item, dryRun));
    if (dryRun) {
      // The pause ends early when the run is stopped.
      std::mutex mutex;
      std::condition_variable_any wake;
      std::unique_lock lock(mutex);
      wake.wait_for(lock, stop, kDryRunPause, [] { return false; });
      continue;
    }

    // Each unit stands alone: a failure is reported and the run goes on with the next one.
    auto reportFailure = [&](const std::exception& error) {
      if (auto delegate = deleteDelegate()) {
        delegate->deleteFailed(*this, error, item.locationLabel, item.itemDescription, item.url);
      }
    };
    try {
      item.entry->deleteItem(item.url);
    } catch (const std::exception& error) {
      reportFailure(error);
    } catch (...) {
      reportFailure(Error("Unknown error while deleting " + item.itemDescription));
    }
  }

  if (auto delegate = deleteDelegate()) delegate->deleteFinished(*this);
}

}  // namespace tw
