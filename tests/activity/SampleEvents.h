#pragma once

// Events for the tests, single ones and many by chance.

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "activity/ActivityEvent.h"
#include "helpers/Random.h"

namespace tessivane {

inline constexpr Date sampleNoon =
    std::chrono::sys_days{std::chrono::year{2026} / 10 / 5} + std::chrono::hours{12};

inline ActivityEvent sampleEvent(std::string id,
                                 Date date,
                                 ActivityKind kind = ActivityKind::commit,
                                 std::string root = "/a") {
  return {.id = std::move(id), .kind = kind, .date = date, .projectRoot = std::move(root)};
}

/// The event with one member changed.
template <typename Member, typename Value>
ActivityEvent with(ActivityEvent event, Member ActivityEvent::*member, Value value) {
  event.*member = std::move(value);
  return event;
}

template <typename List>
const auto& pick(const List& list, Random& random) {
  return list[random.below(list.size())];
}

/// Fewer than `bound`, of few dates, projects and sessions, so that ties and groups occur; every
/// now and then a date at the ends of time or an empty text.
inline std::vector<ActivityEvent> sampleEvents(Random& random, std::size_t bound) {
  const std::vector<std::string> roots = {"/a", "/b", "/c", ""};
  const std::vector<Date> strange = {Date::min(), distantPast, Date{}, Date::max()};
  std::vector<ActivityEvent> events;
  for (std::size_t count = random.below(bound); count > 0; --count) {
    events.push_back(sampleEvent(random.hex(3) + "-" + std::to_string(count),
                                 sampleNoon - std::chrono::seconds(random.below(600)),
                                 pick(allActivityKinds, random),
                                 pick(roots, random)));
    if (random.chance(2))
      events.back().date = pick(strange, random);
    if (random.chance(50))
      events.back().sessionID = "s" + std::to_string(random.below(4));
  }
  return events;
}

}  // namespace tessivane
