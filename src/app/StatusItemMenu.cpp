#include "app/StatusItemMenu.h"

namespace tessivane {

std::vector<StatusItemMenu::Entry> StatusItemMenu::entries(bool rushOn) {
  return {
      {"Show or Hide Floating Window", Action::toggleWindow},
      {"Activity", Action::activity},
      {rushOn ? "Stop Rush" : "Start Rush Mode...", Action::rush},
      {},
      {"Settings...", Action::settings},
      {"Check for Updates...", Action::updates},
      {"About Tessivane", Action::about},
      {},
      {"Quit Tessivane", Action::quit},
  };
}

}  // namespace tessivane
