#include "activity/ReplayClock.h"

#include <algorithm>

namespace tessivane {

namespace {

// When the segment, if it went on, would pass `date`, which is no earlier than its position.
Date passing(const ReplayClock::Segment& segment, Date date) {
  return shifted(segment.wall, elapsed(segment.position, date) / segment.rate);
}

}  // namespace

double rate(ReplaySpeed speed) {
  constexpr std::array<double, allReplaySpeeds.size()> rates = {1, 10, 60, 360};
  return rates.at(static_cast<std::size_t>(speed));
}

std::string label(ReplaySpeed speed) {
  return std::to_string(static_cast<int>(rate(speed))) + "x";
}

ReplayClock ReplayClock::playing(Date start, ReplaySpeed speed, Date now) {
  return {.start = start,
          .speed = speed,
          .isPlaying = true,
          .segments = {{.wall = now, .position = start, .rate = tessivane::rate(speed)}}};
}

Date ReplayClock::position(Date time) const {
  if (segments.empty())
    return std::min(start, time);
  const Segment& last = segments.back();
  const Seconds run = std::max(elapsed(last.wall, time), Seconds(0));
  return std::min(shifted(last.position, run * last.rate), time);
}

std::optional<Date> ReplayClock::crossingTime(Date date, Date now) const {
  if (date <= start || date > position(now))
    return std::nullopt;
  for (auto segment = segments.begin(); segment != segments.end(); ++segment) {
    const auto next = segment + 1;
    if (segment->rate > 0 && segment->position < date &&
        (next == segments.end() || next->position >= date))
      return passing(*segment, date);
  }
  return std::nullopt;
}

std::optional<Date> ReplayClock::popInTime(Date date, Date now) const {
  if (const auto crossing = crossingTime(date, now))
    return crossing;
  if (segments.empty() || segments.back().rate <= 0 || date <= segments.back().position)
    return std::nullopt;
  return passing(segments.back(), date);
}

void ReplayClock::anchor(Date now) {
  const Segment segment{
      .wall = now, .position = position(now), .rate = isPlaying ? tessivane::rate(speed) : 0};
  const bool isSame = !segments.empty() && segments.back().position == segment.position &&
                      segments.back().rate == segment.rate;
  if (!isSame)
    segments.push_back(segment);
}

}  // namespace tessivane
