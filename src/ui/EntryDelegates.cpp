#include "ui/EntryDelegates.h"

#include <QApplication>
#include <QPainter>
#include <QPainterPath>

#include "ui/CleanupTreeModel.h"

namespace tw {
namespace {

QStyle* styleOf(const QStyleOptionViewItem& option) {
  return option.widget ? option.widget->style() : QApplication::style();
}

}  // namespace

void EntryItemDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const {
  QStyleOptionViewItem item(option);
  initStyleOption(&item, index);
  const QString label = item.text;
  const QString extra = index.data(CleanupTreeModel::extraInfoRole).toString();
  const bool empty = index.data(CleanupTreeModel::emptyRole).toBool();
  item.text.clear();
  QStyle* style = styleOf(item);
  // Background, selection, check box and icon as the style draws them; the two-coloured text
  // is ours.
  style->drawControl(QStyle::CE_ItemViewItem, &item, painter, item.widget);

  const QRect textRect = style->subElementRect(QStyle::SE_ItemViewItemText, &item, item.widget).adjusted(2, 0, -2, 0);
  const bool selected = item.state & QStyle::State_Selected;
  const QPalette::ColorGroup group = empty                                 ? QPalette::Disabled
                                     : (item.state & QStyle::State_Active) ? QPalette::Active
                                                                           : QPalette::Inactive;
  QColor primary = item.palette.color(group, selected ? QPalette::HighlightedText : QPalette::Text);
  QColor secondary = selected ? primary : item.palette.color(group, QPalette::PlaceholderText);
  if (selected) secondary.setAlphaF(0.75f);
  if (empty) {
    // Nothing to clean: both parts in the dimmest text colour.
    primary = item.palette.color(QPalette::Disabled, QPalette::Text);
    secondary = primary;
  }

  painter->save();
  painter->setFont(item.font);
  const QFontMetrics metrics(item.font);
  const QString shownLabel = metrics.elidedText(label, Qt::ElideRight, textRect.width());
  painter->setPen(primary);
  painter->drawText(textRect, Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine, shownLabel);
  if (!extra.isEmpty() && shownLabel == label) {
    const int used = metrics.horizontalAdvance(label + QLatin1Char(' '));
    const QRect extraRect = textRect.adjusted(used, 0, 0, 0);
    if (extraRect.width() > metrics.horizontalAdvance(QStringLiteral("…"))) {
      painter->setPen(secondary);
      painter->drawText(extraRect, Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine,
                        metrics.elidedText(extra, Qt::ElideRight, extraRect.width()));
    }
  }
  painter->restore();
}

QSize EntryItemDelegate::sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const {
  QSize size = QStyledItemDelegate::sizeHint(option, index);
  const QString extra = index.data(CleanupTreeModel::extraInfoRole).toString();
  if (!extra.isEmpty()) size.rwidth() += option.fontMetrics.horizontalAdvance(QLatin1Char(' ') + extra);
  return size;
}

SizeDelegate::SizeDelegate(QObject* parent) : QStyledItemDelegate(parent) { clock_.start(); }

void SizeDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const {
  QStyleOptionViewItem item(option);
  initStyleOption(&item, index);
  if (!index.data(CleanupTreeModel::scanningRole).toBool()) {
    item.displayAlignment = Qt::AlignRight | Qt::AlignVCenter;
    styleOf(item)->drawControl(QStyle::CE_ItemViewItem, &item, painter, item.widget);
    return;
  }
  item.text.clear();
  styleOf(item)->drawControl(QStyle::CE_ItemViewItem, &item, painter, item.widget);
  // A small spinner at the trailing edge: a three-quarter ring that turns once a second.
  const int side = qMin(item.rect.height() - 6, 14);
  const QRect ring(item.rect.right() - side - 6, item.rect.center().y() - side / 2, side, side);
  const int turn = static_cast<int>(clock_.elapsed() % 1000) * 360 / 1000;
  painter->save();
  painter->setRenderHint(QPainter::Antialiasing);
  QPen pen(item.palette.color(QPalette::PlaceholderText), 2.0);
  pen.setCapStyle(Qt::RoundCap);
  painter->setPen(pen);
  painter->drawArc(ring, -turn * 16, 270 * 16);
  painter->restore();
}

}  // namespace tw
