#pragma once

// The desktop as the main line sees it: Qt's application object and what comes with it. One per
// process, made first and destroyed last, on the main thread.

#include <memory>

#include "platform/AppearanceChoice.h"
#include "platform/Pasteboard.h"
#include "platform/TaskQueue.h"

namespace tessivane {

class Desktop final {
 public:
  /// Whether a window could be shown. Tried in a child process, as Qt ends a process that cannot
  /// reach its display. To be called before there is any other thread.
  static bool isUsable();

  Desktop(int& argc, char** argv);
  Desktop(const Desktop&) = delete;
  Desktop& operator=(const Desktop&) = delete;
  ~Desktop();

  TaskQueue& mainQueue();
  Pasteboard pasteboard() const;
  /// Light, dark, or as the desktop is set and from now on changes.
  void apply(AppearanceChoice choice);
  /// Whether a window of this program is in front. Of others Linux desktops tell nothing that could
  /// be relied on.
  bool isFrontmost() const;

  /// Runs the loop until `quit`.
  void run();
  /// On the main thread. A `run` yet to come returns at once.
  void quit();

 private:
  struct Parts;

  std::unique_ptr<Parts> parts_;
};

}  // namespace tessivane
