#pragma once

// The program with its surfaces: tray item and floating panel over what the service does too. Lives
// on the main thread, for the length of the process.

#include <memory>
#include <optional>
#include <vector>

#include "app/AppPresence.h"
#include "app/MainLine.h"
#include "app/StatusItemMenu.h"
#include "surfaces/Desktop.h"
#include "surfaces/SessionPanel.h"
#include "surfaces/StatusItem.h"
#include "surfaces/TrayHost.h"

namespace tessivane {

class DesktopApplication final {
 public:
  /// `desktop` outlives it.
  explicit DesktopApplication(Desktop& desktop);
  DesktopApplication(const DesktopApplication&) = delete;
  DesktopApplication& operator=(const DesktopApplication&) = delete;
  ~DesktopApplication() = default;

  /// Runs until the person or a signal ends the program. The exit status.
  int run();

 private:
  void installStatusItem();
  void showStatus();
  std::vector<MenuRow> menuRows();
  std::function<void()> action(StatusItemMenu::Action action);
  void showPanel();
  void hidePanel();
  void showAbout();

  Desktop& desktop_;
  MainLine line_;
  Program* program_ = nullptr;
  std::unique_ptr<SessionPanel> panel_;
  std::unique_ptr<TrayHost> trayHost_;
  std::unique_ptr<StatusItem> statusItem_;
  std::vector<Subscription> subscriptions_;
};

}  // namespace tessivane
