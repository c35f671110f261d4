#include "rush/RushSnooze.h"

#include <chrono>
#include <optional>

namespace tessivane {

namespace {

constexpr int morningHour = 8;

Date tomorrowMorning(Date from, const Calendar& calendar) {
  std::optional<Date> day = calendar.startOfDay(from);
  if (day)
    day = calendar.addingDays(1, *day);
  if (!day)
    day = from + std::chrono::hours(24);
  return calendar.atHour(morningHour, *day).value_or(*day);
}

}  // namespace

std::string_view rawValue(RushSnooze snooze) {
  switch (snooze) {
    case RushSnooze::quarterHour:
      return "quarterHour";
    case RushSnooze::hour:
      return "hour";
    case RushSnooze::tomorrow:
      return "tomorrow";
  }
  return "";
}

Date until(RushSnooze snooze, Date from, const Calendar& calendar) {
  switch (snooze) {
    case RushSnooze::quarterHour:
      return from + std::chrono::minutes(15);
    case RushSnooze::hour:
      return from + std::chrono::hours(1);
    case RushSnooze::tomorrow:
      return tomorrowMorning(from, calendar);
  }
  return from;
}

}  // namespace tessivane
