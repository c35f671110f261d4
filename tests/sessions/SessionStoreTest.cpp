#include "sessions/SessionStore.h"

#include <algorithm>
#include <numeric>

#include <gtest/gtest.h>

#include "helpers/ManualClock.h"
#include "helpers/ManualQueue.h"

namespace tessivane {
namespace {

using namespace std::chrono_literals;

AgentSession session(const std::string& id, SessionStatus status, Seconds activity = 0s) {
  return {.agent = Agent::codex,
          .nativeID = id,
          .projectPath = "/p/" + id,
          .activity = *dateFromSeconds(1e9 + activity.count()),
          .status = status};
}

class SessionStoreTest : public testing::Test {
 protected:
  SessionStore::Environment environment() {
    const auto log = [this](const std::string& line) {
      log_.push_back(line);
      return true;
    };
    return {.mainQueue = &main_,
            .refreshQueue = &refreshQueue_,
            .now = clock_.clock(),
            .calendar = [] { return Calendar("UTC"); },
            .discover =
                [this](Date since) {
                  since_ = since;
                  ++passes_;
                  return found_;
                },
            .problems = [this] { return problems_; },
            .sessionsDidRefresh = [=](const auto& list) { log("backend:" + ids(list)); },
            .projectsDidChange =
                [=](const auto& projects) {
                  log(std::accumulate(projects.begin(), projects.end(), std::string("projects:")));
                },
            .workspace = {.handlesURL = [this](const auto& url) { return url == handled_; },
                          .openURL = [=](const auto& url) { return log("open:" + url); },
                          .findApplication = [this](const auto& id) { return t3Application(id); },
                          .launchApplication = [=](const auto& id) { return log("launch:" + id); }},
            .pasteboard = {[=, this](const auto& text) {
              return hasPasteboard_ && log("copy:" + text);
            }}};
  }

  std::optional<WorkspaceApplication> t3Application(const std::string& id) const {
    if (id != "com.t3tools.t3code" || !hasT3_)
      return std::nullopt;
    return WorkspaceApplication{.id = id, .name = "T3"};
  }

  static std::string ids(const SessionStore::Sessions& list) {
    std::string text;
    for (const auto& one : list)
      text += one.nativeID;
    return text;
  }

  void runQueues() {
    while (refreshQueue_.runPending() + main_.runPending() > 0) {
    }
  }

  // Lets time pass in small steps, both queues running.
  void pass(Seconds duration) {
    for (Seconds done{0}; done < duration; done += 500ms) {
      main_.advance(500ms);
      runQueues();
    }
  }

  double interval() {
    const auto timers = main_.timers();
    const auto repeating =
        std::find_if(timers.begin(), timers.end(), [](const auto& t) { return t.interval > 0s; });
    EXPECT_NE(repeating, timers.end());
    EXPECT_DOUBLE_EQ(repeating->tolerance.count(), repeating->interval.count() * 0.2);
    return repeating->interval.count();
  }

