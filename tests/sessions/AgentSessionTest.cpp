#include "sessions/AgentSession.h"

#include <array>
#include <cstdio>
#include <memory>

#include <gtest/gtest.h>

namespace tessivane {
namespace {

AgentSession session(Agent agent, std::string nativeID) {
  return AgentSession{.agent = agent, .nativeID = std::move(nativeID)};
}

// What a POSIX shell makes of `command`.
std::string shellOutput(const std::string& command) {
  const std::unique_ptr<FILE, int (*)(FILE*)> pipe(::popen(command.c_str(), "r"), ::pclose);
  std::string output;
  std::array<char, 256> chunk{};
  while (const auto count = std::fread(chunk.data(), 1, chunk.size(), pipe.get())) {
    output.append(chunk.data(), count);
  }
  return output;
}

TEST(WindowStart, isMidnightOfYesterdayWhateverTheHourAndTheClockChange) {
  struct Row {
    const char* zone;
    const char* now;
    const char* start;
  };
  for (const Row& row : std::initializer_list<Row>{
           {"UTC", "2026-10-05T00:00:00Z", "2026-10-04T00:00:00Z"},
           {"UTC", "2026-10-05T23:59:59.999Z", "2026-10-04T00:00:00Z"},
           {"UTC", "2026-03-01T12:00:00Z", "2026-02-28T00:00:00Z"},
           // Clocks forward on 8 March, back on 1 November.
           {"America/New_York", "2026-03-09T16:00:00Z", "2026-03-08T05:00:00Z"},
           {"America/New_York", "2026-03-08T16:00:00Z", "2026-03-07T05:00:00Z"},
           {"America/New_York", "2026-11-02T16:00:00Z", "2026-11-01T04:00:00Z"},
           {"America/New_York", "2026-11-01T16:00:00Z", "2026-10-31T04:00:00Z"},
           // A day that begins at one in the morning.
           {"America/Sao_Paulo", "2018-11-04T12:00:00Z", "2018-11-03T03:00:00Z"},
       }) {
    EXPECT_EQ(isoText(windowStart(*isoDate(row.now), Calendar(row.zone))), row.start)
        << row.zone << " " << row.now;
  }
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
    EXPECT_EQ(shellOutput(command), cwd);
  }
}

TEST(AgentSession, isNoiseUnlessItNeedsThePerson) {
  for (const SessionKind kind :
       {SessionKind::session, SessionKind::automation, SessionKind::subagent}) {
    for (int status = 0; status <= 3; ++status) {
      AgentSession value;
      value.kind = kind;
      value.status = *sessionStatus(status);
      EXPECT_EQ(value.isNoise(),
                kind != SessionKind::session && value.status != SessionStatus::needsYou);
    }
  }
  EXPECT_EQ(sessionStatus(4), std::nullopt);
  EXPECT_EQ(sessionStatus(-1), std::nullopt);
}

TEST(AgentSession, differsInAnyField) {
  const AgentSession base{.agent = Agent::claude, .nativeID = "1", .activity = distantPast};
  const std::initializer_list<void (*)(AgentSession&)> changes = {
      [](AgentSession& s) { s.agent = Agent::t3; },
      [](AgentSession& s) { s.nativeID = "2"; },
      [](AgentSession& s) { s.title = "t"; },
      [](AgentSession& s) { s.cwd = "c"; },
      [](AgentSession& s) { s.projectPath = "p"; },
      [](AgentSession& s) { s.model = "m"; },
      [](AgentSession& s) { s.activity += std::chrono::microseconds(1); },
      [](AgentSession& s) { s.status = SessionStatus::working; },
      [](AgentSession& s) { s.detail = "d"; },
      [](AgentSession& s) { s.lastMessage = "l"; },
      [](AgentSession& s) { s.openURL = ""; },
      [](AgentSession& s) { s.kind = SessionKind::subagent; },
      [](AgentSession& s) { s.sourceIDs = {"x"}; },
      [](AgentSession& s) { s.launcher = "cli"; },
      [](AgentSession& s) { s.transcriptPath = "/t"; },
      [](AgentSession& s) { s.startedAt = distantPast; },
  };
  EXPECT_EQ(changes.size(), 16U);
  for (const auto change : changes) {
    AgentSession changed = base;
    change(changed);
    EXPECT_NE(changed, base);
    EXPECT_NE(hashValue(changed), hashValue(base));
  }
}

}  // namespace
}  // namespace tessivane
