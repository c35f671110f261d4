#pragma once

// The program's icon in the tray, with its menu. Lives on the main thread. Only to be made once a
// `TrayHost` has found a place for it.

#include <QMenu>
#include <QSystemTrayIcon>
#include <functional>
#include <string>
#include <vector>

#include "surfaces/MenuRow.h"

namespace tessivane {

class StatusItem final {
 public:
  /// `clicked` is called when the person clicks the icon itself.
  explicit StatusItem(std::function<void()> clicked);
  StatusItem(const StatusItem&) = delete;
  StatusItem& operator=(const StatusItem&) = delete;
  ~StatusItem() = default;

  /// Whether Qt too sees a place for it. If not, nothing of this is ever seen.
  static bool isPossible() { return QSystemTrayIcon::isSystemTrayAvailable(); }

  void setRows(const std::vector<MenuRow>& rows) { fillMenu(menu_, rows); }
  /// What the icon tells at a glance, and in words when the pointer rests on it.
  void setState(bool attention, const std::string& summary);

 private:
  QMenu menu_;
  QSystemTrayIcon icon_;
};

}  // namespace tessivane
