#include "surfaces/MenuRow.h"

#include <QAction>
#include <QMenu>
#include <QString>

namespace tessivane {

void fillMenu(QMenu& menu, const std::vector<MenuRow>& rows) {
  menu.clear();
  for (const MenuRow& row : rows) {
    if (row.title.empty()) {
      menu.addSeparator();
      continue;
    }
    QAction* item = menu.addAction(QString::fromStdString(row.title));
    item->setEnabled(row.action != nullptr);
    if (row.action)
      // Queued, since the action may fill this menu anew.
      QObject::connect(
          item,
          &QAction::triggered,
          &menu,
          [action = row.action] { action(); },
          Qt::QueuedConnection);
  }
}

}  // namespace tessivane
