#pragma once

// Instants and their text forms. Plain values, safe on every thread. Nothing here reads a clock:
// whoever needs the time gets it as an argument or through a `Clock`.

#include <algorithm>
#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace tessivane {

/// An instant, exact to the microsecond: comparing and hashing lose nothing, and neither does a
/// round trip through a database real between the years 1835 and 2105.
using Date = std::chrono::sys_time<std::chrono::microseconds>;
using Seconds = std::chrono::duration<double>;
using Clock = std::function<Date()>;

/// Stands for "never": earlier than anything a tool writes (0001-01-01 00:00:00 UTC).
inline constexpr Date distantPast =
    std::chrono::sys_days{std::chrono::year{1} / std::chrono::January / 1};

/// The first instant after what a text form can tell (10000-01-01 00:00:00 UTC).
inline constexpr Date endOfCalendar =
    std::chrono::sys_days{std::chrono::year{10000} / std::chrono::January / 1};

/// `date`, or the nearest one from `distantPast` to `endOfCalendar`. Between these any two can be
/// subtracted.
constexpr Date withinCalendar(Date date) {
  return std::clamp(date, distantPast, endOfCalendar);
}

/// Seconds from `earlier` to `later`; negative when the order is the other way round.
constexpr Seconds elapsed(Date earlier, Date later) {
  return later - earlier;
}

/// `date` moved by `seconds`, to the nearest microsecond. What lies beyond the first or last
/// instant that a `Date` can hold becomes that instant; not a number moves nothing.
Date shifted(Date date, Seconds seconds);

/// Seconds since 1970 as the databases store them.
constexpr double secondsSince1970(Date date) {
  return Seconds(date.time_since_epoch()).count();
}

/// The instant `seconds` after 1970, to the nearest microsecond; nothing for a number that is not
/// finite or lies outside the years 1 to 9999.
std::optional<Date> dateFromSeconds(double seconds);

/// An internet date-time ("2026-10-05T09:00:00Z"), with or without a fraction, zone "Z" or a
/// numeric offset. Digits past the microsecond are dropped; second 60 counts as 59. Anything else,
/// a text without a zone or outside the years 1 to 9999 included, gives nothing.
std::optional<Date> isoDate(std::string_view text);

/// Milliseconds since 1970, as a number or as the text of one. Zero, negative, not finite, past the
/// year 9999 or not wholly a number: nothing.
std::optional<Date> msDate(double milliseconds);
std::optional<Date> msDate(std::string_view text);

/// "2026-10-05T09:00:00Z": whole seconds in UTC, rounded down.
std::string isoText(Date date);

/// "2026-10-05T09:00:00.123Z": the form in which T3 Code writes every time, so that texts compare
/// as their dates do.
std::string isoTextWithMilliseconds(Date date);

}  // namespace tessivane
