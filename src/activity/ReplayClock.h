#pragma once

// Where a replay stands in the past, as a function of the time on the wall: straight pieces, one
// for each stretch at one speed. A plain value, safe on every thread; the feed owns the one that
// runs.

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "support/Date.h"

namespace tessivane {

enum class ReplaySpeed { x1, x10, x60, x360 };

inline constexpr std::array allReplaySpeeds = {
    ReplaySpeed::x1, ReplaySpeed::x10, ReplaySpeed::x60, ReplaySpeed::x360};

/// Replayed seconds in a second.
double rate(ReplaySpeed speed);
/// "1x", "10x", "60x", "360x".
std::string label(ReplaySpeed speed);

struct ReplayClock {
  /// From `wall` on the replay runs at `rate`, beginning at `position`; at rate 0 it is paused.
  struct Segment {
    Date wall = distantPast;
    Date position = distantPast;
    double rate = 0;

    friend bool operator==(const Segment&, const Segment&) = default;
  };

  Date start = distantPast;  ///< where the replay began
  ReplaySpeed speed = ReplaySpeed::x1;
  bool isPlaying = true;
  std::vector<Segment> segments = {};  ///< at least one, in the order of `wall`

  /// A clock that begins to play at `start`.
  static ReplayClock playing(Date start, ReplaySpeed speed, Date now);

  /// Where the replay stands at a time that the last segment covers; before that segment, where it
  /// begins. Never later than `time`: a replay does not overtake the present.
  Date position(Date time) const;

  /// When, on the wall, the replay passed `date`. Nothing for what it has not reached by `now`, and
  /// for its start and all before that.
  std::optional<Date> crossingTime(Date date, Date now) const;

  /// When, on the wall, an event of that date is to appear as new: when the replay passed it or, if
  /// that is to come, when it will at the present speed. Nothing where neither is known.
  std::optional<Date> popInTime(Date date, Date now) const;

  /// Begins a new segment at `now` from `speed` and `isPlaying`. Adds none where the position map
  /// would stay the same.
  void anchor(Date now);

  friend bool operator==(const ReplayClock&, const ReplayClock&) = default;
};

}  // namespace tessivane
