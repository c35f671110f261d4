#pragma once

// Runs other programs to their end, for fixtures that the real tools make.

#include <string>
#include <vector>

namespace tessivane {

/// Runs a program found by PATH, with exactly this environment ("NAME=value") and nothing to read.
/// Returns what it prints, errors included. Throws when it fails.
std::string commandOutput(const std::vector<std::string>& arguments,
                          const std::vector<std::string>& environment);

}  // namespace tessivane
