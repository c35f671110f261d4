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
           {{"--dump-rush", "--dump"}, CommandLine{Mode::dumpRush}},
           {{"--headless", "--dump"}, CommandLine{Mode::dump}},
           {{"--version", "--dump"}, CommandLine{Mode::version}},
           {{"--version", "-h"}, CommandLine{Mode::help}},
           {{"--activity"}, CommandLine{Mode::activity, ActivityRange::h1}},
           {{"--activity", "m15"}, CommandLine{Mode::activity, ActivityRange::m15}},
           {{"--activity", "h6", "--dump"}, CommandLine{Mode::dump, ActivityRange::h6}},
           {{"--activity", "--version"}, CommandLine{Mode::version}},
           {{"--activity", "h6", "h1"}, CommandLineError{"unknown argument \"h1\""}},
           {{"h6"}, CommandLineError{"unknown argument \"h6\""}},
           {{"--dump", "--Dump"}, CommandLineError{"unknown argument \"--Dump\""}},
           {{""}, CommandLineError{"unknown argument \"\""}},
       }) {
    EXPECT_EQ(parseCommandLine(row.arguments), row.result);
  }
}

}  // namespace
}  // namespace tessivane
