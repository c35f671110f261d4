#include <algorithm>
#include <cstdio>
#include <exception>
#include <string>
#include <variant>
#include <vector>

#include "app/Application.h"
#include "app/CommandLine.h"

namespace {

int run(const std::vector<std::string>& arguments) {
  using namespace tessivane;
  const auto parsed = parseCommandLine(arguments);
  if (const auto* error = std::get_if<CommandLineError>(&parsed)) {
    std::fprintf(stderr,
                 "tessivane: %s\nTry \"tessivane --help\" for what it can do.\n",
                 error->message.c_str());
    return 2;
  }
  switch (std::get<CommandLine>(parsed).mode) {
    case CommandLine::Mode::help:
      std::fputs(helpText().c_str(), stdout);
      return 0;
    case CommandLine::Mode::version:
      std::puts(versionText().c_str());
      return 0;
    case CommandLine::Mode::dumpRush:
    case CommandLine::Mode::dump:
    case CommandLine::Mode::activity:
    case CommandLine::Mode::headless:
    case CommandLine::Mode::start:
      return runApplication(std::get<CommandLine>(parsed));
  }
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(std::vector<std::string>(argv + std::min(argc, 1), argv + argc));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "tessivane: %s\n", error.what());
    return 1;
  }
}
