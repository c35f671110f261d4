#include "app/CommandLine.h"

#include <gtest/gtest.h>

namespace tessivane {
namespace {

TEST(CommandLine, choosesOneModeOrRefuses) {
  using Mode = CommandLine::Mode;
  struct Row {
    std::vector<std::string> arguments;
    std::variant<CommandLine, CommandLineError> result;
  };
  for (const Row& row : std::initializer_list<Row>{
           {{}, CommandLine{Mode::start}},
           {{"--headless"}, CommandLine{Mode::headless}},
           {{"--dump"}, CommandLine{Mode::dump}},
           {{"--dump", "--dump-rush"}, CommandLine{Mode::dumpRush}},
           {{"--headless", "--dump"}, CommandLine{Mode::dump}},
           {{"--dump", "--version"}, CommandLine{Mode::version}},
           {{"--version", "-h"}, CommandLine{Mode::help}},
           {{"--dump", "--Dump"}, CommandLineError{"unknown argument \"--Dump\""}},
           {{""}, CommandLineError{"unknown argument \"\""}},
       }) {
    EXPECT_EQ(parseCommandLine(row.arguments), row.result);
  }
}

}  // namespace
}  // namespace tessivane
