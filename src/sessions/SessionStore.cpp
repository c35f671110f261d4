#include "sessions/SessionStore.h"

#include <algorithm>
#include <utility>

namespace tessivane {

namespace {

constexpr Seconds minute{60};
constexpr const char* t3Application = "com.t3tools.t3code";

std::vector<std::string> projectsOf(const SessionStore::Sessions& sessions) {
  std::vector<std::string> projects;
  for (const AgentSession& session : sessions) {
    if (!session.isNoise())
      projects.push_back(session.projectPath);
  }
  return projects;
}

}  // namespace

SessionStore::SessionStore(Environment environment)
    : environment_(std::make_shared<const Environment>(std::move(environment))),
      lastMinuteTick_(environment_->now()) {}

SessionStore::~SessionStore() = default;

// Wraps a task for the main queue that may come to run after the store has gone.
template <typename Task>
TaskQueue::Task SessionStore::ifAlive(Task task) const {
  return [weak = std::weak_ptr<SessionStore*>(self_), task = std::move(task)] {
    if (const auto self = weak.lock())
      task(**self);
  };
}

void SessionStore::refresh() {
  if (refreshing_) {
    refreshRequested_ = true;
    return;
  }
  refreshing_ = true;
  environment_->refreshQueue->async(
      [environment = environment_, weak = std::weak_ptr<SessionStore*>(self_)] {
        auto pass = std::make_shared<Pass>();
        pass->sessions =
            environment->discover(windowStart(environment->now(), environment->calendar()));
        sort(pass->sessions);
        environment->sessionsDidRefresh(pass->sessions);
        pass->problems = environment->problems();
        environment->mainQueue->async([weak, pass] {
          if (const auto self = weak.lock())
            (*self)->publish(std::move(*pass));
        });
      });
}

void SessionStore::publish(Pass pass) {
  const Date now = environment_->now();
  if (sessions_.set(std::move(pass.sessions)))
    environment_->projectsDidChange(projectsOf(sessions_.value()));
  sourceProblems_.set(std::move(pass.problems));
  lastRefresh_ = now;
  hasLoaded_.set(true);
  refreshing_ = false;
  if (std::exchange(refreshRequested_, false))
    refresh();
  moveMinuteTick(now);
}

void SessionStore::moveMinuteTick(Date now) {
  const Seconds age = elapsed(lastMinuteTick_, now);
  // A clock set back starts the minute anew instead of waiting until it has caught up.
  if (age >= Seconds(0) && age < minute)
    return;
  lastMinuteTick_ = now;
  minuteTick_.set(minuteTick_.value() + 1);
}

void SessionStore::refreshSoon(Seconds spacing) {
  if (soon_)
    return;
  // Never longer than the spacing, wherever the clock was set to meanwhile.
  const Seconds wait =
      lastRefresh_ ? std::min(spacing - elapsed(*lastRefresh_, environment_->now()), spacing)
                   : Seconds(0);
  if (wait <= Seconds(0)) {
    refresh();
    return;
  }
  soon_ = environment_->mainQueue->after(wait, ifAlive([](SessionStore& store) {
                                           store.soon_.cancel();
                                           store.refresh();
                                         }));
}

void SessionStore::schedule() {
  Seconds interval = openSurfaces_ > 0 ? activeInterval : backgroundInterval;
  if (rushRefresh_)
    interval = rushInterval;
  timer_ = environment_->mainQueue->every(
      interval, interval * timerTolerance, ifAlive([](SessionStore& store) { store.refresh(); }));
}

void SessionStore::surfaceOpened() {
  if (++openSurfaces_ != 1)
    return;
  refresh();
  schedule();
}

void SessionStore::surfaceClosed() {
  if (openSurfaces_ == 0)
    return;
  if (--openSurfaces_ == 0)
    schedule();
}

void SessionStore::setRushRefresh(bool isOn) {
  if (isOn == rushRefresh_)
    return;
  rushRefresh_ = isOn;
  if (isOn)
    refresh();
  schedule();
}

void SessionStore::open(const AgentSession& session, bool copyFallback) {
  const Workspace& workspace = environment_->workspace;
  if (session.openURL && workspace.handlesURL(*session.openURL)) {
    workspace.openURL(*session.openURL);
    return;
  }
  if (session.agent == Agent::t3 && workspace.findApplication(t3Application)) {
    workspace.launchApplication(t3Application);
    return;
  }
  if (copyFallback)
    copyResumeCommand(session);
}

void SessionStore::copyResumeCommand(const AgentSession& session) {
  const auto command = session.resumeCommand();
  if (command && environment_->pasteboard.setText(*command))
    showToast("Copied resume command");
}

void SessionStore::showToast(const std::string& text) {
  toastEnd_ = environment_->mainQueue->after(
      toastDuration, ifAlive([](SessionStore& store) { store.toast_.set(std::nullopt); }));
  toast_.set(text);
}

void SessionStore::sort(Sessions& sessions) {
  std::stable_sort(sessions.begin(), sessions.end(), [](const auto& a, const auto& b) {
    return a.status != b.status ? a.status < b.status : a.activity > b.activity;
  });
}

}  // namespace tessivane
