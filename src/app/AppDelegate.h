#pragma once

// The main line: what happens, and in which order, from the moment the process is up until it ends.
// All of it on the main thread. What is reached here belongs to others and comes as closures, which
// do nothing where there is nothing behind them: a dump or a service without a display goes the
// same way as the desktop program.

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "platform/AppearanceChoice.h"
#include "platform/TaskQueue.h"
#include "platform/UserDefaults.h"

namespace tessivane {

class AppDelegate final {
 public:
  /// In the order in which the launch calls them. Queue and defaults outlive the delegate.
  struct Environment {
    TaskQueue* mainQueue = nullptr;
    UserDefaults* defaults = nullptr;
    std::function<std::optional<std::string>(const char*)> environmentVariable = [](const char*) {
      return std::nullopt;
    };

    std::function<void(AppearanceChoice)> applyAppearance = [](AppearanceChoice) {};
    std::function<void()> restoreAfterUncleanExit = [] {};
    /// Has SIGTERM, SIGINT and SIGHUP call `quit` on the main thread.
    std::function<void()> quitOnTerminationSignals = [] {};
    std::function<void()> installStatusItem = [] {};
    /// False when the program runs from where it was built: then it looks for no updates.
    bool isInstalled = false;
    std::function<void()> startUpdateCheck = [] {};
    /// Set for the modes that print and end; they give the exit status.
    std::function<int()> dumpRushAndExit = {};
    std::function<int()> dumpAndExit = {};
    std::function<void()> becomeAccessory = [] {};

    // The task that the launch leaves behind.
    std::function<bool()> storeIsScheduled = [] { return true; };
    std::function<void()> refreshStore = [] {};
    std::function<void()> scheduleStore = [] {};
    std::function<void()> followCapturePolicy = [] {};
    std::function<void()> showFloatingPanel = [] {};
    std::function<void()> startPresence = [] {};

    std::function<void()> showActivityWindow = [] {};
    std::function<void()> stopRush = [] {};
  };

  explicit AppDelegate(Environment environment);

  /// Launches. An exit status ends the process before any surface exists.
  std::optional<int> applicationDidFinishLaunching();
  /// Undoes what a running Rush has changed outside. Called once before every orderly end.
  void applicationWillTerminate() const;
  /// The person has started the program again: the floating window comes forward.
  void applicationShouldHandleReopen(bool hasVisibleWindows) const;

 private:
  void applyAppearance() const;
  void openActivityForProfiling() const;

  Environment environment_;
};

}  // namespace tessivane
