#pragma once

// Runs programs by posix_spawn, each in a process group of its own. Safe on every thread; blocks
// for as long as the program runs.

#include <optional>
#include <stop_token>

#include "platform/ChildProcess.h"

namespace tessivane {

/// As `RunChildProcess` says. No descriptor of ours but the two pipes reaches the program, and its
/// signals are as a shell would give them.
///
/// At the limit the group is asked to end (SIGTERM) and killed shortly after, so that this returns
/// at most half a second late, even if the program cannot die. A program that ends in time may
/// leave others behind; they go on, and what they write is not waited for.
std::optional<ChildProcessResult> runChildProcess(const ChildProcessCommand& command,
                                                  const std::stop_token& stop);

}  // namespace tessivane
