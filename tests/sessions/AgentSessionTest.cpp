#include "sessions/AgentSession.h"

#include <array>

#include <gtest/gtest.h>

#include "helpers/Command.h"

namespace tessivane {
namespace {

AgentSession session(Agent agent, std::string nativeID) {
  return AgentSession{.agent = agent, .nativeID = std::move(nativeID)};
}

TEST(WindowStart, isMidnightOfYesterdayWhateverTheHourAndTheClockChange) {
  const std::array<const char*, 3> rows[] = {
      {"UTC", "2026-10-05T00:00:00Z", "2026-10-04T00:00:00Z"},
      {"UTC", "2026-10-05T23:59:59.999Z", "2026-10-04T00:00:00Z"},
      // Clocks forward on 8 March.
      {"America/New_York", "2026-03-09T16:00:00Z", "2026-03-08T05:00:00Z"},
      // A day that begins at one in the morning.
      {"America/Sao_Paulo", "2018-11-04T12:00:00Z", "2018-11-03T03:00:00Z"}};
  for (const auto& [zone, now, start] : rows)
    EXPECT_EQ(isoText(windowStart(*isoDate(now), Calendar(zone))), start) << zone << " " << now;
}

TEST(AgentSession, resumesInTheShell) {
  auto codex = session(Agent::codex, "abc");
  EXPECT_EQ(codex.resumeCommand(), "codex resume abc");
  EXPECT_FALSE(codex.copiesResumeCommand());
  EXPECT_EQ(session(Agent::t3, "abc").resumeCommand(), std::nullopt);

  auto claude = session(Agent::claude, "desktop-id");
  EXPECT_EQ(claude.resumeCommand(), std::nullopt);
  EXPECT_FALSE(claude.copiesResumeCommand());
  claude.sourceIDs = {"a:1", "claude:cli-id", "codex:2"};
  EXPECT_EQ(claude.resumeCommand(), "claude --resume cli-id");
  EXPECT_TRUE(claude.copiesResumeCommand());
  claude.openURL = "claude://x";
  EXPECT_FALSE(claude.copiesResumeCommand());
}

TEST(AgentSession, quotesTheDirectoryForTheShell) {
  for (const std::string cwd :
       {"/tmp", "/a b", "/it's", "/''", "/$HOME`id`\"\\", "/line\nend", "/-n"}) {
    auto claude = session(Agent::claude, "x");
    claude.cwd = cwd;
    claude.sourceIDs = {"claude:id"};
    std::string command = *claude.resumeCommand();
    ASSERT_TRUE(command.starts_with("cd "));
    ASSERT_TRUE(command.ends_with(" && claude --resume id"));
    command.replace(0, 3, "printf %s ");
    command.resize(command.find(" && claude"));
    EXPECT_EQ(commandOutput({"sh", "-c", command}, {}), cwd);
  }
}

TEST(SessionStatus, isOneOfFourNumbers) {
  EXPECT_EQ(sessionStatus(-1), std::nullopt);
  EXPECT_EQ(sessionStatus(3), SessionStatus::idle);
  EXPECT_EQ(sessionStatus(4), std::nullopt);
}

}  // namespace
}  // namespace tessivane
