// What session lists tell when one is compared with the one before.

#include <optional>
#include <string>
#include <vector>

#include "StoreFixture.h"
#include "backend/BackendSessionAgents.h"
#include "backend/BackendStartDetector.h"
#include "backend/BackendTransitionDetector.h"

namespace tessivane {
namespace {

using namespace std::chrono_literals;
using Status = SessionStatus;

AgentSession sample(SessionStatus status, Seconds age = Seconds(60)) {
  return {.agent = Agent::t3,
          .nativeID = "1",
          .title = "Tidy the shed",
          .projectPath = "/home/me/shed",
          .model = "OpenAI / GPT-5",
          .activity = noon - std::chrono::duration_cast<Date::duration>(age),
          .status = status,
          .detail = "Bash"};
}

TEST(BackendTransitionDetectorTest, TellsWhoBeginsToWaitAndWhoFinishes) {
  struct Row {
    std::string name = {};
    std::vector<std::optional<Status>> before = {};  // one a list; nothing: not in it
    AgentSession now = {};
    std::string told = {};
  };
  const auto of = [](SessionKind kind, Status status) {
    AgentSession session = sample(status);
    session.kind = kind;
    return session;
  };
  const auto helper = SessionKind::subagent;
  const AgentSession waiting = sample(Status::needsYou);
  const AgentSession done = sample(Status::yourTurn);
  const std::vector<Row> rows = {
      {"first list, waiting", {}, waiting},
      {"first list, done", {}, done},
      {"begins to wait", {Status::working}, waiting, "needsYou"},
      {"begins to wait after its turn", {Status::yourTurn}, waiting, "needsYou"},
      {"still waits", {Status::needsYou}, waiting},
      {"waits again", {Status::needsYou, Status::idle}, waiting, "needsYou"},
      {"has begun long ago", {Status::idle}, sample(Status::needsYou, 5h), "needsYou"},
      {"turns up waiting", {std::nullopt}, sample(Status::needsYou, 600s), "needsYou"},
      {"turns up, old news", {std::nullopt}, sample(Status::needsYou, 600.001s)},
      {"comes back waiting", {Status::needsYou, std::nullopt}, waiting, "needsYou"},
      {"a helper waits", {Status::working}, of(helper, Status::needsYou), "needsYou"},
      {"finishes", {Status::working}, done, "finished"},
      {"finishes unseen", {Status::working, Status::idle}, done},
      {"turns up done", {std::nullopt}, done},
      {"waited, then done", {Status::needsYou}, done},
      {"a helper finishes", {Status::working}, of(helper, Status::yourTurn)},
      {"a job finishes", {Status::working}, of(SessionKind::automation, Status::yourTurn)},
      {"works", {Status::yourTurn}, sample(Status::working)},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    BackendTransitionDetector detector;
    for (const auto& before : row.before) {
      std::vector<AgentSession> sessions;
      if (before)
        sessions.push_back(sample(*before));
      detector.diff(sessions, noon);
    }
    const auto events = detector.diff({row.now}, noon);
    ASSERT_LE(events.size(), 1U);
    EXPECT_EQ(events.empty() ? "" : rawValue(events[0].kind), row.told);
    EXPECT_TRUE(detector.diff({row.now}, noon).empty());
  }
}

class LiveEventTest : public StoreTest {};

// The feed knows both as one by their id.
TEST_F(LiveEventTest, IsTheSameFromItsRow) {
  BackendTransitionDetector detector;
  AgentSession other = sample(Status::working, -5s);
  other.nativeID = "2";
  other.projectPath = "";
  other.model = "house brand";
  other.detail = "";
  detector.diff({sample(Status::working), other}, noon - 1h);
  other.status = Status::yourTurn;
  auto events = detector.diff({sample(Status::needsYou, 90.5s), other}, noon);
  ASSERT_EQ(events.size(), 2U);
  EXPECT_EQ(events[0].id, "needsYou:/home/me/shed:t3:1@1791201509");
  EXPECT_EQ(events[0].engine, Agent::codex);
  EXPECT_EQ(events[0].detail, "Bash");
  EXPECT_EQ(events[1].id, "finished::t3:2@1791201600");  // not after now
  EXPECT_EQ(events[1].engine, std::nullopt);
  EXPECT_EQ(events[1].detail, std::nullopt);
  AgentSession started = sample(Status::idle);
  started.startedAt = noon - 1s;
  const auto starts = BackendStartDetector().events({started}, noon);
  events.insert(events.end(), starts.begin(), starts.end());
  ASSERT_EQ(events.size(), 3U);
  for (ActivityEvent& event : events) {
    EXPECT_EQ(event.firstSeen, noon);
    EXPECT_EQ(event.title, event.sessionTitle);
    event.firstSeen = distantPast;
    EXPECT_TRUE(store().insert(event));
  }
  EXPECT_EQ(store().history(distantPast).events,
            (std::vector<ActivityEvent>{events[0], events[2], events[1]}));
}

TEST(BackendStartDetectorTest, TellsEachStartOnce) {
  struct Row {
    std::optional<Date> start = {};
    std::optional<Date> told = {};
    bool fresh = false;
    SessionKind kind = SessionKind::session;
    std::size_t later = 0;  // once it is known to have started an hour ago
  };
  for (const Row& row : {Row{noon - 119s, noon - 119s, true},
                         Row{noon - 120s, noon - 120s},
                         Row{noon + 1h, noon, true},
                         Row{noon - 48h, noon - 48h},
                         Row{noon - 48h - 1us},
                         Row{.later = 1},
                         Row{.start = noon, .kind = SessionKind::automation},
                         Row{noon, noon, true, SessionKind::subagent}}) {
    AgentSession session = sample(Status::idle);
    session.kind = row.kind;
    session.startedAt = row.start;
    BackendStartDetector detector;
    const auto events = detector.events({session, session}, noon);
    session.startedAt = noon - 1h;
    EXPECT_EQ(detector.events({session}, noon).size(), row.later);
    ASSERT_EQ(events.size(), row.told ? 1U : 0U);
    if (!row.told)
      continue;
    EXPECT_EQ(events[0].id, "started:/home/me/shed:t3:1");
    EXPECT_EQ(events[0].ref, "t3:1");
    EXPECT_EQ(events[0].date, *row.told);
    EXPECT_EQ(events[0].firstSeen, row.fresh ? noon : distantPast);
    EXPECT_EQ(events[0].detail.value_or(""), row.kind == SessionKind::subagent ? "subagent" : "");
  }
}

TEST(BackendSessionAgentsTest, KnowsTheFamilyOfAModel) {
  struct Row {
    Agent agent = Agent::t3;
    std::string model = {};
    std::optional<Agent> engine = {};
  };
  for (const Row& row : std::vector<Row>{{Agent::claude, "gpt-5", Agent::claude},
                                         {Agent::codex, "", Agent::codex},
                                         {Agent::t3, "claudeAgent / Opus", Agent::claude},
                                         {Agent::t3, "gpt by way of CLAUDE", Agent::claude},
                                         {Agent::t3, "Codex / o9", Agent::codex},
                                         {Agent::t3, "openai / GPT-5", Agent::codex},
                                         {Agent::t3, "gémma", std::nullopt},
                                         {Agent::t3, "", std::nullopt}}) {
    EXPECT_EQ(BackendSessionAgents::engine({.agent = row.agent, .model = row.model}), row.engine)
        << row.model;
  }
}

}  // namespace
}  // namespace tessivane
