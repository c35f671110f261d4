#include "rush/RushSnooze.h"

#include <gtest/gtest.h>

namespace tessivane {
namespace {

TEST(RushSnooze, endsWhenItSays) {
  struct Row {
    RushSnooze snooze;
    const char* zone;
    const char* from;
    const char* until;
  };
  const auto tomorrow = RushSnooze::tomorrow;
  for (const Row& row : std::initializer_list<Row>{
           {RushSnooze::quarterHour, "UTC", "2026-10-05T23:50:00Z", "2026-10-06T00:05:00Z"},
           // Across the hour that is not there.
           {RushSnooze::hour, "America/New_York", "2026-03-08T06:30:00Z", "2026-03-08T07:30:00Z"},
           {tomorrow, "UTC", "2026-10-05T00:00:00Z", "2026-10-06T08:00:00Z"},
           {tomorrow, "UTC", "2026-10-05T23:59:59.999Z", "2026-10-06T08:00:00Z"},
           // The clocks change in the night to tomorrow, and in the night to today.
           {tomorrow, "America/New_York", "2026-03-07T17:00:00Z", "2026-03-08T12:00:00Z"},
           {tomorrow, "America/New_York", "2026-03-08T05:30:00Z", "2026-03-09T12:00:00Z"},
           {tomorrow, "America/New_York", "2026-10-31T17:00:00Z", "2026-11-01T13:00:00Z"},
           {tomorrow, "America/New_York", "2026-11-01T04:30:00Z", "2026-11-02T13:00:00Z"},
           // Tomorrow has no time like now.
           {tomorrow, "Asia/Pyongyang", "2018-05-03T15:15:00Z", "2018-05-03T23:30:00Z"},
           // Tomorrow has no midnight, today has none, and tomorrow is not there at all.
           {tomorrow, "America/Sao_Paulo", "2018-11-03T12:00:00Z", "2018-11-04T10:00:00Z"},
           {tomorrow, "America/Sao_Paulo", "2018-11-04T12:00:00Z", "2018-11-05T10:00:00Z"},
           {tomorrow, "Pacific/Apia", "2011-12-29T22:00:00Z", "2011-12-30T18:00:00Z"},
       }) {
    const Date end = until(row.snooze, *isoDate(row.from), Calendar(row.zone));
    EXPECT_EQ(isoText(end), row.until) << row.zone << " " << row.from;
  }
}

}  // namespace
}  // namespace tessivane
