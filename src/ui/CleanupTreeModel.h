// The Qt item model over the scan driver's entry tree. It adapts and does not copy: an index's
// internal pointer is the entry, and every label, size and tick is read from the tree when asked.
// What the tree cannot say itself is the window's view of the scan: whether the first scan has
// reported yet (no rows before it) and which locations are still being scanned (no children,
// a spinner in the size cell). Rows change only between begin/end signals on the GUI thread.
#pragma once

#include <QAbstractItemModel>
#include <memory>
#include <set>
#include <vector>

#include "scan/DevFiles.h"

namespace tw {

class CleanupTreeModel : public QAbstractItemModel {
  Q_OBJECT

 public:
  enum Column { itemColumn = 0, sizeColumn = 1, columnCountValue = 2 };
  enum Role {
    extraInfoRole = Qt::UserRole + 1,  // QString: the secondary part of the item cell
    scanningRole,                      // bool: the location is still being scanned
    emptyRole,                         // bool: nothing to clean (disabled row)
  };

  explicit CleanupTreeModel(QObject* parent = nullptr);

  // The driver whose tree is shown (none: no rows). Resets the model.
  void setDevFiles(std::shared_ptr<DevFiles> devFiles);
  const std::shared_ptr<DevFiles>& devFiles() const { return devFiles_; }

  // Before a scan starts (on this thread): the tree is emptied and every location is marked as
  // scanning, inside one model reset.
  void prepareScan();
  // The driver's notifications, on this thread.
  void scanStarted();
  void locationScanned(DevFiles::Location location);
  void scanFinished();

  bool isLoaded() const { return loaded_; }
  bool isScanning(const CleanupEntry* entry) const { return scanningEntries_.count(entry) != 0; }

  CleanupEntry* entry(const QModelIndex& index) const;
  QModelIndex indexOf(const CleanupEntry* entry, int column = itemColumn) const;

  // Ticks (on) or unticks each entry's whole subtree, recomputes the ancestors and repaints
  // exactly the rows whose tick changed.
  void applyCheckState(const std::vector<CleanupEntry*>& entries, bool on);

  QModelIndex index(int row, int column, const QModelIndex& parent = {}) const override;
  QModelIndex parent(const QModelIndex& child) const override;
  int rowCount(const QModelIndex& parent = {}) const override;
  int columnCount(const QModelIndex& parent = {}) const override;
  bool hasChildren(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
  bool setData(const QModelIndex& index, const QVariant& value, int role = Qt::EditRole) override;
  Qt::ItemFlags flags(const QModelIndex& index) const override;
  QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

 signals:
  // A click (or the space bar) asked to tick or untick the row; the window decides which rows
  // that applies to and calls applyCheckState.
  void checkRequested(const QModelIndex& index, bool on);

 private:
  const std::vector<CleanupEntryPtr>& children(const CleanupEntry* entry) const;
  int rowOf(const CleanupEntry* entry) const;
  void repaintRow(const CleanupEntry* entry);

  std::shared_ptr<DevFiles> devFiles_;
  bool loaded_ = false;
  std::set<const CleanupEntry*> scanningEntries_;
};

// Whether the row's box can be ticked at all.
bool isTickable(const CleanupEntry& entry);

}  // namespace tw
