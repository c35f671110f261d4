#include "app/AppPresence.h"

#include <algorithm>

namespace tessivane {

bool PresenceWindow::counts() const {
  return (styleMask & (titled | nonActivatingPanel)) == titled && (isVisible || isMiniaturized);
}

void AppPresence::start() {
  windowChanges_ = environment_.windowChanges([this](bool cameForward) { update(cameForward); });
  update(false);
}

void AppPresence::update(bool activate) const {
  const auto windows = environment_.windows();
  const bool hasWindow = std::any_of(
      windows.begin(), windows.end(), [](const PresenceWindow& window) { return window.counts(); });
  const auto wanted = hasWindow ? ActivationPolicy::regular : ActivationPolicy::accessory;
  if (environment_.policy() == wanted)
    return;
  environment_.setPolicy(wanted);
  if (hasWindow && activate)
    environment_.activate();
}

}  // namespace tessivane
