#include "support/Date.h"

#include <cmath>
#include <limits>
#include <random>
#include <sstream>

#include <gtest/gtest.h>

namespace tessivane {
namespace {

using namespace std::chrono;
using namespace std::chrono_literals;

constexpr Date october = Date{sys_days{2026y / 10 / 5}} + 9h;
constexpr Date year10000 = sys_days{10000y / 1 / 1};

TEST(DateTest, ReadsInternetDateTimes) {
  const std::pair<std::string_view, Date> rows[] = {
      {"2026-10-05T09:00:00Z", october},
      {"2026-10-05T09:00:00.1Z", october + 100ms},
      {"2026-10-05T11:00:00.123456789+02:00", october + 123456us},
      {"2026-10-05T05:30:00.5-0330", october + 500ms},
      {"2026-10-04T23:59:60Z", october - 9h - 1s},
      {"2024-02-29T00:00:00Z", sys_days{2024y / 2 / 29}},
      {"1969-12-31T23:59:59.75Z", Date{} - 250ms},
      {"0001-01-01T00:00:00Z", distantPast},
      {"9999-12-31T23:59:59.999999Z", year10000 - 1us}};
  for (const auto& [text, expected] : rows)
    EXPECT_EQ(isoDate(text), expected) << text;

  std::istringstream refused(
      "|Z|2026-10-05|2026-10-05T09:00:00|2026-10-05T09:00Z|2026-10-05 09:00:00Z|"
      "2026-10-05T24:00:00Z|2026-10-05T09:60:00Z|2026-10-05T09:00:61Z|2026-02-29T09:00:00Z|"
      "2026-13-05T09:00:00Z|2026-00-05T09:00:00Z|2026-10-00T09:00:00Z|26-10-05T09:00:00Z|"
      "-026-10-05T09:00:00Z|2026-10-05T09:00:00.Z|2026-10-05T09:00:00,5Z|2026-10-05T09:00:00+2|"
      "2026-10-05T09:00:00+02:|2026-10-05T09:00:00+24:00|2026-10-05T09:00:00+02:60|"
      "2026-10-05T09:00:00ZZ| 2026-10-05T09:00:00Z|2026-10-05T09:00:00Z\n|0000-12-31T23:59:59Z|"
      "0001-01-01T00:00:00+00:01|9999-12-31T23:59:59-00:01");
  for (std::string text; std::getline(refused, text, '|');)
    EXPECT_EQ(isoDate(text), std::nullopt) << text;
}

TEST(DateTest, WritesTimesRoundedDown) {
  EXPECT_EQ(isoText(Date{} - 1us), "1969-12-31T23:59:59Z");
  EXPECT_EQ(isoTextWithMilliseconds(october + 7999us), "2026-10-05T09:00:00.007Z");
  std::mt19937_64 random(20261005);
  for (int i = 0; i < 2000; ++i) {
    const auto count = static_cast<std::int64_t>(random()) % 4'250'000'000'000'000;
    const Date exact{microseconds(count)};
    EXPECT_EQ(isoDate(isoTextWithMilliseconds(exact)), floor<milliseconds>(exact));
    EXPECT_EQ(dateFromSeconds(secondsSince1970(exact)), exact) << count;
  }
}

TEST(DateTest, ShiftsNoFurtherThanADateGoes) {
  const double infinity = std::numeric_limits<double>::infinity();
  EXPECT_EQ(shifted(october, Seconds(-0.0000016)), october - 2us);
  EXPECT_EQ(shifted(october, Seconds(std::nan(""))), october);
  EXPECT_EQ(shifted(Date::max(), 1us), Date::max());
  EXPECT_EQ(shifted(Date::min() + 1us, -2us), Date::min());
  EXPECT_EQ(shifted(Date::min(), Seconds(9.3e12)), Date::max());
  EXPECT_EQ(shifted(october, Seconds(-infinity)), Date::min());
}

TEST(DateTest, TakesMillisecondsOnlyWhenTheyAreADate) {
  EXPECT_EQ(msDate(0.4), Date{400us});
  EXPECT_EQ(msDate(1791190800000.25), october + 250us);
  EXPECT_EQ(msDate(253402300799000), year10000 - 1s);
  const double infinity = std::numeric_limits<double>::infinity();
  for (const double number :
       {0.0, -0.0, -1.0, 253402300800000.0, 1e300, infinity, -infinity, std::nan("")})
    EXPECT_EQ(msDate(number), std::nullopt) << number;
  EXPECT_EQ(msDate("1791190800000.25"), october + 250us);
  EXPECT_EQ(msDate("1e3"), Date{1s});
  std::istringstream refused("| 1|1 |1x|0x10|nan|inf|0|-5|1e999|2026-10-05T09:00:00Z");
  for (std::string text; std::getline(refused, text, '|');)
    EXPECT_EQ(msDate(text), std::nullopt) << text;
  EXPECT_EQ(dateFromSeconds(-62135596800), distantPast);
  EXPECT_EQ(dateFromSeconds(-62135596801), std::nullopt);
}

}  // namespace
}  // namespace tessivane
