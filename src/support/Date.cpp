#include "support/Date.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>

#include <fmt/format.h>

namespace tessivane {

namespace {

using namespace std::chrono;

// Reads `count` digits at the front of `text` and takes them off it; nothing if they are not there.
std::optional<int> takeDigits(std::string_view& text, std::size_t count) {
  if (text.size() < count)
    return std::nullopt;
  int value = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const char c = text[i];
    if (c < '0' || c > '9')
      return std::nullopt;
    value = value * 10 + (c - '0');
  }
  text.remove_prefix(count);
  return value;
}

bool take(std::string_view& text, char expected) {
  if (text.empty() || text.front() != expected)
    return false;
  text.remove_prefix(1);
  return true;
}

std::optional<sys_days> takeDay(std::string_view& text) {
  const auto y = takeDigits(text, 4);
  if (!y || !take(text, '-'))
    return std::nullopt;
  const auto m = takeDigits(text, 2);
  if (!m || !take(text, '-'))
    return std::nullopt;
  const auto d = takeDigits(text, 2);
  if (!d)
    return std::nullopt;
  const year_month_day date{
      year{*y}, month{static_cast<unsigned>(*m)}, day{static_cast<unsigned>(*d)}};
  if (!date.ok())
    return std::nullopt;
  return sys_days{date};
}

std::optional<seconds> takeTimeOfDay(std::string_view& text) {
  const auto h = takeDigits(text, 2);
  if (!h || *h > 23 || !take(text, ':'))
    return std::nullopt;
  const auto m = takeDigits(text, 2);
  if (!m || *m > 59 || !take(text, ':'))
    return std::nullopt;
  const auto s = takeDigits(text, 2);
  if (!s || *s > 60)
    return std::nullopt;
  return hours{*h} + minutes{*m} + seconds{std::min(*s, 59)};
}

std::optional<microseconds> takeFraction(std::string_view& text) {
  if (!take(text, '.'))
    return microseconds{0};
  std::int64_t value = 0;
  int digits = 0;
  while (!text.empty() && text.front() >= '0' && text.front() <= '9') {
    if (digits < 6)
      value = value * 10 + (text.front() - '0');
    ++digits;
    text.remove_prefix(1);
  }
  if (digits == 0)
    return std::nullopt;
  for (int i = digits; i < 6; ++i)
    value *= 10;
  return microseconds{value};
}

std::optional<minutes> takeZone(std::string_view& text) {
  if (take(text, 'Z'))
    return minutes{0};
  if (text.empty() || (text.front() != '+' && text.front() != '-'))
    return std::nullopt;
  const bool west = text.front() == '-';
  text.remove_prefix(1);
  const auto h = takeDigits(text, 2);
  if (!h || *h > 23)
    return std::nullopt;
  take(text, ':');
  const auto m = takeDigits(text, 2);
  if (!m || *m > 59)
    return std::nullopt;
  const minutes offset = hours{*h} + minutes{*m};
  return west ? -offset : offset;
}

// Splits an instant into the civil fields that the text forms print.
struct CivilTime {
  year_month_day day = {};
  hh_mm_ss<microseconds> time = {};
};

CivilTime civilTime(Date date) {
  const auto day = floor<days>(date);
  return {year_month_day{day}, hh_mm_ss<microseconds>{date - day}};
}

std::string isoTextWithoutZone(const CivilTime& civil) {
  return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}",
                     static_cast<int>(civil.day.year()),
                     static_cast<unsigned>(civil.day.month()),
                     static_cast<unsigned>(civil.day.day()),
                     civil.time.hours().count(),
                     civil.time.minutes().count(),
                     civil.time.seconds().count());
}

}  // namespace

Date shifted(Date date, Seconds seconds) {
  const double count = std::round(seconds.count() * 1e6);
  if (std::isnan(count))
    return date;
  std::int64_t sum = 0;
  // 2^63, the first number that is too large.
  if (std::abs(count) >= 0x1p63 ||
      __builtin_add_overflow(
          date.time_since_epoch().count(), static_cast<std::int64_t>(count), &sum))
    return count > 0 ? Date::max() : Date::min();
  return Date{microseconds{sum}};
}

std::optional<Date> dateFromSeconds(double seconds) {
  if (!std::isfinite(seconds))
    return std::nullopt;
  const double count = std::round(seconds * 1e6);
  if (count < static_cast<double>(distantPast.time_since_epoch().count()) ||
      count >= static_cast<double>(endOfCalendar.time_since_epoch().count())) {
    return std::nullopt;
  }
  return Date{microseconds{static_cast<std::int64_t>(count)}};
}

std::optional<Date> isoDate(std::string_view text) {
  const auto day = takeDay(text);
  if (!day || !take(text, 'T'))
    return std::nullopt;
  const auto time = takeTimeOfDay(text);
  if (!time)
    return std::nullopt;
  const auto fraction = takeFraction(text);
  if (!fraction)
    return std::nullopt;
  const auto zone = takeZone(text);
  if (!zone || !text.empty())
    return std::nullopt;
  const Date date = Date{*day} + *time + *fraction - *zone;
  if (date < distantPast || date >= endOfCalendar)
    return std::nullopt;
  return date;
}

std::optional<Date> msDate(double milliseconds) {
  if (!(milliseconds > 0))
    return std::nullopt;
  return dateFromSeconds(milliseconds / 1000.0);
}

std::optional<Date> msDate(std::string_view text) {
  double value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc{} || end != text.data() + text.size())
    return std::nullopt;
  return msDate(value);
}

std::string isoText(Date date) {
  return isoTextWithoutZone(civilTime(date)) + "Z";
}

std::string isoTextWithMilliseconds(Date date) {
  const CivilTime civil = civilTime(date);
  return fmt::format(
      "{}.{:03}Z", isoTextWithoutZone(civil), civil.time.subseconds().count() / 1000);
}

}  // namespace tessivane
