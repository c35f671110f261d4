#pragma once

// The pictures that the program draws itself. For the main thread.

#include <QColor>
#include <QIcon>

namespace tessivane {

/// The program's mark, four tiles laid to a square, at the sizes that trays and windows ask for.
/// With `attention` one tile stands out: a session needs the person.
QIcon programIcon(bool attention);

/// Three lines, the sign for a menu.
QIcon menuIcon(const QColor& color);

}  // namespace tessivane
