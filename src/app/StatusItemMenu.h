#pragma once

// The menu of the status item. Plain values; what a row does is wired in `Application`.

#include <string>
#include <vector>

namespace tessivane {

struct StatusItemMenu {
  enum class Action { toggleWindow, activity, rush, settings, updates, about, quit };

  /// A row; without a title it is a separator and its action means nothing.
  struct Entry {
    std::string title = {};
    Action action = Action::toggleWindow;

    bool isSeparator() const { return title.empty(); }
    friend bool operator==(const Entry&, const Entry&) = default;
  };

  static std::vector<Entry> entries(bool rushOn);
};

}  // namespace tessivane