  ManualClock clock_;
  ManualQueue main_{clock_};
  ManualQueue refreshQueue_{clock_};
  SessionStore::Sessions found_;
  SessionStore::Problems problems_;
  std::vector<std::string> log_;
  std::string handled_;
  bool hasT3_ = false;
  bool hasPasteboard_ = true;
  int passes_ = 0;
  Date since_;
  SessionStore store_{environment()};
};

TEST_F(SessionStoreTest, publishesTheSortedListOfTheWindow) {
  using enum SessionStatus;
  found_ = {session("a", idle, 9s),
            session("b", yourTurn, 1s),
            session("c", yourTurn, 1s),
            session("d", needsYou),
            session("e", yourTurn, 2s),
            session("f", working)};
  found_[3].kind = SessionKind::automation;
  found_[5].kind = SessionKind::subagent;
  problems_ = {{Agent::codex, "trouble"}};
  pass(120s);
  EXPECT_EQ(passes_, 0);  // its creation starts nothing
  store_.refresh();
  refreshQueue_.runPending();
  EXPECT_TRUE(store_.sessions().value().empty());  // only the main thread publishes
  EXPECT_FALSE(store_.hasLoaded().value());
  runQueues();
  EXPECT_EQ(ids(store_.sessions().value()), "dfebca");
  EXPECT_EQ(log_, (std::vector<std::string>{"backend:dfebca", "projects:/p/d/p/e/p/b/p/c/p/a"}));
  EXPECT_EQ(store_.sourceProblems().value(), problems_);
  EXPECT_EQ(store_.lastRefresh(), clock_.now());
  EXPECT_TRUE(store_.hasLoaded().value());
  EXPECT_EQ(since_, windowStart(clock_.now(), Calendar("UTC")));
}

TEST_F(SessionStoreTest, wakesObserversOnlyForAChange) {
  std::vector<std::string> told;
  const auto sessions =
      store_.sessions().subscribe([&](const auto& list) { told.push_back(list[0].detail); });
  const auto problems =
      store_.sourceProblems().subscribe([&](const auto&) { told.emplace_back("!"); });
  const auto refreshed = [&] {
    store_.refresh();
    runQueues();
    return std::exchange(told, {});
  };
  found_ = {session("a", SessionStatus::working)};
  EXPECT_EQ(refreshed(), std::vector<std::string>{""});
  EXPECT_EQ(refreshed(), std::vector<std::string>{});
  found_[0].detail = "only this";
  problems_ = {{Agent::t3, "x"}};
  EXPECT_EQ(refreshed(), (std::vector<std::string>{"only this", "!"}));
}

TEST_F(SessionStoreTest, refreshesNeverOverlapAndNeverQueueUp) {
  store_.refresh();
  store_.refresh();
  store_.refresh();
  EXPECT_EQ(refreshQueue_.pendingCount(), 1U);
  refreshQueue_.runPending();
  store_.refresh();  // the pass is done but not yet published
  EXPECT_EQ(refreshQueue_.pendingCount(), 0U);
  runQueues();
  EXPECT_EQ(passes_, 2);
}

TEST_F(SessionStoreTest, refreshSoonKeepsItsSpacing) {
  store_.refreshSoon(2s);  // there is no refresh yet: at once
  runQueues();
  EXPECT_EQ(passes_, 1);
  pass(500ms);
  store_.refreshSoon(2s);
  store_.refreshSoon(0s);  // one is scheduled already
  pass(1s);
  EXPECT_EQ(passes_, 1);
  pass(500ms);
  EXPECT_EQ(passes_, 2);
  pass(2s);
  store_.refreshSoon(2s);  // exactly the spacing has passed
  runQueues();
  EXPECT_EQ(passes_, 3);
}

TEST_F(SessionStoreTest, aClockThatJumpsStopsNothing) {
  store_.refresh();
  store_.schedule();
  runQueues();
  clock_.set(clock_.now() - 5h);
  store_.refreshSoon(2s);
  pass(2s);
  EXPECT_EQ(passes_, 2);
  EXPECT_EQ(store_.minuteTick().value(), 1);  // the minute starts anew
  clock_.set(clock_.now() + 48h);
  pass(60s);
  EXPECT_EQ(passes_, 4);  // the background timer's two, no storm
}

TEST_F(SessionStoreTest, thePaceFollowsWhoIsLooking) {
  store_.surfaceClosed();
  EXPECT_EQ(store_.openSurfaces(), 0U);
  store_.schedule();
  EXPECT_EQ(interval(), 30);
  store_.surfaceOpened();
  EXPECT_EQ(interval(), 5);
  runQueues();
  EXPECT_EQ(passes_, 1);
  store_.surfaceOpened();
  runQueues();
  EXPECT_EQ(passes_, 1);
  store_.setRushRefresh(true);
  EXPECT_EQ(interval(), 2);
  runQueues();
  EXPECT_EQ(passes_, 2);
  store_.setRushRefresh(true);
  store_.surfaceClosed();
  EXPECT_EQ(interval(), 2);
  store_.setRushRefresh(false);
  EXPECT_EQ(interval(), 5);
  runQueues();
  EXPECT_EQ(passes_, 2);
  store_.surfaceClosed();
  EXPECT_EQ(interval(), 30);
  pass(60s);
  EXPECT_EQ(passes_, 4);
}

TEST_F(SessionStoreTest, theMinuteMovesWithARefresh) {
  store_.schedule();
  pass(59s);
  EXPECT_EQ(store_.minuteTick().value(), 0);
  pass(1s);
  EXPECT_EQ(store_.minuteTick().value(), 1);
  pass(59s);
  EXPECT_EQ(store_.minuteTick().value(), 1);
}

TEST_F(SessionStoreTest, opensByTheFirstWayThatWorks) {
  struct Row {
    Agent agent;
    const char* url;
    const char* handled;
    bool hasT3;
    bool copyFallback;
    std::vector<std::string> log;
  };
  using enum Agent;
  const std::string copied = "copy:codex resume id";
  const std::string launched = "launch:com.t3tools.t3code";
  const Row rows[] = {{codex, "codex://x", "codex://x", false, true, {"open:codex://x"}},
                      {codex, "codex://x", "", true, true, {copied}},
                      {codex, "codex://x", "", true, false, {}},
                      {codex, nullptr, "", false, true, {copied}},
                      {t3, "t3code://x", "t3code://x", true, true, {"open:t3code://x"}},
                      {t3, "t3code://x", "", true, true, {launched}},
                      {t3, nullptr, "", true, false, {launched}},
                      {t3, nullptr, "", false, true, {}},
                      {claude, nullptr, "", true, true, {}}};
  for (const Row& row : rows) {
    log_.clear();
    handled_ = row.handled;
    hasT3_ = row.hasT3;
    auto target = session("id", SessionStatus::idle);
    target.agent = row.agent;
    if (row.url != nullptr)
      target.openURL = row.url;
    store_.open(target, row.copyFallback);
    EXPECT_EQ(log_, row.log);
    const bool toasted = !row.log.empty() && row.log[0] == copied;
    EXPECT_EQ(store_.toast().value().value_or(""), toasted ? "Copied resume command" : "");
    pass(2s);
    EXPECT_EQ(store_.toast().value(), std::nullopt);
  }
  hasPasteboard_ = false;
  store_.open(session("id", SessionStatus::idle), true);
  EXPECT_EQ(store_.toast().value(), std::nullopt);
}

TEST_F(SessionStoreTest, aNewerToastGetsItsFullTime) {
  store_.showToast("old");
  pass(1500ms);
  store_.showToast("new");
  pass(1500ms);
  EXPECT_EQ(store_.toast().value(), "new");
  pass(500ms);
  EXPECT_EQ(store_.toast().value(), std::nullopt);
}

TEST_F(SessionStoreTest, nothingComesBackToAStoreThatIsGone) {
  auto other = std::make_unique<SessionStore>(environment());
  other->refresh();
  other->showToast("x");
  other->schedule();
  refreshQueue_.runPending();
  other.reset();
  pass(60s);
  EXPECT_EQ(passes_, 1);
}

}  // namespace
}  // namespace tessivane
