#include "rush/RushTable.h"

#include <gtest/gtest.h>

#include "RushRun.h"

namespace tessivane {
namespace {

using enum SessionStatus;
using std::chrono::hours;
using std::chrono::microseconds;

// A run in which "a" is seated, and those of `names` wait.
RushRun seated(std::initializer_list<const char*> names = {}) {
  RushRun run{.sessions = {sample("a", needsYou, Seconds(90))}};
  run.play("sync");
  for (const char* name : names)
    run.sessions.push_back(sample(name));
  return run;
}

TEST(RushTable, movesTheSeatByItsRules) {
  struct Row {
    const char* script;
    const char* withB;  // what comes of it when "b" waits
    const char* alone;  // and when nobody does
  };
  for (const Row& row : std::initializer_list<Row>{
           {"sync", "none|a|b|", "none|a||"},
           {"a=subagent sync", "none|a|b|", "none|a||"},
           {"a=finished sync", "none|a|b|", "none|a||"},
           {"hold a=finished a=subagent sync", "dealt b|b||moved a", "emptied|||moved a"},
           {"a=working sync", "dealt b|b||played a", "emptied|||played a"},
           {"a=idle sync", "dealt b|b||moved a", "emptied|||moved a"},
           {"hold a=working sync", "none|a|b|", "none|a||"},
           {"hold a=idle sync", "none|a|b|", "none|a||"},
           {"done a=working back sync", "none|a|b|", "none|a||"},
           {"done a=idle back sync", "none|a|b|", "none|a||"},
           {"a=gone sync pass:9.999 sync", "none|a?|b|", "none|a?||"},
           {"a=gone sync pass:10 sync", "dealt b|b||moved a", "emptied|||moved a"},
           {"a=gone sync pass:9 a=new sync", "none|a|b|", "none|a||"},
           {"a=gone sync pass:9 a=new sync a=gone sync pass:9 sync", "none|a?|b|", "none|a?||"},
           // A clock that is set back by hours costs ten seconds more, not hours.
           {"a=gone sync pass:-9999 sync pass:9.999 sync", "none|a?|b|", "none|a?||"},
           {"a=gone sync pass:-9999 sync pass:10 sync", "dealt b|b||moved a", "emptied|||moved a"},
           {"skip", "dealt b|b|a|skipped a", "none|a||"},
           {"done", "dealt b|b||done a", "emptied|||done a"},
           {"a=gone done", "dealt b|b||done a", "emptied|||done a"},
           {"a=working done", "dealt b|b||played a", "emptied|||played a"},
           {"hold a=working sync done", "dealt b|b||played a", "emptied|||played a"},
           {"snooze", "dealt b|b||snoozed a", "emptied|||snoozed a"},
           {"except:a", "dealt b|b||moved a", "emptied|||moved a"},
           {"except:x", "none|a|b|", "none|a||"},
           {"a=elsewhere except:elsewhere", "dealt b|b||moved a", "emptied|||moved a"},
           {"back", "none|a|b|", "none|a||"},
           {"snooze back", "dealt a|a|b|", "dealt a|a||"},
           {"take:b", "dealt b|b|a|", "none|a||"},
           {"take:a", "none|a|b|", "none|a||"},
           {"done sync", "none|b||done a", "none|||done a"},
           {"done a=newer sync", "none|b|a|done a", "dealt a|a||done a"},
       }) {
    EXPECT_EQ(seated().play(row.script), row.alone) << row.script;
    EXPECT_EQ(seated({"b"}).play(row.script), row.withB) << row.script;
  }
  for (const char* script : {"sync", "skip", "done", "snooze", "except:a"}) {
    EXPECT_EQ(RushRun{}.play(script), "none|||") << script;
    EXPECT_EQ((RushRun{.sessions = {sample("b")}}).play(script), "dealt b|b||") << script;
  }
}

TEST(RushTable, playsWholeRuns) {
  struct Row {
    const char* script;
    const char* result;
  };
  for (const Row& row : std::initializer_list<Row>{
           // The skipped go behind everybody, the woken are new, the done come back.
           {"skip skip d=new skip", "dealt d|d|a b c|skipped c, skipped b, skipped a"},
           {"skip snooze pass:60 sync", "none|c|b a|snoozed b, skipped a"},
           {"skip snooze wake sync", "none|c|b a|snoozed b, skipped a"},
           {"done a=newer", "dealt b|b|c a|done a"},
           // Whom `back` displaces is first for one deal, unless it waits no more.
           {"snooze done back back", "dealt a|a|b c|"},
           {"skip skip x=new back", "dealt b|b|c x a|skipped a"},
           {"skip skip x=new back c=idle", "dealt b|b|x a|skipped a"},
           {"skip skip x=new back skip skip", "dealt x|x|a b c|skipped c, skipped b, skipped a"},
           {"skip back c=idle b=idle done b=asks x=new sync", "dealt b|b|x|done a"},
           // Whom `back` seats is seen as it is now, if it is, and held until the next deal.
           {"done a=idle back", "dealt a|a|b c|"},
           {"done a=working back sync skip a=asks take:a a=working sync",
            "dealt c|c|b|played a, skipped a"},
           {"done a=gone sync back sync", "none|a?|b c|"},
           {"skip b=gone sync pass:9 back a=gone sync pass:9 sync", "none|a?|c|"},
           // `take` leaves all that to the next deal.
           {"take:c", "dealt c|c|b a|"},
           {"a=gone sync take:c c=gone pass:9 sync pass:9 sync", "none|c?|b|"},
           {"skip back take:c", "dealt c|c|b a|"},
           {"skip back take:c take:a a=working sync", "none|a|b c|"},
       }) {
    RushRun run = seated({"b", "c"});
    EXPECT_EQ(run.play(row.script), row.result) << row.script;
    EXPECT_TRUE(run.table.isSeatMissing() || run.table.seat == run[run.table.seat->nativeID]);
  }
}

TEST(RushTable, dealsRequestsThenFinishedTurnsThenTheDealtBefore) {
  const auto noise = [](AgentSession session) {
    session.kind = SessionKind::subagent;
    return session;
  };
  RushRun run{.sessions = {sample("new request", needsYou, Seconds(10)),
                           sample("old request", needsYou, Seconds(30)),
                           sample("old turn", yourTurn, Seconds(40)),
                           sample("new turn", yourTurn, Seconds(20)),
                           sample("same turn", yourTurn, Seconds(40)),
                           sample("same request", needsYou, Seconds(30)),
                           sample("second", needsYou),
                           sample("first", yourTurn),
                           sample("works", working),
                           sample("rests", idle),
                           noise(sample("noise", yourTurn)),
                           sample("seat"),
                           sample("done"),
                           sample("active again"),
                           sample("asleep"),
                           sample("asked since"),
                           sample("dozes", yourTurn),
                           sample("awake", yourTurn),
                           sample("hidden", needsYou, hours(5))}};
  run.table = {.seat = run["seat"],
               .done = {{"claude:done", run["done"].activity},
                        {"claude:active again", run["done"].activity - microseconds(1)}},
               .snoozed = {{"claude:asleep", {noon + hours(1), true}},
                           {"claude:asked since", {noon + hours(1), false}},
                           {"claude:dozes", {noon + hours(1), false}},
                           {"claude:awake", {noon, true}}},
               .dealOrder = {{"claude:first", 1}, {"claude:second", 2}}};
  const std::string requests = "active again asked since old request same request new request ";
  const std::string turns = "new turn old turn same turn awake ";
  EXPECT_EQ(run.queue(), requests + turns + "first second");
  run.table.nextUpID = "claude:new turn";
  EXPECT_TRUE(run.queue().starts_with("new turn active again "));
}

TEST(RushTable, countsAndUncounts) {
  RushRun run = seated({"b", "c", "d", "e"});
  run.play("skip done snooze d=working sync e=idle sync");
  EXPECT_EQ(run.table.stats, (RushStats{.played = 1, .skipped = 1, .done = 1, .snoozed = 1}));
  EXPECT_EQ(run.table.history.back(),
            (RushHistoryEntry{0, run["a"], RushHistoryEntry::Outcome::skipped, run.now}));
  run.table.stats.done = 0;  // what is not there is not taken away
  EXPECT_EQ(run.play("back back back back back"), "dealt a|a|b c|");
  EXPECT_EQ(run.table.stats, RushStats{});
  EXPECT_TRUE(run.table.done.empty() && run.table.snoozed.empty());

  for (int i = 0; i < 101; ++i)
    run.play("skip");
  EXPECT_EQ(run.table.history.size(), 100U);
  EXPECT_EQ(run.table.history.front().id, run.table.nextHistoryID - 1);
  EXPECT_EQ(run.table.history.back().id, run.table.nextHistoryID - 100);
  EXPECT_EQ(run.table.stats.skipped, 101);
  EXPECT_EQ(run.table.nextUpID, std::nullopt);

  RushRun alone = seated();
  const RushTable untouched = alone.table;
  alone.play("skip take:a take:x back sync");
  EXPECT_EQ(alone.table, untouched);
}

TEST(RushTable, wakesTheSnoozed) {
  struct Row {
    const char* script;
    bool wakes;
  };
  for (const Row& row : std::initializer_list<Row>{
           {"a=finished snooze pass:59.999999 sync", false},
           {"a=finished snooze pass:60 sync", true},
           {"snooze a=gone pass:59 sync", false},
           {"snooze a=gone pass:60 sync", true},
           // Only a request that came after the snooze breaks through.
           {"a=finished snooze a=asks sync", true},
           {"snooze sync a=newer sync", false},
           {"snooze a=working sync", false},
           {"snooze a=finished sync a=asks sync", true},
           {"snooze a=gone sync a=new sync", false},
       }) {
    RushRun run = seated({"b"});
    run.play(row.script);
    EXPECT_EQ(run.table.snoozed.empty(), row.wakes) << row.script;
    EXPECT_EQ(run.table.dealOrder.contains("claude:a"), !row.wakes) << row.script;
  }
  RushRun run = seated();
  run.play("snooze pass:59.999999");
  EXPECT_FALSE(run.table.hasExpiredSnooze(run.now));
  run.play("pass:0.000001");
  EXPECT_TRUE(run.table.hasExpiredSnooze(run.now));
  EXPECT_EQ(run.queue(), "a");
}

TEST(RushTable, forgetsTheDoneThatAreGoneAfterYesterday) {
  RushRun run{.sessions = {sample("here", idle, hours(99)), sample("busy", working)},
              .calendar = Calendar("America/New_York")};
  const Date start = *isoDate("2026-10-04T04:00:00Z");  // yesterday, over there
  const std::unordered_map<std::string, Date> kept = {
      {"claude:first", start}, {"other:thing", noon}, {"claude:here", run["here"].activity}};
  run.table.done = kept;
  run.table.done["claude:last"] = start - microseconds(1);
  run.table.done["claude:busy"] = run["busy"].activity - microseconds(1);
  run.play("sync");
  EXPECT_EQ(run.table.done, kept);
}

TEST(RushTable, worksWithTheFirstOfTwo) {
  // The second copies would end the snooze, forget the done and move the seat on.
  RushRun run{.sessions = {sample("seat"), sample("done"), sample("asleep", yourTurn)}};
  run.table = {.seat = run["seat"],
               .done = {{"claude:done", run["done"].activity}},
               .snoozed = {{"claude:asleep", {noon + hours(1), true}}}};
  run.sessions.push_back(sample("seat", working, Seconds(1)));
  run.sessions.push_back(sample("done", idle, Seconds(1)));
  run.sessions.push_back(sample("asleep", needsYou));
  EXPECT_EQ(run.play("sync").substr(0, 9), "none|seat");
  EXPECT_EQ(run.table.done.size(), 1U);
  ASSERT_EQ(run.table.snoozed.size(), 1U);
  EXPECT_FALSE(run.table.snoozed.begin()->second.waitingOnApproval);
}

TEST(RushTable, tellsOfRequestsThatTheFilterHides) {
  RushRun run = seated({"b", "done"});
  run.sessions.push_back(sample("old", needsYou, hours(5)));
  run.sessions.push_back(sample("turn", yourTurn, hours(5)));
  run.table.done = {{"claude:done", run["done"].activity}};
  const auto hidden = [&](RushFilter filter) {
    run.table.filter = std::move(filter);
    return run.table.approvalsHiddenByFilter(run.sessions, run.now, run.calendar);
  };
  EXPECT_EQ(hidden({}), 1U);
  EXPECT_EQ(hidden({.hiddenAgents = {"claude"}}), 2U);
  EXPECT_EQ(hidden({.window = RushFilter::Window::all}), 0U);
}

}  // namespace
}  // namespace tessivane
