#include "ui/CleanupTreeModel.h"

#include <algorithm>
#include <unordered_map>
#include <unordered_set>

#include "platform/ByteCountFormatter.h"
#include "ui/EntryIcons.h"

namespace tw {
namespace {

const std::vector<CleanupEntryPtr> kNoChildren;

Qt::CheckState checkState(CleanupEntry::Selection selection) {
  switch (selection) {
    case CleanupEntry::Selection::on:
      return Qt::Checked;
    case CleanupEntry::Selection::mixed:
      return Qt::PartiallyChecked;
    case CleanupEntry::Selection::off:
      break;
  }
  return Qt::Unchecked;
}

}  // namespace

bool isTickable(const CleanupEntry& entry) { return entry.isCheckable(); }

CleanupTreeModel::CleanupTreeModel(QObject* parent) : QAbstractItemModel(parent) {}

void CleanupTreeModel::setDevFiles(std::shared_ptr<DevFiles> devFiles) {
  beginResetModel();
  devFiles_ = std::move(devFiles);
  loaded_ = false;
  scanningEntries_.clear();
  endResetModel();
}

void CleanupTreeModel::prepareScan() {
  if (!devFiles_) return;
  beginResetModel();
  devFiles_->reset();
  scanningEntries_.clear();
  for (const auto& [location, entry] : devFiles_->locations()) scanningEntries_.insert(entry.get());
  endResetModel();
}

void CleanupTreeModel::scanStarted() {
  if (!devFiles_) return;
  beginResetModel();
  loaded_ = true;
  scanningEntries_.clear();
  for (const auto& [location, entry] : devFiles_->locations()) scanningEntries_.insert(entry.get());
  endResetModel();
}

void CleanupTreeModel::locationScanned(DevFiles::Location location) {
  if (!devFiles_) return;
  const auto found = devFiles_->locations().find(location);
  if (found == devFiles_->locations().end()) return;
  const CleanupEntry* entry = found->second.get();
  const QModelIndex index = indexOf(entry);
  const int count = static_cast<int>(entry->items().size());
  if (count > 0 && scanningEntries_.count(entry)) {
    beginInsertRows(index, 0, count - 1);
    scanningEntries_.erase(entry);
    endInsertRows();
  } else {
    scanningEntries_.erase(entry);
  }
  repaintRow(entry);
  // The Apple group's size and tick follow its ten locations.
  if (static_cast<size_t>(location) < 10 && devFiles_->appleGroupEntry())
    repaintRow(devFiles_->appleGroupEntry().get());
}

void CleanupTreeModel::scanFinished() {
  if (!devFiles_) return;
  // Every location has been inserted by now; what can still change is the roots' sizes and ticks.
  std::vector<const CleanupEntry*> left(scanningEntries_.begin(), scanningEntries_.end());
  for (const CleanupEntry* entry : left) {
    const int count = static_cast<int>(entry->items().size());
    if (count > 0) beginInsertRows(indexOf(entry), 0, count - 1);
    scanningEntries_.erase(entry);
    if (count > 0) endInsertRows();
  }
  for (const auto& [location, entry] : devFiles_->locations()) repaintRow(entry.get());
  for (const auto& root : devFiles_->rootEntries()) repaintRow(root.get());
}

CleanupEntry* CleanupTreeModel::entry(const QModelIndex& index) const {
  if (!index.isValid() || index.model() != this) return nullptr;
  return static_cast<CleanupEntry*>(index.internalPointer());
}

const std::vector<CleanupEntryPtr>& CleanupTreeModel::children(const CleanupEntry* entry) const {
  if (!devFiles_ || !loaded_) return kNoChildren;
  if (!entry) return devFiles_->rootEntries();
  if (isScanning(entry)) return kNoChildren;
  return entry->items();
}

int CleanupTreeModel::rowOf(const CleanupEntry* entry) const {
  const CleanupEntryPtr parent = entry->parent();
  const auto& siblings = parent ? parent->items() : devFiles_->rootEntries();
  const auto found = std::find_if(siblings.begin(), siblings.end(),
                                  [entry](const CleanupEntryPtr& sibling) { return sibling.get() == entry; });
  return found == siblings.end() ? -1 : static_cast<int>(found - siblings.begin());
}

QModelIndex CleanupTreeModel::indexOf(const CleanupEntry* entry, int column) const {
  if (!entry || !devFiles_ || !loaded_) return {};
  // Rows below a location that is still being scanned are not shown yet.
  for (CleanupEntryPtr ancestor = entry->parent(); ancestor; ancestor = ancestor->parent()) {
    if (isScanning(ancestor.get())) return {};
  }
  const int row = rowOf(entry);
  if (row < 0) return {};
  return createIndex(row, column, const_cast<CleanupEntry*>(entry));
}

void CleanupTreeModel::repaintRow(const CleanupEntry* entry) {
  const QModelIndex first = indexOf(entry, itemColumn);
  if (first.isValid()) emit dataChanged(first, indexOf(entry, sizeColumn));
}

QModelIndex CleanupTreeModel::index(int row, int column, const QModelIndex& parent) const {
  if (column < 0 || column >= columnCountValue || row < 0) return {};
  if (parent.isValid() && parent.column() != itemColumn) return {};
  const auto& items = children(entry(parent));
  if (row >= static_cast<int>(items.size())) return {};
  return createIndex(row, column, items[static_cast<size_t>(row)].get());
}

QModelIndex CleanupTreeModel::parent(const QModelIndex& child) const {
  const CleanupEntry* childEntry = entry(child);
  if (!childEntry) return {};
  const CleanupEntryPtr parentEntry = childEntry->parent();
  if (!parentEntry) return {};
  return indexOf(parentEntry.get());
}

int CleanupTreeModel::rowCount(const QModelIndex& parent) const {
  if (parent.isValid() && parent.column() != itemColumn) return 0;
  return static_cast<int>(children(entry(parent)).size());
}

int CleanupTreeModel::columnCount(const QModelIndex&) const { return columnCountValue; }

bool CleanupTreeModel::hasChildren(const QModelIndex& parent) const { return rowCount(parent) > 0; }

QVariant CleanupTreeModel::data(const QModelIndex& index, int role) const {
  const CleanupEntry* item = entry(index);
  if (!item) return {};
  const bool scanning = isScanning(item);
  const bool isItem = index.column() == itemColumn;
  switch (role) {
    case Qt::DisplayRole:
      if (isItem) return QString::fromStdString(item->label());
      if (scanning || item->size().isUnknown()) return QString();
      return QString::fromStdString(formatByteCount(item->size().bytesOrZero()));
    case extraInfoRole:
      return QString::fromStdString(item->extraInfo());
    case Qt::CheckStateRole:
      if (!isItem) return {};
      return isTickable(*item) ? checkState(item->selection()) : Qt::Unchecked;
    case Qt::DecorationRole:
      if (!isItem) return {};
      return EntryIcons::icon(item->icon());
    case Qt::ToolTipRole:
      if (!item->tooltip()) return {};
      return QString::fromStdString(item->tooltipText());
    case Qt::AccessibleTextRole:
      if (isItem) return QString::fromStdString(item->itemDescription());
      return scanning ? QStringLiteral("Scanning") : data(index, Qt::DisplayRole);
    case Qt::TextAlignmentRole:
      return isItem ? QVariant() : QVariant(Qt::AlignRight | Qt::AlignVCenter);
    case scanningRole:
      return scanning;
    case emptyRole:
      return !isTickable(*item);
    default:
      return {};
  }
}

bool CleanupTreeModel::setData(const QModelIndex& index, const QVariant& value, int role) {
  const CleanupEntry* item = entry(index);
  if (!item || role != Qt::CheckStateRole || index.column() != itemColumn || !isTickable(*item)) return false;
  // A click never rests on mixed: the delegate turns off or mixed into on, on into off.
  emit checkRequested(index, value.value<Qt::CheckState>() != Qt::Unchecked);
  return true;
}

Qt::ItemFlags CleanupTreeModel::flags(const QModelIndex& index) const {
  const CleanupEntry* item = entry(index);
  if (!item) return Qt::NoItemFlags;
  // An entry with nothing to clean is shown disabled, its box off.
  if (!isTickable(*item)) return Qt::ItemIsSelectable | Qt::ItemNeverHasChildren;
  Qt::ItemFlags result = Qt::ItemIsEnabled | Qt::ItemIsSelectable;
  if (index.column() == itemColumn) result |= Qt::ItemIsUserCheckable;
  return result;
}

QVariant CleanupTreeModel::headerData(int section, Qt::Orientation orientation, int role) const {
  if (orientation != Qt::Horizontal || role != Qt::DisplayRole) return {};
  if (section == itemColumn) return QStringLiteral("Item");
  if (section == sizeColumn) return QStringLiteral("Size");
  return {};
}

void CleanupTreeModel::applyCheckState(const std::vector<CleanupEntry*>& entries, bool on) {
  for (CleanupEntry* item : entries) {
    if (!item) continue;
    const auto changed = item->changeSelection(on ? CleanupEntry::Selection::on : CleanupEntry::Selection::off);
    // One repaint per parent, over the rows between its first and last changed child: a
    // location with thousands of items must not cost a search per item.
    std::unordered_map<const CleanupEntry*, std::unordered_set<const CleanupEntry*>> byParent;
    for (const CleanupEntry* entry : changed) byParent[entry->parent().get()].insert(entry);
    for (const auto& [parent, children] : byParent) {
      if (parent && (!indexOf(parent).isValid() || isScanning(parent))) continue;
      const auto& siblings = parent ? parent->items() : devFiles_->rootEntries();
      int first = -1, last = -1;
      for (int row = 0; row < static_cast<int>(siblings.size()); ++row) {
        if (!children.count(siblings[static_cast<size_t>(row)].get())) continue;
        if (first < 0) first = row;
        last = row;
      }
      if (first < 0) continue;
      const QModelIndex parentIndex = parent ? indexOf(parent) : QModelIndex();
      emit dataChanged(index(first, itemColumn, parentIndex), index(last, sizeColumn, parentIndex));
    }
  }
}

}  // namespace tw
