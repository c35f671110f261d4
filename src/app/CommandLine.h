#pragma once

// What the program was asked to do on its command line. A value and a pure function.

#include <string>
#include <variant>
#include <vector>

namespace tessivane {

struct CommandLine {
  enum class Mode { help, version, dump };

  Mode mode = Mode::help;

  friend bool operator==(const CommandLine&, const CommandLine&) = default;
};

/// Why the arguments were refused, in one line for the person.
struct CommandLineError {
  std::string message = {};

  friend bool operator==(const CommandLineError&, const CommandLineError&) = default;
};

/// `arguments` without the program's name. An unknown argument refuses the whole line; with several
/// modes given, help comes before version and version before the dump. No argument at all is
/// a call for help.
std::variant<CommandLine, CommandLineError> parseCommandLine(
    const std::vector<std::string>& arguments);

/// The text of `--help`.
std::string helpText();

/// The line that `--version` prints.
std::string versionText();

}  // namespace tessivane
