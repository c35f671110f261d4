#include "app/CommandLine.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>
#include <utility>

#include "support/Version.h"

namespace tessivane {

namespace {

using Mode = CommandLine::Mode;

constexpr std::array<std::pair<std::string_view, Mode>, 7> modes = {{
    {"--help", Mode::help},
    {"-h", Mode::help},
    {"--version", Mode::version},
    {"--dump-rush", Mode::dumpRush},
    {"--dump", Mode::dump},
    {"--activity", Mode::activity},
    {"--headless", Mode::headless},
}};

std::optional<Mode> modeNamed(std::string_view argument) {
  for (const auto& [name, mode] : modes) {
    if (name == argument)
      return mode;
  }
  return std::nullopt;
}

std::optional<ActivityRange> rangeNamed(std::string_view argument) {
  constexpr std::array<std::pair<std::string_view, ActivityRange>, 3> ranges = {
      {{"m15", ActivityRange::m15}, {"h1", ActivityRange::h1}, {"h6", ActivityRange::h6}}};
  for (const auto& [name, range] : ranges) {
    if (name == argument)
      return range;
  }
  return std::nullopt;
}

}  // namespace

std::variant<CommandLine, CommandLineError> parseCommandLine(
    const std::vector<std::string>& arguments) {
  std::optional<Mode> chosen;
  std::optional<Mode> before;
  CommandLine line;
  for (const std::string& argument : arguments) {
    const auto range = before == Mode::activity ? rangeNamed(argument) : std::nullopt;
    before = range ? std::nullopt : modeNamed(argument);
    if (!range && !before)
      return CommandLineError{"unknown argument \"" + argument + "\""};
    line.range = range.value_or(line.range);
    if (before)
      chosen = std::min(chosen.value_or(*before), *before);
  }
  line.mode = chosen.value_or(Mode::start);
  return line;
}

std::string helpText() {
  return R"(Usage: tessivane [MODE]

Tells for each coding session of Claude Code, Codex and T3 Code on this computer
whether it needs you, works, has finished its turn or is idle. It reads what
these programs leave on disk and never changes it.

Without a mode it runs on the desktop: an icon in the tray and a panel with the
list, which is there at once where there is no tray. Without a display it keeps
watch as --headless does. SIGTERM, SIGINT, SIGHUP or its menu ends it. A second
start brings the panel of the first one forward and ends.

Modes:
  --headless   Keep watch without a window, until a signal ends it. The systemd
               user unit resources/tessivane.service does that at login.
  --dump       List the sessions of today and yesterday, one a line, as columns
               separated by tabs: last activity (UTC), agent, kind, status,
               project, detail, title. Standard error tells how long a first and
               a repeated pass took.
  --dump-rush  List the sessions that wait for you, in the order in which Rush
               would deal them: the columns of --dump without the kind.
  --activity [m15|h1|h6]
               List what happened in the last 15 minutes, hour (unless told
               otherwise) or 6 hours, as the program has stored it, the oldest
               first, as columns separated by tabs: time (UTC), kind, project,
               session, reference, title.
  --help, -h   Show this text.
  --version    Show the version.

Settings are in $XDG_CONFIG_HOME/Tessivane/defaults.json (~/.config by default).
)";
}

std::string versionText() {
  return "Tessivane " + std::string(programVersion);
}

}  // namespace tessivane
