#pragma once

// What the main line of the desktop program and that of the service have in common: the settings,
// the program, the launch and the orderly end. Lives on the main thread, for the length of the
// process.

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "app/AppDelegate.h"
#include "app/Program.h"
#include "platform/TaskQueue.h"
#include "platform/linux/FileUserDefaults.h"
#include "platform/linux/SingleInstance.h"
#include "platform/linux/TerminationSignals.h"

namespace tessivane {

/// Where the settings are, and what else belongs to this user's program:
/// "$XDG_CONFIG_HOME/Tessivane".
std::string programDirectory();

class MainLine final {
 public:
  /// `quit` ends the loop of `mainQueue`. `reopen` brings the window forward; empty when there is
  /// none.
  MainLine(TaskQueue& mainQueue, std::function<void()> quit, std::function<void()> reopen);
  MainLine(const MainLine&) = delete;
  MainLine& operator=(const MainLine&) = delete;
  ~MainLine();

  /// An exit status when this process is not to go on, because another one already is the program.
  std::optional<int> exitBecauseOfOther() const;

  /// Makes the program. Once, before `launch`.
  Program& makeProgram(const Program::Shell& shell);
  UserDefaults& defaults() { return defaults_; }

  /// What a launch needs that is the same with and without a desktop.
  AppDelegate::Environment environment();
  void launch(AppDelegate::Environment environment);
  /// The person has started the program again.
  void reopen() { delegate_->applicationShouldHandleReopen(false); }

  /// After the loop has ended: undoes what Rush changed outside and lets the program come to rest.
  /// Ends the process when a refresh does not come to an end.
  void terminate();

 private:
  TaskQueue& mainQueue_;
  std::function<void()> quit_;
  SingleInstance instance_;
  FileUserDefaults defaults_;
  std::unique_ptr<TerminationSignals> signals_;
  std::unique_ptr<Program> program_;
  std::unique_ptr<AppDelegate> delegate_;
};

}  // namespace tessivane
