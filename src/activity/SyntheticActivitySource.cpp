#include "activity/SyntheticActivitySource.h"

#include <algorithm>
#include <chrono>
#include <utility>
#include <vector>

#include "activity/SyntheticHistory.h"

namespace tessivane {

namespace {

constexpr double toleranceShare = 0.2;
constexpr double editShare = 0.5;
constexpr double leastGap = 1.4;  // seconds
constexpr double gapSpread = 2.2;
constexpr Date latestNow = std::chrono::sys_days{std::chrono::year{9999} / 1 / 1};

// Room for hours of arithmetic, whatever the clock says.
Date usable(Date now) {
  return std::clamp(now, distantPast, latestNow);
}

}  // namespace

bool wantsSyntheticActivity(std::optional<std::string_view> variable, std::optional<bool> setting) {
  return variable == "1" || setting == true;
}

SyntheticActivitySource::SyntheticActivitySource(std::uint32_t seed,
                                                 Seconds tickInterval,
                                                 Environment environment)
    : environment_(std::move(environment)), tickInterval_(tickInterval), maker_(seed) {}

void SyntheticActivitySource::start(BatchHandler onBatch) {
  if (!timer_ && tickInterval_ > Seconds(0) && environment_.queue != nullptr) {
    // The task goes with the source, so that it may use it. The handler comes last in it: the
    // source may be gone after.
    timer_ = environment_.queue->every(
        tickInterval_, toleranceShare * tickInterval_, [this, handler = onBatch] {
          Batch batch = tick(environment_.now());
          handler(std::move(batch.events), std::move(batch.edits));
        });
  }
  if (std::exchange(didEmitHistory_, true))
    return;
  Batch batch = history(environment_.now());
  onBatch(std::move(batch.events), std::move(batch.edits));
}

void SyntheticActivitySource::stop() {
  timer_.cancel();
}

SyntheticActivitySource::Batch SyntheticActivitySource::history(Date now) {
  return syntheticHistory(maker_, usable(now));
}

SyntheticActivitySource::Batch SyntheticActivitySource::tick(Date now) {
  const Date at = usable(now);
  maker_.forgetEdits(at);
  Batch batch;
  if (maker_.draw() < editShare)
    batch.edits.push_back(maker_.edit(pickSession(), at));
  if (at >= nextEmit_) {
    batch.events.push_back(liveEvent(at));
    nextEmit_ = at + std::chrono::round<std::chrono::microseconds>(
                         Seconds(maker_.draw() * gapSpread + leastGap));
  }
  return batch;
}

// Scheduled jobs have their hour; the trickle is what people's sessions do.
const SyntheticActivitySource::Session& SyntheticActivitySource::pickSession() {
  std::vector<const Session*> sessions;
  for (const Session& session : synthetic_work::sessions()) {
    if (session.kind == SessionKind::session)
      sessions.push_back(&session);
  }
  return *sessions[maker_.below(sessions.size())];
}

ActivityEvent SyntheticActivitySource::liveEvent(Date at) {
  const double drawn = maker_.draw();
  if (drawn < 0.68) {
    const Session& session = pickSession();
    return maker_.commit(session, maker_.pick(synthetic_work::subjects(session.project)), at);
  }
  if (drawn < 0.78) {
    const Session& session = pickSession();
    return maker_.openPullRequest(session, session.title, at);
  }
  if (drawn < 0.87 && maker_.openCount() > 0)
    return maker_.mergePullRequest(maker_.below(maker_.openCount()), at);
  const Session& session = pickSession();
  if (drawn < 0.93)
    return maker_.event(
        ActivityKind::needsYou, session, maker_.pick(synthetic_work::needsYouTexts()), at);
  return maker_.event(
      ActivityKind::finished, session, maker_.pick(synthetic_work::finishedTexts()), at);
}

}  // namespace tessivane
