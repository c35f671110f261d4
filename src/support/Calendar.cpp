#include "support/Calendar.h"

#include <memory>
#include <utility>

#include <unicode/gregocal.h>
#include <unicode/timezone.h>

namespace tessivane {

namespace {

// ICU counts milliseconds in a double.
double icuDate(Date date) {
  return static_cast<double>(
      std::chrono::floor<std::chrono::milliseconds>(date).time_since_epoch().count());
}

std::optional<Date> fromICU(double milliseconds, UErrorCode status) {
  if (U_FAILURE(status))
    return std::nullopt;
  return dateFromSeconds(milliseconds / 1000.0);
}

std::unique_ptr<icu::GregorianCalendar> civilCalendar(const std::string& zone) {
  std::unique_ptr<icu::TimeZone> rules(
      icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(zone)));
  if (*rules == icu::TimeZone::getUnknown())
    rules.reset(icu::TimeZone::getGMT()->clone());
  UErrorCode status = U_ZERO_ERROR;
  auto calendar = std::make_unique<icu::GregorianCalendar>(rules.release(), status);
  if (U_FAILURE(status))
    return nullptr;
  // An hour that the clocks skip becomes the first instant after the gap.
  calendar->setSkippedWallTimeOption(UCAL_WALLTIME_NEXT_VALID);
  calendar->setRepeatedWallTimeOption(UCAL_WALLTIME_FIRST);
  return calendar;
}

}  // namespace

Calendar Calendar::current() {
  const std::unique_ptr<icu::TimeZone> host(icu::TimeZone::detectHostTimeZone());
  icu::UnicodeString id;
  host->getID(id);
  std::string zone;
  id.toUTF8String(zone);
  return Calendar(std::move(zone));
}

Calendar::Calendar(std::string zone) : zone_(std::move(zone)) {}

std::optional<Date> Calendar::startOfDay(Date date) const {
  return atHour(0, date);
}

std::optional<Date> Calendar::addingDays(int days, Date date) const {
  const auto calendar = civilCalendar(zone_);
  if (!calendar)
    return std::nullopt;
  UErrorCode status = U_ZERO_ERROR;
  calendar->setTime(icuDate(date), status);
  calendar->add(UCAL_DATE, days, status);
  return fromICU(calendar->getTime(status), status);
}

std::optional<Date> Calendar::atHour(int hour, Date date) const {
  const auto calendar = civilCalendar(zone_);
  if (!calendar)
    return std::nullopt;
  UErrorCode status = U_ZERO_ERROR;
  calendar->setTime(icuDate(date), status);
  calendar->set(UCAL_HOUR_OF_DAY, hour);
  for (const auto field : {UCAL_MINUTE, UCAL_SECOND, UCAL_MILLISECOND}) {
    calendar->set(field, 0);
  }
  return fromICU(calendar->getTime(status), status);
}

std::chrono::seconds Calendar::timeOfDay(Date date) const {
  const auto calendar = civilCalendar(zone_);
  UErrorCode status = U_ZERO_ERROR;
  if (calendar)
    calendar->setTime(icuDate(date), status);
  const int milliseconds = calendar ? calendar->get(UCAL_MILLISECONDS_IN_DAY, status) : 0;
  return std::chrono::seconds(U_SUCCESS(status) ? milliseconds / 1000 : 0);
}

}  // namespace tessivane
