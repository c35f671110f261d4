#include "surfaces/ProgramIcon.h"

#include <QPainter>
#include <QPixmap>
#include <QRectF>
#include <array>

namespace tessivane {

namespace {

constexpr std::array iconSizes = {16, 22, 24, 32, 48, 64, 128};

// Drawn in a square of side 1, scaled up.
QPixmap mark(int size, bool attention) {
  QPixmap picture(size, size);
  picture.fill(Qt::transparent);
  QPainter painter(&picture);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setPen(Qt::NoPen);
  painter.scale(size, size);

  struct Tile {
    QRectF place = {};
    QRgb color = 0;
  };
  const std::array tiles = {
      Tile{QRectF(0.06, 0.06, 0.50, 0.38), 0xff3d7bf0},
      Tile{QRectF(0.62, 0.06, 0.32, 0.50), attention ? 0xfff97316 : 0xff8fb4f7},
      Tile{QRectF(0.06, 0.50, 0.32, 0.44), 0xff8fb4f7},
      Tile{QRectF(0.44, 0.62, 0.50, 0.32), 0xff3d7bf0},
  };
  constexpr double radius = 0.08;
  for (const Tile& tile : tiles) {
    painter.setBrush(QColor(tile.color));
    painter.drawRoundedRect(tile.place, radius, radius);
  }
  return picture;
}

}  // namespace

QIcon programIcon(bool attention) {
  QIcon icon;
  for (const int size : iconSizes)
    icon.addPixmap(mark(size, attention));
  return icon;
}

QIcon menuIcon(const QColor& color) {
  constexpr int size = 32;  // drawn at 16, so that it is sharp on fine screens too
  QPixmap picture(size, size);
  picture.fill(Qt::transparent);
  QPainter painter(&picture);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setPen(QPen(color, 3, Qt::SolidLine, Qt::RoundCap));
  for (const int y : {8, 16, 24})
    painter.drawLine(5, y, size - 5, y);
  return QIcon(picture);
}

}  // namespace tessivane
