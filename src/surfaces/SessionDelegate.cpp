#include "surfaces/SessionDelegate.h"

#include <QFontMetrics>
#include <QPainter>
#include <QString>

#include "surfaces/Palettes.h"
#include "surfaces/SessionListModel.h"

namespace tessivane {

namespace {

constexpr int sideMargin = 14;
constexpr int verticalMargin = 9;
constexpr int lineGap = 3;
constexpr int dotSize = 9;
constexpr int dotGap = 10;
constexpr int columnGap = 10;

QFont titleFont(const QFont& base) {
  QFont font = base;
  font.setWeight(QFont::DemiBold);
  return font;
}

// A text whose own direction does not reorder what stands beside it.
QString isolated(const std::string& text) {
  return QChar(u'\u2068') + QString::fromStdString(text) + QChar(u'\u2069');
}

// Draws one line at the left, or the right, of a rectangle and returns its width. The side is the
// list's, whatever the direction of the text.
int drawLine(QPainter& painter, const QRect& place, Qt::AlignmentFlag side, const QString& text) {
  const QFontMetrics metrics = painter.fontMetrics();
  const QString fitting = metrics.elidedText(text, Qt::ElideRight, place.width());
  const auto flags = side | Qt::AlignVCenter | Qt::AlignAbsolute;
  painter.drawText(place, static_cast<int>(flags.toInt()) | Qt::TextSingleLine, fitting);
  return metrics.horizontalAdvance(fitting);
}

// The line that tells of project and detail, after the word for the status.
QString explanation(const SessionRow& row) {
  QString text = isolated(row.project);
  if (!row.detail.empty())
    text += QStringLiteral("  ·  ") + isolated(row.detail);
  return text;
}

}  // namespace

void SessionDelegate::paint(QPainter* painter,
                            const QStyleOptionViewItem& option,
                            const QModelIndex& index) const {
  const auto* model = static_cast<const SessionListModel*>(index.model());
  const SessionRow* row = model->row(index);
  if (row == nullptr)
    return;
  painter->save();
  painter->setRenderHint(QPainter::Antialiasing);
  // Each text runs in its own direction, so that its ellipsis is at its own end.
  painter->setLayoutDirection(Qt::LayoutDirectionAuto);
  const QPalette& palette = option.palette;
  if ((option.state & QStyle::State_Selected) != 0)
    painter->fillRect(option.rect, palette.color(QPalette::Highlight));
  else if ((option.state & QStyle::State_MouseOver) != 0)
    painter->fillRect(option.rect, palette.color(QPalette::AlternateBase));

  const QRect inner =
      option.rect.adjusted(sideMargin, verticalMargin, -sideMargin, -verticalMargin);
  const QFontMetrics titleMetrics(titleFont(option.font));
  const QRect above(inner.left() + dotSize + dotGap,
                    inner.top(),
                    inner.width() - dotSize - dotGap,
                    titleMetrics.height());
  const QRect below = above.translated(0, titleMetrics.height() + lineGap);

  const QColor color = statusColor(row->status, palette);
  painter->setPen(Qt::NoPen);
  painter->setBrush(color);
  painter->drawEllipse(QRect(inner.left(), above.center().y() - dotSize / 2, dotSize, dotSize));

  painter->setFont(option.font);
  painter->setPen(secondaryText(palette));
  const int age = drawLine(*painter, above, Qt::AlignRight, QString::fromStdString(row->age));
  const int agent = drawLine(*painter, below, Qt::AlignRight, QString::fromStdString(row->agent));

  painter->setPen(color);
  const auto name = label(row->status);
  const QString status = QString::fromUtf8(name.data(), static_cast<qsizetype>(name.size()));
  const QRect words = below.adjusted(0, 0, -agent - columnGap, 0);
  const int statusWidth = drawLine(*painter, words, Qt::AlignLeft, status);
  painter->setPen(secondaryText(palette));
  drawLine(
      *painter, words.adjusted(statusWidth + columnGap, 0, 0, 0), Qt::AlignLeft, explanation(*row));

  painter->setFont(titleFont(option.font));
  painter->setPen(palette.color(QPalette::Text));
  drawLine(*painter,
           above.adjusted(0, 0, -age - columnGap, 0),
           Qt::AlignLeft,
           QString::fromStdString(row->title));
  painter->restore();
}

QSize SessionDelegate::sizeHint(const QStyleOptionViewItem& option,
                                const QModelIndex& /*index*/) const {
  const int lines =
      QFontMetrics(titleFont(option.font)).height() + lineGap + QFontMetrics(option.font).height();
  return {0, lines + 2 * verticalMargin};
}

}  // namespace tessivane
