#pragma once

// The colours of the program, light and dark. Pure functions for the main thread.

#include <QColor>
#include <QPalette>

#include "sessions/AgentSession.h"

namespace tessivane {

QPalette lightPalette();
QPalette darkPalette();

/// Whether a palette has light text on a dark ground.
bool isDark(const QPalette& palette);

/// Text that matters less, readable on the palette's base.
QColor secondaryText(const QPalette& palette);
/// The colour of a status, readable as text on the palette's base.
QColor statusColor(SessionStatus status, const QPalette& palette);

/// The ground of a notice, and the text on it.
QColor noticeGround(const QPalette& palette);
QColor noticeText(const QPalette& palette);

}  // namespace tessivane
