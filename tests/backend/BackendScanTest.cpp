// The checks of the fuzz programs on a small corpus: among them, that what lines tell does not
// depend on the pieces in which they come.

#include <random>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "SampleLines.h"
#include "StoreFixture.h"
#include "fuzz/ScanChecks.h"
#include "helpers/ChangedText.h"

namespace tessivane {
namespace {

TEST(BackendScanTest, HoldsForAnyBytes) {
  std::mt19937 random(20261005);
  constexpr std::string_view inserts = "\n\"\\{}[]:,' \t$#-<\xff\xf0";
  const std::string pull = "https://github.com/Me/Shed/pull/7";
  const std::string command = "--title \"A \\\"b\\\"\" -R=Me/Shed.git '#7' -b x " + pull;
  const std::string lines = jsonLines({claude::bash("t1", "gh pr create -t 'x'"),
                                       claude::result("t1", {{{"text", pull}}}),
                                       claude::bash("t2", "gh pr merge 7"),
                                       claude::sentToBackground("t2", "/nowhere/x.output"),
                                       claude::notified("t2", ""),
                                       claude::edit("t3", "/p/\u00FC"),
                                       codex::command("gh pr create -t 'x'", pull),
                                       codex::change("c1", {{"/p/a", nullptr}})});
  // A violated check prints what it is and aborts.
  for (int i = 0; i < 2000; ++i) {
    fuzz::checkGHCommand(changedText(command, inserts, random));
    fuzz::checkTranscript(changedText(lines, inserts, random));
  }
  EXPECT_EQ(BackendClaudeScanner().scan(lines, noon).size(), 3U);
  EXPECT_EQ(BackendCodexScanner().scan(lines, noon).size(), 2U);
}

}  // namespace
}  // namespace tessivane
