#pragma once

// Starts other programs, for the helpers that run them.

#include <sys/types.h>

#include <array>
#include <string>
#include <vector>

namespace tessivane {

/// Starts a program, looked for along PATH when its name has no slash, with exactly this
/// environment ("NAME=value"). `descriptors` become its standard input, output and error; a -1
/// among them stands for nothing to read or nowhere to write. Throws when it cannot be started.
pid_t spawn(std::vector<std::string> command,
            std::vector<std::string> environment,
            const std::array<int, 3>& descriptors);

}  // namespace tessivane
