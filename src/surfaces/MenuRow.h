#pragma once

// A row of a menu, for the tray and the panel alike. The texts and what they do come from the main
// line. Values for the main thread.

#include <functional>
#include <string>
#include <vector>

class QMenu;

namespace tessivane {

/// Without a title a separator. A row without an action is shown, but cannot be chosen.
struct MenuRow {
  std::string title = {};
  std::function<void()> action = {};
};

/// Replaces the contents of `menu`.
void fillMenu(QMenu& menu, const std::vector<MenuRow>& rows);

}  // namespace tessivane
