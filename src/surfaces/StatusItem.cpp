#include "surfaces/StatusItem.h"

#include <QObject>
#include <QString>
#include <utility>

#include "surfaces/ProgramIcon.h"

namespace tessivane {

StatusItem::StatusItem(std::function<void()> clicked) {
  icon_.setContextMenu(&menu_);
  QObject::connect(&icon_,
                   &QSystemTrayIcon::activated,
                   &menu_,
                   [clicked = std::move(clicked)](QSystemTrayIcon::ActivationReason reason) {
                     if (reason == QSystemTrayIcon::Trigger)
                       clicked();
                   });
  setState(false, "");
  icon_.show();
}

void StatusItem::setState(bool attention, const std::string& summary) {
  icon_.setIcon(programIcon(attention));
  icon_.setToolTip(QString::fromStdString(summary.empty() ? "Tessivane" : "Tessivane: " + summary));
}

}  // namespace tessivane
