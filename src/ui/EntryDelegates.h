// How the two cells of a row are drawn. The item cell: the check box, the entry's icon, the
// label in the palette's text colour and the extra information in a dimmer one (both dimmer
// still for an entry with nothing to clean), cut at the tail when the column is narrow. The
// size cell: the formatted size, right-aligned, or a spinner while the location is scanned.
#pragma once

#include <QElapsedTimer>
#include <QStyledItemDelegate>

namespace tw {

class EntryItemDelegate : public QStyledItemDelegate {
  Q_OBJECT

 public:
  using QStyledItemDelegate::QStyledItemDelegate;
  void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override;
  QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
};

class SizeDelegate : public QStyledItemDelegate {
  Q_OBJECT

 public:
  explicit SizeDelegate(QObject* parent = nullptr);
  void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override;

 private:
  QElapsedTimer clock_;  // turns the spinner; the view repaints it while anything scans
};

}  // namespace tw
