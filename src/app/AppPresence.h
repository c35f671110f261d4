#pragma once

// Whether the program shows up among the regular applications (task bar, switcher): only while it
// has a real window. The floating panel does not count. Lives on the main thread.

#include <functional>
#include <utility>
#include <vector>

#include "support/Observers.h"

namespace tessivane {

enum class ActivationPolicy { regular = 0, accessory = 1 };

/// A window of this program, as far as presence goes. The style bits are those of the desktop's
/// windowing model: 1 for a titled window, 128 for a panel that does not activate the program.
struct PresenceWindow {
  static constexpr unsigned titled = 1;
  static constexpr unsigned nonActivatingPanel = 128;

  unsigned styleMask = 0;
  bool isVisible = false;
  bool isMiniaturized = false;

  /// True for a titled window, visible or miniaturized, that is no such panel.
  bool counts() const;
};

class AppPresence final {
 public:
  struct Environment {
    std::function<std::vector<PresenceWindow>()> windows = [] {
      return std::vector<PresenceWindow>();
    };
    std::function<ActivationPolicy()> policy = [] { return ActivationPolicy::accessory; };
    std::function<void(ActivationPolicy)> setPolicy = [](ActivationPolicy) {};
    std::function<void()> activate = [] {};
    /// Calls after a window became key, is closing, was miniaturized or restored; true when it came
    /// to the front, so that the program is to come with it.
    std::function<Subscription(std::function<void(bool cameForward)>)> windowChanges =
        [](const auto&) { return Subscription(); };
  };

  explicit AppPresence(Environment environment) : environment_(std::move(environment)) {}

  /// Watches the windows from now on.
  void start();
  /// Takes on the policy that the windows ask for; with `activate`, a program that has just become
  /// a regular one comes to the front.
  void update(bool activate) const;

 private:
  Environment environment_;
  Subscription windowChanges_;
};

}  // namespace tessivane
