#include "support/Calendar.h"

#include <array>
#include <cstdlib>
#include <tuple>

#include <gtest/gtest.h>

namespace tessivane {
namespace {

TEST(CalendarTest, FindsMidnightsWhereTheClocksChange) {
  const std::array<std::string, 4> rows[] = {
      // Zone, instant, start of its day and of the day before.
      {"UTC", "2024-03-01T23:59:59Z", "2024-03-01T00:00:00Z", "2024-02-29T00:00:00Z"},
      {"UTC", "1969-12-31T23:59:59Z", "1969-12-31T00:00:00Z", "1969-12-30T00:00:00Z"},
      {"Asia/Kathmandu", "2026-01-01T00:00:00Z", "2025-12-31T18:15:00Z", "2025-12-30T18:15:00Z"},
      // The clocks go on, and back, at two in the morning.
      {"America/New_York", "2026-03-08T05:00:00Z", "2026-03-08T05:00:00Z", "2026-03-07T05:00:00Z"},
      {"America/New_York", "2026-03-09T12:00:00Z", "2026-03-09T04:00:00Z", "2026-03-08T05:00:00Z"},
      {"America/New_York", "2026-11-02T12:00:00Z", "2026-11-02T05:00:00Z", "2026-11-01T04:00:00Z"},
      // 23:59:59 is followed by 01:00:00.
      {"America/Sao_Paulo", "2018-11-04T02:59:59Z", "2018-11-03T03:00:00Z", "2018-11-02T03:00:00Z"},
      {"America/Sao_Paulo", "2018-11-04T12:00:00Z", "2018-11-04T03:00:00Z", "2018-11-03T04:00:00Z"},
      {"America/Sao_Paulo", "2018-11-05T12:00:00Z", "2018-11-05T02:00:00Z", "2018-11-04T03:00:00Z"},
      // 23:29:59 is followed by 00:30:00.
      {"America/Toronto", "1919-03-31T12:00:00Z", "1919-03-31T04:30:00Z", "1919-03-30T05:30:00Z"},
      // 00:59:59 is followed by a second midnight.
      {"America/Havana", "2018-11-04T05:30:00Z", "2018-11-04T04:00:00Z", "2018-11-03T04:00:00Z"},
      {"Nowhere/Town", "2026-07-05T12:00:00Z", "2026-07-05T00:00:00Z", "2026-07-04T00:00:00Z"}};
  for (const auto& [zone, instant, start, dayBefore] : rows) {
    const Calendar calendar(zone);
    const Date found = calendar.startOfDay(*isoDate(instant)).value();
    EXPECT_EQ(isoText(found), start) << zone << " " << instant;
    EXPECT_EQ(isoText(*calendar.addingDays(-1, found)), dayBefore) << zone << " " << instant;
  }
  EXPECT_EQ(Calendar("UTC").addingDays(-1, distantPast), std::nullopt);
}

TEST(CalendarTest, FollowsTheZoneOfTheComputer) {
  for (const char* zone : {"America/Sao_Paulo", "Asia/Tokyo"}) {
    ::setenv("TZ", zone, 1);  // NOLINT(concurrency-mt-unsafe)
    EXPECT_EQ(Calendar::current(), Calendar(zone));
  }
  ::unsetenv("TZ");  // NOLINT(concurrency-mt-unsafe)
}

TEST(CalendarTest, FindsAnHourAlsoWhereTheClocksChange) {
  const std::tuple<const char*, int, const char*, const char*> rows[] = {
      {"UTC", 8, "2026-10-05T23:59:59.999Z", "2026-10-05T08:00:00Z"},
      // From 2 to 3 on 8 March, from 2 back to 1 on 1 November.
      {"America/New_York", 8, "2026-03-08T05:00:00Z", "2026-03-08T12:00:00Z"},
      {"America/New_York", 2, "2026-03-08T18:00:00Z", "2026-03-08T07:00:00Z"},
      {"America/New_York", 8, "2026-11-01T04:00:00Z", "2026-11-01T13:00:00Z"},
      {"America/New_York", 1, "2026-11-01T18:00:00Z", "2026-11-01T05:00:00Z"},
      // From 1 to 3.
      {"Antarctica/Troll", 2, "2026-03-29T12:00:00Z", "2026-03-29T01:00:00Z"}};
  for (const auto& [zone, hour, date, expected] : rows) {
    EXPECT_EQ(isoText(Calendar(zone).atHour(hour, *isoDate(date)).value()), expected)
        << zone << " " << hour << " " << date;
  }
}

}  // namespace
}  // namespace tessivane
