#pragma once

// The clipboard of the desktop, a record of closures for the main thread. As it stands it is the
// one of a program without a desktop: there is none, and it says so. The surfaces supply the live
// one.

#include <functional>
#include <string>

namespace tessivane {

struct Pasteboard {
  /// Replaces the contents by plain text. False when there is no clipboard to put it on.
  std::function<bool(const std::string& text)> setText = [](const std::string&) { return false; };
};

}  // namespace tessivane
