#include "rush/RushController.h"

#include <algorithm>
#include <array>
#include <utility>

namespace tessivane {

namespace {

const AgentSession* sessionWithID(const std::vector<AgentSession>& sessions,
                                  const AgentSession& wanted) {
  const auto found = std::find_if(sessions.begin(), sessions.end(), [&wanted](const auto& one) {
    return one.agent == wanted.agent && one.nativeID == wanted.nativeID;
  });
  return found == sessions.end() ? nullptr : &*found;
}

}  // namespace

RushController::RushController(Wiring wiring, UserDefaults& defaults)
    : wiring_(std::move(wiring)), storage_(defaults) {}

RushController::~RushController() = default;

template <typename Change>
void RushController::update(Change change) {
  RushState state = state_.value();
  change(state);
  state_.set(std::move(state));
}

RushTable RushController::freshTable(Date now) {
  RushTable table;
  table.stats.startedAt = now;
  return table;
}

void RushController::start() {
  if (state_.value().isOn)
    return;
  table_ = freshTable(wiring_.now());
  table_.done = storage_.loadDone();
  table_.snoozed = storage_.loadSnoozed();
  table_.filter = storage_.loadFilter();
  table_.hold = storage_.loadHold();
  companionWasOn_ = wiring_.companionVisible();
  const bool focuses = storage_.focusesOnStart();
  update([&](RushState& state) {
    state.isOn = true;
    state.companionOn = false;
    state.tunnelOn = focuses;
    state.rushWindowOn = false;
    if (!storage_.isTourOff())
      ++state.tourRun;
  });
  wiring_.setCompanion(false);
  if (focuses)
    wiring_.focusTunnel(std::nullopt);
  latest_.clear();
  publish();
  wiring_.setRefresh(true);
  const bool hasHotKey = wiring_.registerHotKey([weak = std::weak_ptr<RushController*>(self_)] {
    if (const auto self = weak.lock())
      (*self)->openSeat();
  });
  update([&](RushState& state) { state.hotKeyFailed = !hasHotKey; });
  syncChrome();
  watch();
}

// The list that a subscription replays may be old: it is kept, but nobody is dealt before the store
// has made a pass of this run's time.
void RushController::watch() {
  awaitingFirstPass_ = true;
  replaying_ = true;
  const std::weak_ptr<RushController*> weak = self_;
  subscription_ = wiring_.sessions([weak](const Sessions& sessions) {
    if (const auto self = weak.lock())
      (*self)->receive(sessions);
  });
  replaying_ = false;
  ticker_ = wiring_.ticks([weak] {
    if (const auto self = weak.lock())
      (*self)->tick();
  });
}

void RushController::stop() {
  if (!state_.value().isOn)
    return;
  const bool tunnel = state_.value().tunnelOn;
  const bool companion = companionWasOn_ || state_.value().companionOn;
  companionWasOn_ = false;
  awaitingFirstPass_ = false;
  subscription_.reset();
  ticker_.reset();
  latest_.clear();
  update([](RushState& state) {
    state.isOn = state.tunnelOn = state.rushWindowOn = state.filtersOpen = false;
    state.companionOn = state.hotKeyFailed = false;
    state.seat.reset();
    state.queueCount = state.workingCount = 0;
    state.upNext.clear();
  });
  if (tunnel)
    wiring_.endTunnel();
  wiring_.unregisterHotKey();
  wiring_.hidePanel();
  wiring_.setFocusBars(false);
  wiring_.setRefresh(false);
  if (companion)
    wiring_.setCompanion(true);
}

void RushController::receive(const Sessions& sessions) {
  latest_ = sessions;
  if (!replaying_)
    advance();
}

void RushController::tick() {
  if (awaitingFirstPass_) {
    const auto lastPass = wiring_.lastPass();
    if (lastPass && *lastPass >= table_.stats.startedAt)
      advance();
  } else if (table_.isSeatMissing() || table_.hasExpiredSnooze(wiring_.now())) {
    advance();
  }
}

void RushController::advance() {
  const bool first = std::exchange(awaitingFirstPass_, false);
  finish(table_.sync(latest_, wiring_.now(), wiring_.calendar()),
         first ? Focus::always : Focus::onlyInFlow);
}

// What follows on every change of the table: keep it, show it, and bring up whoever was dealt.
void RushController::finish(const RushChange& change, Focus focus) {
  saveDone();
  publish();
  if (change.kind != RushChange::Kind::dealt || !change.session)
    return;
  if (focus == Focus::onlyInFlow && !wiring_.frontmostIsInFlow())
    return;
  wiring_.opener(*change.session);
  if (state_.value().tunnelOn)
    wiring_.focusTunnel(change.session);
}

void RushController::skip() {
  if (isDealing())
    finish(table_.skip(latest_, wiring_.now(), wiring_.calendar()), Focus::always);
}

void RushController::snooze(RushSnooze choice) {
  if (!isDealing())
    return;
  const Date now = wiring_.now();
  const Calendar calendar = wiring_.calendar();
  finish(table_.snooze(until(choice, now, calendar), latest_, now, calendar), Focus::always);
}

void RushController::markDone() {
  if (isDealing())
    finish(table_.markDone(latest_, wiring_.now(), wiring_.calendar()), Focus::always);
}

void RushController::back() {
  if (isDealing())
    finish(table_.back(latest_), Focus::always);
}

void RushController::take(const AgentSession& session) {
  if (isDealing())
    finish(table_.take(session, latest_, wiring_.now(), wiring_.calendar()), Focus::always);
}

void RushController::wakeSnoozed() {
  if (!isDealing())
    return;
  table_.wakeSnoozed();
  finish(table_.sync(latest_, wiring_.now(), wiring_.calendar()), Focus::always);
}

void RushController::redealDone() {
  if (!isDealing())
    return;
  table_.done.clear();
  finish(table_.sync(latest_, wiring_.now(), wiring_.calendar()), Focus::always);
}

void RushController::toggleHold() {
  if (!state_.value().isOn)
    return;
  table_.hold = !table_.hold;
  storage_.saveHold(table_.hold);
  if (awaitingFirstPass_) {
    publish();
  } else {
    advance();
  }
}

void RushController::setFilter(const RushFilter& filter) {
  if (!state_.value().isOn)
    return;
  storage_.saveFilter(filter);
  if (awaitingFirstPass_) {
    table_.filter = filter;
    publish();
    return;
  }
  finish(table_.setFilter(filter, latest_, wiring_.now(), wiring_.calendar()), Focus::always);
}

void RushController::wake(const std::string& id) {
  if (!state_.value().isOn) {
    auto snoozed = storage_.loadSnoozed();
    snoozed.erase(id);
    storage_.saveSnoozed(snoozed);
    pruneExpiredSnoozes();
    return;
  }
  table_.snoozed.erase(id);
  table_.dealOrder.erase(id);
  if (awaitingFirstPass_) {
    storage_.saveSnoozed(table_.snoozed);
    publish();
    return;
  }
  finish(table_.sync(latest_, wiring_.now(), wiring_.calendar()), Focus::onlyInFlow);
}

void RushController::openSeat() {
  const auto seat = state_.value().seat;
  if (!seat)
    return;
  wiring_.clickOpener(*seat);
  if (state_.value().tunnelOn)
    wiring_.focusTunnel(seat);
}

void RushController::toggleTunnel() {
  if (!state_.value().isOn)
    return;
  update([](RushState& state) {
    state.tunnelOn = !state.tunnelOn;
    state.rushWindowOn = state.filtersOpen = false;
  });
  syncChrome();
  if (!state_.value().tunnelOn) {
    wiring_.endTunnel();
    return;
  }
  const auto seat = state_.value().seat;
  if (seat)
    wiring_.opener(*seat);
  // Opening may have ended the tunnel again.
  if (!seat || state_.value().tunnelOn)
    wiring_.focusTunnel(seat);
}

void RushController::pruneExpiredSnoozes() {
  if (state_.value().isOn)
    return;
  auto snoozed = storage_.loadSnoozed();
  const Date now = wiring_.now();
  if (std::erase_if(snoozed, [now](const auto& entry) { return entry.second.until <= now; }) > 0)
    storage_.saveSnoozed(snoozed);
  update([&](RushState& state) { state.snoozedSessions = std::move(snoozed); });
}

void RushController::saveDone() {
  storage_.saveDone(table_.done);
  storage_.saveSnoozed(table_.snoozed);
}

void RushController::publish() {
  const Date now = wiring_.now();
  const Calendar calendar = wiring_.calendar();
  const auto queue = table_.queue(latest_, now, calendar);
  update([&](RushState& state) {
    state.seat = table_.seat;
    state.queueCount = queue.size();
    state.upNext.clear();
    for (std::size_t i = 0; i < std::min(queue.size(), upNextCount); ++i)
      state.upNext.push_back(*queue[i]);
    state.workingCount = static_cast<std::size_t>(
        std::count_if(latest_.begin(), latest_.end(), [](const AgentSession& session) {
          return session.status == SessionStatus::working && session.kind == SessionKind::session;
        }));
    state.stats = table_.stats;
    state.doneCount = table_.done.size();
    state.snoozedCount = table_.snoozed.size();
    state.snoozedSessions = table_.snoozed;
    state.holdOn = table_.hold;
    state.filter = table_.filter;
    state.approvalsHidden = table_.approvalsHiddenByFilter(latest_, now, calendar);
    state.projectOptions = RushProjectOption::list(latest_, table_.filter.projects);
    state.history = table_.history;
    for (RushHistoryEntry& entry : state.history) {
      if (const auto* present = sessionWithID(latest_, entry.session))
        entry.session = *present;
    }
  });
}

// In the tunnel the bars stand for the panel, unless the person asks for the Rush window.
void RushController::syncChrome() {
  const RushState& state = state_.value();
  const bool hidesPanel = state.tunnelOn && !state.rushWindowOn;
  wiring_.setFocusBars(state.tunnelOn);
  if (hidesPanel) {
    wiring_.hidePanel();
  } else {
    wiring_.showPanel();
  }
}

bool RushController::isInFlow(const std::optional<FrontmostApplication>& frontmost) {
  static constexpr std::array<std::string_view, 3> agentApplications = {
      "com.anthropic.claudefordesktop", "com.openai.codex", "com.t3tools.t3code"};
  if (!frontmost)
    return false;
  if (frontmost->isThisProgram)
    return true;
  return frontmost->identifier &&
         std::find(agentApplications.begin(), agentApplications.end(), *frontmost->identifier) !=
             agentApplications.end();
}

}  // namespace tessivane
