#pragma once

// What the program was asked to do on its command line. A value and a pure function.

#include <string>
#include <variant>
#include <vector>

#include "activity/ActivityEvent.h"

namespace tessivane {

struct CommandLine {
  enum class Mode { help, version, dumpRush, dump, activity, headless, start };

  Mode mode = Mode::start;
  ActivityRange range = ActivityRange::h1;  ///< of `activity`

  friend bool operator==(const CommandLine&, const CommandLine&) = default;
};

/// Why the arguments were refused, in one line for the person.
struct CommandLineError {
  std::string message = {};

  friend bool operator==(const CommandLineError&, const CommandLineError&) = default;
};

/// `arguments` without the program's name; none means the live program. "--activity" may be
/// followed by a range. An unknown argument refuses the whole line. Of several modes the first in
/// the order of `Mode` wins.
std::variant<CommandLine, CommandLineError> parseCommandLine(
    const std::vector<std::string>& arguments);

/// The text of `--help`.
std::string helpText();

/// The line that `--version` prints.
std::string versionText();

}  // namespace tessivane
