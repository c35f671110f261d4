#pragma once

// Single values out of the text of a git config file (the syntax of git-config(1)). Includes are
// not followed. A pure function, safe on every thread.

#include <optional>
#include <string>
#include <string_view>

namespace tessivane {

struct BackendGitConfig {
  /// The first value of `key` in a section whose head is exactly `section`, for example
  /// `[remote "origin"]`: without its quotes, escapes and comment. A value that goes on in the next
  /// line is cut there. Keys are told apart without regard to case.
  static std::optional<std::string> value(std::string_view text,
                                          std::string_view section,
                                          std::string_view key);
};

}  // namespace tessivane
