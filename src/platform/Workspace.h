#pragma once

// What the desktop does with links and applications. A record of closures: the live one is
// `gioWorkspace()` in platform/linux, tests fill in their own. For the main thread.

#include <functional>
#include <optional>
#include <string>

namespace tessivane {

/// An installed application.
struct WorkspaceApplication {
  /// The name of its desktop entry, such as "t3code.desktop".
  std::string id = {};
  /// Its name as shown to a person.
  std::string name = {};

  friend bool operator==(const WorkspaceApplication&, const WorkspaceApplication&) = default;
};

struct Workspace {
  /// Whether some application is registered for the scheme of this URL. Text that is no URL has no
  /// handler.
  std::function<bool(const std::string& url)> handlesURL = [](const std::string&) { return false; };

  /// Has the application that handles the URL open it. True when there is one; what becomes of it
  /// is not waited for.
  std::function<bool(const std::string& url)> openURL = [](const std::string&) { return false; };

  /// The installed application of that identifier, in the reversed-domain form that its maker gave
  /// it ("com.example.editor"), if there is one.
  std::function<std::optional<WorkspaceApplication>(const std::string& identifier)>
      findApplication = [](const std::string&) { return std::nullopt; };

  /// Starts that application, or brings the running one forward if it does so by itself. True when
  /// there is one, as above.
  std::function<bool(const std::string& identifier)> launchApplication = [](const std::string&) {
    return false;
  };
};

}  // namespace tessivane
