#include "model/CleanupEntry.h"

#include <cstdio>
#include <cstdlib>
#include <mutex>

#include "fs/DirectorySize.h"
#include "fs/RemoveItem.h"
#include "platform/ByteCountFormatter.h"
#include "platform/Log.h"
#include "platform/Text.h"
#include "platform/ThreadPool.h"

namespace tw {
namespace {

// Measuring never fails a size calculation: what cannot be counted counts 0.
int64_t measuredOrZero(const std::filesystem::path& path, HardLinkTracker& tracker) {
  try {
    return measurePath(path, &tracker);
  } catch (const std::exception& failure) {
    log::warning("CleanupEntry: Cannot measure " + path.string() + ": " + failure.what());
    return 0;
  }
}

}  // namespace

std::strong_ordering CleanupEntry::Size::operator<=>(const Size& other) const {
  if (isUnknown() || other.isUnknown()) return !isUnknown() <=> !other.isUnknown();
  return *bytes_ <=> *other.bytes_;
}

CleanupEntry::CleanupEntry(std::string label, std::string extraInfo, std::optional<std::string> tooltipText,
                           std::optional<Icon> icon, bool tooltip, bool selected)
    : icon_(std::move(icon)),
      label_(std::move(label)),
      extraInfo_(std::move(extraInfo)),
      tooltipText_(trimmedWhiteSpaceAndNewlines(tooltipText ? *tooltipText : label_ + " " + extraInfo_)),
      tooltip_(tooltip),
      selection_(selected ? Selection::on : Selection::off) {}

std::string CleanupEntry::itemDescription() const { return label_ + " " + extraInfo_; }

int64_t CleanupEntry::selectedSize() const {
  int64_t total = 0;
  for (const auto& item : items()) total = addSizes(total, item->selectedSize());
  if (selection() == Selection::on && !paths().empty()) total = addSizes(total, size().bytesOrZero());
  return total;
}

void CleanupEntry::setPaths(std::vector<std::filesystem::path> paths) {
  paths_ = std::move(paths);
  measured_.reset();
}

void CleanupEntry::setItems(std::vector<CleanupEntryPtr> items) { items_ = std::move(items); }

size_t CleanupEntry::nonEmptyItemCount() const {
  size_t count = 0;
  for (const auto& item : items()) count += item->isEmpty() ? 0 : 1;
  return count;
}

bool CleanupEntry::isEmpty() const { return items().empty() && paths().empty(); }

bool CleanupEntry::hasPaths() const { return !paths().empty(); }

void CleanupEntry::addItem(const CleanupEntryPtr& entry) {
  if (!paths().empty() || !entry) return;
  // An entry that is not owned by a shared pointer can still hold children; they just have no
  // parent to point back to.
  entry->setParent(weak_from_this().lock());
  items_.push_back(entry);
}

void CleanupEntry::addItems(const std::vector<CleanupEntryPtr>& entries) {
  if (!paths().empty()) return;
  for (const auto& entry : entries) addItem(entry);
}

void CleanupEntry::removeAllItems() { items_.clear(); }

void CleanupEntry::addPath(const std::filesystem::path& path) {
  if (!items().empty()) return;
  paths_.push_back(path);
  measured_.reset();
}

void CleanupEntry::addPaths(const std::vector<std::filesystem::path>& paths) {
  for (const auto& path : paths) addPath(path);
}

void CleanupEntry::deleteItem(const std::optional<std::filesystem::path>& path) {
  if (path) removeItem(*path);
}

void CleanupEntry::select() {
  setSelection(Selection::on);
  for (const auto& item : items()) item->select();
}

void CleanupEntry::deselect() {
  setSelection(Selection::off);
  for (const auto& item : items()) item->deselect();
}

std::optional<CleanupEntry::Size> CleanupEntry::calculateSize() {
  HardLinkTracker tracker;
  return calculateSize(tracker);
}

// Each folder is walked once: the walks run in parallel, each with a tracker of its own, and the
// charging against the shared tracker runs in the items' order, so a file linked from two items
// is always charged to the first of them, whatever the threads' timing.
std::optional<CleanupEntry::Size> CleanupEntry::calculateSize(HardLinkTracker& tracker) {
  recordMeasurement();
  int64_t total = 0;
  for (const auto& item : items()) {
    auto result = item->calculateSize(tracker);
    if (result && !result->isUnknown()) total = addSizes(total, result->bytesOrZero());
  }
  if (measured_) total = addSizes(total, measured_->replay(tracker));
  setSize(Size::value(total));
  return size();
}

void CleanupEntry::recordMeasurement() {
  const auto& children = items();
  ThreadPool::shared().concurrentPerform(children.size(), [&](size_t index) { children[index]->recordMeasurement(); });
  recordOwnPaths();
}

void CleanupEntry::recordOwnPaths() {
  const auto& ownPaths = paths();
  if (measured_ || ownPaths.empty()) return;
  HardLinkTracker own;
  std::mutex totalMutex;
  auto record = std::make_shared<MeasurementRecord>();
  ThreadPool::shared().concurrentPerform(ownPaths.size(), [&](size_t index) {
    const int64_t bytes = measuredOrZero(ownPaths[index], own);
    std::lock_guard lock(totalMutex);
    record->total = addSizes(record->total, bytes);
  });
  record->linkedFiles = own.linkedFiles();
  measured_ = std::move(record);
}

std::optional<CleanupEntry::Size> CleanupEntry::updateSize() {
  HardLinkTracker tracker;
  int64_t total = 0;
  for (const auto& item : items()) {
    auto result = item->sizeOrCalculate(tracker);
    if (result && !result->isUnknown()) total = addSizes(total, result->bytesOrZero());
  }
  recordOwnPaths();
  if (measured_) total = addSizes(total, measured_->replay(tracker));
  setSize(Size::value(total));
  return size();
}

std::optional<CleanupEntry::Size> CleanupEntry::sizeOrCalculate() {
  HardLinkTracker tracker;
  return sizeOrCalculate(tracker);
}

std::optional<CleanupEntry::Size> CleanupEntry::sizeOrCalculate(HardLinkTracker& tracker) {
  if (size().isUnknown()) return calculateSize(tracker);
  return size();
}

namespace {

// The selection an entry's items give it, or its own when they give none.
CleanupEntry::Selection derivedSelection(const CleanupEntry& entry) {
  using Selection = CleanupEntry::Selection;
  const size_t nonEmpty = entry.nonEmptyItemCount();
  Selection result = entry.selection();
  if (nonEmpty == 0) {
    if (entry.isEmpty()) result = Selection::off;
  } else {
    size_t selectedCount = 0;
    bool anyMixed = false;
    for (const auto& item : entry.items()) {
      if (item->selection() != Selection::off) ++selectedCount;
      if (item->selection() == Selection::mixed) anyMixed = true;
    }
    if (selectedCount == nonEmpty) {
      result = anyMixed ? Selection::mixed : Selection::on;
    } else if (selectedCount == 0) {
      result = Selection::off;
    } else {
      result = Selection::mixed;
    }
  }
  return result;
}

// Every entry of a subtree, parents before their items, without recursion.
template <typename Visit>
void forEachInSubtree(CleanupEntry& root, Visit visit) {
  std::vector<CleanupEntry*> stack{&root};
  while (!stack.empty()) {
    CleanupEntry* entry = stack.back();
    stack.pop_back();
    visit(*entry);
    for (const auto& item : entry->items()) stack.push_back(item.get());
  }
}

}  // namespace

CleanupEntry::Selection CleanupEntry::updateSelection() {
  for (const auto& item : items()) item->updateSelection();
  const Selection result = derivedSelection(*this);
  setSelection(result);
  return result;
}

std::vector<CleanupEntry*> CleanupEntry::changeSelection(Selection selection) {
  CleanupEntry* root = this;
  while (CleanupEntryPtr parent = root->parent()) root = parent.get();

  std::vector<std::pair<CleanupEntry*, Selection>> before;
  forEachInSubtree(*root, [&](CleanupEntry& entry) { before.emplace_back(&entry, entry.selection()); });

  if (selection == Selection::off) {
    deselect();
  } else {
    select();
  }
  root->updateSelection();

  std::vector<CleanupEntry*> changed;
  for (const auto& [entry, old] : before) {
    if (entry->selection() != old) changed.push_back(entry);
  }
  return changed;
}

void CleanupEntry::clear() {
  items_.clear();
  paths_.clear();
  measured_.reset();
  setSize(Size::unknown());
}

std::string CleanupEntry::description(int level) const {
  std::string text(static_cast<size_t>(level > 0 ? level : 0), '\t');
  text += " " + label_;
  if (!size().isUnknown()) text += ": " + formatByteCount(size().bytesOrZero());
  text += "\n";
  for (const auto& item : items()) text += item->description(level + 1);
  return text;
}

}  // namespace tw
