#pragma once

// What Rush keeps between runs, in the user defaults: reading and writing, no decisions. Dates are
// stored as seconds since 2001-01-01 00:00:00 UTC. Lives where its owner, the controller, does; the
// defaults outlive it.

#include <string>
#include <unordered_map>

#include "platform/UserDefaults.h"
#include "rush/RushFilter.h"
#include "rush/RushSnooze.h"
#include "support/Date.h"

namespace tessivane {

class RushStorage final {
 public:
  using Done = std::unordered_map<std::string, Date>;
  using Snoozed = std::unordered_map<std::string, RushSnoozed>;

  explicit RushStorage(UserDefaults& defaults) : defaults_(defaults) {}

  /// "rushDone". One value of another type makes all of it read as empty.
  Done loadDone() const;
  void saveDone(const Done& done);

  /// "rushSnoozed": pairs of the end and a flag. What is no such pair is left out.
  Snoozed loadSnoozed() const;
  void saveSnoozed(const Snoozed& snoozed);

  /// "rushFilter". Absent or unreadable: the default filter.
  RushFilter loadFilter() const;
  void saveFilter(const RushFilter& filter);

  /// "rushHold".
  bool loadHold() const;
  void saveHold(bool hold);

  /// "rushTourOff": the tour does not start by itself.
  bool isTourOff() const;
  /// "rushFocusOnStart": the tunnel comes on at start, unless the person said no.
  bool focusesOnStart() const;

 private:
  UserDefaults& defaults_;
};

}  // namespace tessivane
