#pragma once

// Runs other programs, for fixtures that the real tools make. An environment is given whole, as
// "NAME=value". All throw when the program cannot be started.

#include <sys/types.h>

#include <array>
#include <string>
#include <vector>

namespace tessivane {

/// Starts a program, looked for along PATH when its name has no slash. `descriptors` become its
/// standard input, output and error; a -1 among them stands for nothing to read or nowhere to
/// write.
pid_t spawn(std::vector<std::string> command,
            std::vector<std::string> environment,
            const std::array<int, 3>& descriptors);

/// Runs a program to its end with nothing to read. Returns what it prints, errors included. Throws
/// when it fails.
std::string commandOutput(const std::vector<std::string>& arguments,
                          const std::vector<std::string>& environment);

/// Runs git in a directory likewise and returns what it prints, trimmed. Nothing of the machine's
/// settings gets in, and nothing tidies up unasked. `dates` sets the author's and the committer's.
std::string gitOutput(const std::string& directory,
                      const std::vector<std::string>& arguments,
                      std::vector<std::string> dates = {});

}  // namespace tessivane
