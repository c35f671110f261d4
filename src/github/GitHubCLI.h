#pragma once

// The sign-in of the `gh` command, if the person has it. Without state, safe on every thread.

#include <optional>
#include <stop_token>
#include <string>
#include <string_view>

#include "platform/ChildProcess.h"
#include "support/Date.h"
#include "support/FunctionRef.h"

namespace tessivane {

class GitHubCLI final {
 public:
  GitHubCLI() = delete;

  /// How long `gh` may take. It answers in a fraction of a second, unless it hangs.
  static constexpr Seconds limit{10};

  /// The first `gh` in the directories of `path`, the value of PATH, or in those where package
  /// managers put it, which a PATH that was made for a desktop may lack.
  static std::optional<std::string> executable(std::string_view path);
  static std::optional<std::string> executable(std::string_view path,
                                               FunctionRef<bool(const std::string&)> isExecutable);

  /// The token that `gh` gives for github.com; blocks until it has ended. Nothing without `gh`,
  /// when it fails, and when what it says is anything but one word.
  static std::optional<std::string> token(std::string_view path,
                                          const RunChildProcess& run,
                                          const std::stop_token& stop,
                                          Seconds limit = GitHubCLI::limit);
};

}  // namespace tessivane
