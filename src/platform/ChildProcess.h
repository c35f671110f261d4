#pragma once

// Another program, run to its end as values. The live operation is `runChildProcess` in
// platform/linux; tests fill in their own. Safe on every thread.

#include <cstddef>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "support/Date.h"

namespace tessivane {

struct ChildProcessCommand {
  /// The program's file; PATH is not searched.
  std::string path = {};
  std::vector<std::string> arguments = {};
  /// How long it may run. What still runs then is ended, and all that it has started with it.
  Seconds limit{10};
  /// What it writes to standard output beyond this is read and dropped.
  std::size_t maxOutput = std::size_t{64} << 10;
};

struct ChildProcessResult {
  enum class End {
    exited,     ///< by itself
    signalled,  ///< by a signal from elsewhere
    timedOut,   ///< by us, at the limit
    stopped,    ///< by us, on request
  };

  End end = End::exited;
  /// Of `exited`: the exit status. Of `signalled`: the signal.
  int code = 0;
  /// What it wrote to standard output.
  std::string output = {};

  friend bool operator==(const ChildProcessResult&, const ChildProcessResult&) = default;
};

/// Runs the program in this process's environment, with nothing on its standard input, and waits
/// for its end, or until `stop` is requested. Nothing when it could not be started.
using RunChildProcess = std::function<std::optional<ChildProcessResult>(
    const ChildProcessCommand& command, const std::stop_token& stop)>;

}  // namespace tessivane
