#include <algorithm>
#include <random>

#include <gtest/gtest.h>

#include "RushRun.h"

namespace tessivane {
namespace {

using enum SessionStatus;
using Sessions = std::vector<AgentSession>;

class Dice final {
 public:
  explicit Dice(unsigned seed) : engine_(seed) {}
  std::size_t below(std::size_t sides) {
    return std::uniform_int_distribution<std::size_t>(0, sides - 1)(engine_);
  }
  bool oneIn(std::size_t sides) { return below(sides) == 0; }

 private:
  std::mt19937 engine_;
};

// Few ids and few dates, so that ties, twins and entries without a session occur.
AgentSession randomSession(Dice& dice) {
  AgentSession session = sample(std::to_string(dice.below(12)));
  session.agent = allAgents.at(dice.below(3));
  session.activity = noon + std::chrono::hours(dice.below(7)) - std::chrono::hours(3);
  session.status = *sessionStatus(static_cast<int>(dice.below(4)));
  session.kind = dice.oneIn(5) ? SessionKind::subagent : SessionKind::session;
  session.title = std::to_string(dice.below(1000));  // tells twins apart
  return session;
}

RushRun randomRun(Dice& dice) {
  RushRun run;
  for (std::size_t count = dice.below(40); count > 0; --count)
    run.sessions.push_back(randomSession(dice));
  for (std::size_t count = dice.below(15); count > 0; --count) {
    run.table.done[randomSession(dice).id()] = randomSession(dice).activity;
    run.table.snoozed[randomSession(dice).id()] = {randomSession(dice).activity, dice.oneIn(2)};
    run.table.dealOrder[randomSession(dice).id()] = 100 - static_cast<std::int64_t>(count);
  }
  if (dice.oneIn(2))
    run.table.seat = randomSession(dice);
  if (dice.oneIn(2))
    run.table.nextUpID = randomSession(dice).id();
  run.table.filter.window = RushFilter::windows.at(dice.below(4));
  run.table.filter.needsYouOnly = dice.oneIn(4);
  return run;
}

bool plainlyWaits(const RushTable& table, const AgentSession& session, Date now) {
  if (session.isNoise() || session.status == working || session.status == idle)
    return false;
  if (table.seat && table.seat->id() == session.id())
    return false;
  if (table.done.contains(session.id()) && table.done.at(session.id()) == session.activity)
    return false;
  if (!table.snoozed.contains(session.id()))
    return true;
  const RushSnoozed& snooze = table.snoozed.at(session.id());
  return snooze.until <= now || (session.status == needsYou && !snooze.waitingOnApproval);
}

// The queue once more, step by step and without regard to cost.
Sessions plainQueue(const RushRun& run) {
  const auto& order = run.table.dealOrder;
  std::array<Sessions, 3> groups;
  for (const AgentSession& session : run.sessions) {
    if (plainlyWaits(run.table, session, run.now) &&
        run.table.filter.matches(session, run.now, run.calendar))
      groups.at(order.contains(session.id()) ? 2U
                : session.status == needsYou ? 0U
                                             : 1U)
          .push_back(session);
  }
  for (std::size_t group : {0U, 1U}) {
    std::ranges::stable_sort(groups.at(group), {}, &AgentSession::id);
  }
  std::ranges::stable_sort(groups[0], std::less{}, &AgentSession::activity);
  std::ranges::stable_sort(groups[1], std::greater{}, &AgentSession::activity);
  std::ranges::stable_sort(
      groups[2], {}, [&](const auto& session) { return order.at(session.id()); });
  Sessions queue;
  for (const Sessions& group : groups)
    queue.insert(queue.end(), group.begin(), group.end());
  const auto first = std::ranges::find_if(
      queue, [&](const auto& session) { return session.id() == run.table.nextUpID; });
  if (first != queue.end())
    std::rotate(queue.begin(), first, first + 1);
  return queue;
}

TEST(RushQueue, equalsThePlainOne) {
  Dice dice(20261005);
  for (int round = 0; round < 500; ++round) {
    const RushRun run = randomRun(dice);
    Sessions queue;
    for (const AgentSession* member : run.table.queue(run.sessions, run.now, run.calendar))
      queue.push_back(*member);
    ASSERT_EQ(queue, plainQueue(run)) << "round " << round;
  }
}

}  // namespace
}  // namespace tessivane
