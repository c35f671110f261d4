#include "backend/BackendT3Scan.h"

#include <algorithm>
#include <utility>

namespace tessivane {

namespace {

constexpr std::string_view cursorKey = "t3.cursor";

// T3 dates a row before it writes it, and writes it before we can read it. Each scan looks back
// that far; what is told again is counted once.
constexpr std::chrono::seconds overlap{10};

// A ceiling that no person's work comes near.
constexpr std::size_t maxWaiting = 10'000;

}  // namespace

BackendT3Scan::BackendT3Scan(ProjectRootResolver& roots, Options options)
    : roots_(roots), options_(std::move(options)) {}

// A clock that was set back holds nothing up: the interval begins anew.
Seconds BackendT3Scan::wait(Date now) {
  lastScan_ = std::min(lastScan_, now);
  return std::max(options_.interval - elapsed(lastScan_, now), Seconds(0));
}

void BackendT3Scan::scan(const BackendPass& pass, const SessionsByID& sessions) {
  lastScan_ = pass.now;
  const auto db = ReadOnlyDatabase::open(options_.path, &copies_);
  if (!db)
    return;
  const auto failures = pass.failures();
  fileWaiting(*db, pass, sessions);
  readPages(*db, pass, sessions);
  if (pass.failures() == failures)
    storeCursor(pass);
}

void BackendT3Scan::settle(bool stored) {
  if (stored)
    return;
  position_.reset();
  waiting_.clear();
}

// How far everything has been read. A row from the future, or a clock that was set back, holds
// nothing up.
Date BackendT3Scan::position(const BackendPass& pass) const {
  auto reached = position_;
  if (!reached) {
    const auto stored = pass.store.value(cursorKey);
    reached = stored ? isoDate(*stored) : std::nullopt;
  }
  return std::min(reached.value_or(pass.now - options_.backfill), pass.now);
}

void BackendT3Scan::readPages(ReadOnlyDatabase& db,
                              const BackendPass& pass,
                              const SessionsByID& sessions) {
  const Date before = position(pass);
  Date from = before - overlap;
  for (bool more = true; more && !pass.isStopped();) {
    const auto page = BackendT3Edits::read(db, isoTextWithMilliseconds(from));
    for (const BackendT3Edit& edit : page.edits) {
      if (edit.date < pass.now - BackendEventStore::window || file(db, edit, pass, sessions))
        continue;
      waiting_.insert_or_assign(edit.itemID, edit);
    }
    const auto last = page.lastUpdatedAt ? isoDate(*page.lastUpdatedAt) : std::nullopt;
    // A page of one instant alone, or of rows without any date, would come again for ever.
    const Date next = from + std::chrono::milliseconds(1);
    more = page.isFull;
    from = std::max(last.value_or(from), more ? next : from);
  }
  position_ = std::clamp(from, before, pass.now);
}

// False when it is not known yet where the edit belongs.
bool BackendT3Scan::file(ReadOnlyDatabase& db,
                         const BackendT3Edit& edit,
                         const BackendPass& pass,
                         const SessionsByID& sessions) {
  const std::string key = sessionKey(Agent::t3, edit.threadID);
  const auto session = sessions.find(key);
  const auto root = session != sessions.end() ? std::optional(session->second->projectPath)
                                              : rootOf(db, edit.threadID);
  if (!root)
    return false;
  // The same edit may be told by the transcript of the agent that made it.
  pass.addEdit({.key = edit.nativeID ? "native:" + *edit.nativeID : "t3:" + edit.itemID,
                .root = *root,
                .sessionID = key,
                .date = edit.date,
                .paths = edit.paths});
  return true;
}

std::optional<std::string> BackendT3Scan::rootOf(ReadOnlyDatabase& db,
                                                 const std::string& threadID) {
  const auto directory = BackendT3Edits::directory(db, threadID);
  return directory ? std::optional(roots_.root(*directory)) : std::nullopt;
}

void BackendT3Scan::fileWaiting(ReadOnlyDatabase& db,
                                const BackendPass& pass,
                                const SessionsByID& sessions) {
  std::erase_if(waiting_, [&](const auto& entry) {
    return entry.second.date < pass.now - BackendEventStore::window ||
           file(db, entry.second, pass, sessions);
  });
  while (waiting_.size() > maxWaiting)
    waiting_.erase(waiting_.begin());
}

void BackendT3Scan::storeCursor(const BackendPass& pass) const {
  if (!position_)
    return;
  Date reached = *position_;
  for (const auto& [item, edit] : waiting_)
    reached = std::min(reached, edit.date);
  const std::string text = isoTextWithMilliseconds(reached);
  if (pass.store.value(cursorKey) != text)
    pass.store.setValue(cursorKey, text);
}

}  // namespace tessivane
