#include "rush/RushStorage.h"

#include <optional>
#include <utility>

namespace tessivane {

namespace {

constexpr std::string_view doneKey = "rushDone";
constexpr std::string_view snoozedKey = "rushSnoozed";
constexpr std::string_view filterKey = "rushFilter";
constexpr std::string_view holdKey = "rushHold";

// 2001-01-01 00:00:00 UTC in seconds since 1970.
constexpr double referenceDate = 978307200;

double storedForm(Date date) {
  return secondsSince1970(date) - referenceDate;
}

std::optional<Date> dateOf(const DefaultsValue& value) {
  const auto* seconds = value.get<double>();
  if (seconds == nullptr)
    return std::nullopt;
  return dateFromSeconds(*seconds + referenceDate);
}

std::optional<RushSnoozed> snoozedOf(const DefaultsValue& value) {
  const auto* pair = value.get<DefaultsArray>();
  if (pair == nullptr || pair->size() != 2)
    return std::nullopt;
  const auto until = dateOf((*pair)[0]);
  const auto* flag = (*pair)[1].get<double>();
  if (!until || flag == nullptr)
    return std::nullopt;
  return RushSnoozed{.until = *until, .waitingOnApproval = *flag != 0.0};
}

}  // namespace

RushStorage::Done RushStorage::loadDone() const {
  Done done;
  const auto stored = defaults_.dictionary(doneKey).value_or(DefaultsDictionary());
  for (const auto& [id, value] : stored) {
    const auto date = dateOf(value);
    if (!date)
      return {};
    done.emplace(id, *date);
  }
  return done;
}

void RushStorage::saveDone(const Done& done) {
  DefaultsDictionary stored;
  for (const auto& [id, activity] : done)
    stored.emplace(id, storedForm(activity));
  defaults_.set(doneKey, std::move(stored));
}

RushStorage::Snoozed RushStorage::loadSnoozed() const {
  Snoozed snoozed;
  const auto stored = defaults_.dictionary(snoozedKey).value_or(DefaultsDictionary());
  for (const auto& [id, value] : stored) {
    if (const auto entry = snoozedOf(value))
      snoozed.emplace(id, *entry);
  }
  return snoozed;
}

void RushStorage::saveSnoozed(const Snoozed& snoozed) {
  DefaultsDictionary stored;
  for (const auto& [id, entry] : snoozed) {
    stored.emplace(id, DefaultsArray{storedForm(entry.until), entry.waitingOnApproval ? 1.0 : 0.0});
  }
  defaults_.set(snoozedKey, std::move(stored));
}

RushFilter RushStorage::loadFilter() const {
  const auto stored = defaults_.data(filterKey);
  if (!stored)
    return {};
  return RushFilter::decoded(*stored).value_or(RushFilter());
}

void RushStorage::saveFilter(const RushFilter& filter) {
  if (auto encoded = filter.encoded()) {
    defaults_.set(filterKey, DefaultsData{std::move(*encoded)});
  } else {
    defaults_.remove(filterKey);
  }
}

bool RushStorage::loadHold() const {
  return defaults_.boolean(holdKey).value_or(false);
}

void RushStorage::saveHold(bool hold) {
  defaults_.set(holdKey, hold);
}

bool RushStorage::isTourOff() const {
  return defaults_.boolean("rushTourOff").value_or(false);
}

bool RushStorage::focusesOnStart() const {
  return defaults_.boolean("rushFocusOnStart").value_or(true);
}

}  // namespace tessivane
