#pragma once

// Events for the tests of the flow and the lanes.

#include <cstdint>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "activity/ActivityEvent.h"

namespace tessivane {

inline constexpr Date sampleNoon =
    std::chrono::sys_days{std::chrono::year{2026} / 10 / 5} + std::chrono::hours{12};

inline ActivityEvent sampleEvent(std::string id,
                                 Date date,
                                 ActivityKind kind = ActivityKind::commit,
                                 std::string root = "/a") {
  return ActivityEvent{
      .id = std::move(id), .kind = kind, .date = date, .projectRoot = std::move(root)};
}

class SampleDice final {
 public:
  explicit SampleDice(unsigned seed) : engine_(seed) {}
  std::int64_t below(std::int64_t sides) {
    return std::uniform_int_distribution<std::int64_t>(0, sides - 1)(engine_);
  }
  template <typename List>
  const auto& pick(const List& list) {
    return list[static_cast<std::size_t>(below(static_cast<std::int64_t>(list.size())))];
  }

 private:
  std::mt19937 engine_;
};

/// Few dates, projects and sessions, so that ties and groups occur; every now and then a date at
/// the ends of time or an empty text.
inline std::vector<ActivityEvent> sampleEvents(SampleDice& dice, std::int64_t count) {
  const std::vector<std::string> roots = {"/a", "/b", "/c", ""};
  const std::vector<Date> strange = {Date::min(), distantPast, Date{}, Date::max()};
  std::vector<ActivityEvent> events;
  for (std::int64_t i = 0; i < count; ++i) {
    ActivityEvent event = sampleEvent(std::to_string(dice.below(1000)) + "-" + std::to_string(i),
                                      sampleNoon - std::chrono::seconds(dice.below(600)),
                                      dice.pick(allActivityKinds),
                                      dice.pick(roots));
    if (dice.below(50) == 0)
      event.date = dice.pick(strange);
    if (dice.below(2) == 0)
      event.sessionID = "s" + std::to_string(dice.below(4));
    events.push_back(std::move(event));
  }
  return events;
}

}  // namespace tessivane
