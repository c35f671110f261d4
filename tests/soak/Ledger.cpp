#include "soak/Ledger.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

namespace tessivane {

namespace {

StoredActivity::Minute minuteOf(const Ledger::Edit& edit) {
  const auto minute = std::chrono::floor<std::chrono::minutes>(edit.date.time_since_epoch());
  return {edit.root, edit.sessionID, minute.count()};
}

std::string described(const StoredActivity::Minute& minute) {
  const auto& [root, session, number] = minute;
  return fmt::format("edits of {} in {} in minute {}", session, root, number);
}

}  // namespace

Token Ledger::add(const Event& event) {
  return events_.emplace(event.token(), event).first->first;
}

Token Ledger::add(const Edit& edit) {
  edits_[edit.key] = {edit};
  return edit.key;
}

void Ledger::addTwin(const Edit& edit) {
  edits_[edit.key].push_back(edit);
}

void Ledger::makeCertain(const Token& token) {
  events_.at(token).isCertain = true;
}

void Ledger::addSession(const std::string& id, const std::string& root) {
  sessions_[id] = root;
  add({.kind = "started", .root = root, .ref = id});
}

std::vector<std::string> Ledger::differences(const StoredActivity& stored) const {
  Lines differences;
  compareEvents(stored, differences);
  compareEdits(stored, differences);
  return differences;
}

void Ledger::compareEvents(const StoredActivity& stored, Lines& differences) const {
  std::set<Token> found;
  for (const StoredEvent& event : stored.events) {
    if (event.kind == "needsYou" || event.kind == "finished") {
      compareTransition(event, differences);
      continue;
    }
    if (!found.insert(event.token()).second)
      differences.push_back("twice: " + event.token());
    compareEvent(event, differences);
  }
  for (const auto& [token, event] : events_) {
    if (event.isCertain && !found.contains(token))
      differences.push_back("missing: " + token + " " + event.title.value_or(""));
  }
}

void Ledger::compareEvent(const StoredEvent& stored, Lines& differences) const {
  const auto made = events_.find(stored.token());
  if (made == events_.end()) {
    differences.push_back("extra: " + stored.token() + " " + stored.title);
    return;
  }
  const Event& event = made->second;
  const auto compare = [&](const char* what, const auto& expected, const auto& actual) {
    if (expected && expected != actual)
      differences.push_back(fmt::format("{} of {}: \"{}\" and not \"{}\"",
                                        what,
                                        made->first,
                                        std::optional<std::string>(actual).value_or(""),
                                        *expected));
  };
  compare("title", event.title, stored.title);
  compare("detail", event.detail, stored.detail);
  if (stored.sessionID && !sessions_.contains(*stored.sessionID))
    differences.push_back("unknown session of " + made->first + ": " + *stored.sessionID);
}

void Ledger::compareTransition(const StoredEvent& stored, Lines& differences) const {
  const auto session = sessions_.find(stored.sessionID.value_or(""));
  if (session == sessions_.end())
    differences.push_back("unknown session: " + stored.token());
  else if (session->second != stored.root)
    differences.push_back("wrong project: " + stored.token());
  const auto date = dateFromSeconds(stored.ts);
  if (!date || *date < begin_ - std::chrono::hours(1) || *date > systemNow())
    differences.push_back("impossible date: " + stored.token());
}

// An edit that may be counted in two places gives both a margin; the sum knows none.
void Ledger::compareEdits(const StoredActivity& stored, Lines& differences) const {
  std::map<StoredActivity::Minute, std::pair<std::int64_t, std::int64_t>> expected;
  std::int64_t total = 0;
  for (const auto& [key, places] : edits_) {
    if (!stored.seen.contains(key))
      differences.push_back("missing: edit " + key);
    total += places.front().files;
    for (const Edit& place : places) {
      auto& [least, most] = expected[minuteOf(place)];
      least += places.size() == 1 ? place.files : 0;
      most += place.files;
    }
  }
  for (const std::string& key : stored.seen) {
    if (!edits_.contains(key) && (key.starts_with("native:") || key.starts_with("t3:")))
      differences.push_back("extra: edit " + key);
  }
  std::int64_t storedTotal = 0;
  for (const auto& [minute, files] : stored.edits) {
    storedTotal += files;
    if (!expected.contains(minute))
      differences.push_back("extra: " + described(minute));
  }
  for (const auto& [minute, margin] : expected) {
    const auto found = stored.edits.find(minute);
    const std::int64_t files = found == stored.edits.end() ? 0 : found->second;
    if (files < margin.first || files > margin.second)
      differences.push_back(fmt::format(
          "{}: {} and not {} to {}", described(minute), files, margin.first, margin.second));
  }
  if (storedTotal != total)
    differences.push_back(fmt::format("edited files: {} and not {}", storedTotal, total));
}

void Ledger::count(const StoredActivity& stored, std::map<std::string, int>& counts) const {
  int& possible = counts["events stored that need not be"] = 0;
  int& moved = counts["commits filed under another branch"] = 0;
  for (const StoredEvent& event : stored.events) {
    const auto made = events_.find(event.token());
    if (made == events_.end())
      continue;
    possible += made->second.isCertain ? 0 : 1;
    moved += made->second.branch && made->second.branch != event.branch ? 1 : 0;
  }
}

}  // namespace tessivane
