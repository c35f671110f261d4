#pragma once

// Runs the live program, and the modes that go through the same main line. Called once, on the main
// thread.

#include "app/CommandLine.h"

namespace tessivane {

/// Runs until the person or a signal ends the program, or until the mode is done. The exit status.
int runApplication(const CommandLine& line);

}  // namespace tessivane
