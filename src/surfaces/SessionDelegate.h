#pragma once

// Draws the rows of a `SessionListModel`: status, title and age above; status in words, project,
// detail and agent below. Lives on the main thread.

#include <QStyledItemDelegate>

namespace tessivane {

struct SessionRow;

class SessionDelegate final : public QStyledItemDelegate {
 public:
  using QStyledItemDelegate::QStyledItemDelegate;

  void paint(QPainter* painter,
             const QStyleOptionViewItem& option,
             const QModelIndex& index) const override;
  QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
};

}  // namespace tessivane
