#include "rush/RushController.h"

#include <gtest/gtest.h>

#include "SampleSession.h"
#include "helpers/ManualClock.h"
#include "helpers/ManualQueue.h"
#include "platform/MemoryUserDefaults.h"

namespace tessivane {
namespace {

using namespace std::chrono_literals;

AgentSession with(AgentSession session, SessionStatus status) {
  session.status = status;
  return session;
}

class RushControllerTest : public testing::Test {
 protected:
  RushController::Wiring wiring() {
    RushController::Wiring made;
    made.sessions = [this](std::function<void(const RushController::Sessions&)> call) {
      log("subscribe");
      deliver_ = std::move(call);
      if (replay_)
        deliver_(*replay_);
      return stream(deliver_);
    };
    made.lastPass = [this] { return lastPass_; };
    made.ticks = [this](std::function<void()> call) {
      tick_ = std::move(call);
      return stream(tick_);
    };
    made.setRefresh = [this](bool on) { log(on ? "refresh" : "no refresh"); };
    made.registerHotKey = [this](std::function<void()> action) {
      log("hot key");
      hotKey_ = std::move(action);
      return grantsHotKey_;
    };
    made.unregisterHotKey = [this] { log("no hot key"); };
    made.showPanel = [this] { log("panel"); };
    made.hidePanel = [this] { log("no panel"); };
    made.now = clock_.clock();
    made.focusTunnel = [this](const std::optional<AgentSession>& session) {
      log("tunnel:" + (session ? session->nativeID : "nobody"));
    };
    made.endTunnel = [this] { log("no tunnel"); };
    made.companionVisible = [this] { return companion_; };
    made.setCompanion = [this](bool on) { log(on ? "companion" : "no companion"); };
    made.setFocusBars = [this](bool on) { log(on ? "bars" : "no bars"); };
    made.opener = [this](const AgentSession& session) { log("open:" + session.nativeID); };
    made.clickOpener = [this](const AgentSession& session) { log("click:" + session.nativeID); };
    made.frontmostIsInFlow = [this] { return inFlow_; };
    return made;
  }

  // Forgets the closure when the handle goes, as the live streams do.
  template <typename Closure>
  static RushController::Stream stream(Closure& closure) {
    return {nullptr, [&closure](void*) { closure = nullptr; }};
  }

  void log(const std::string& line) { log_ += (log_.empty() ? "" : ", ") + line; }
  // What has happened since it was last asked.
  std::string takeLog() { return std::exchange(log_, {}); }

  // A run that deals from this list, in a home without a tunnel.
  void startDealing(const RushController::Sessions& sessions) {
    defaults_.set("rushFocusOnStart", false);
    rush_.start();
    deliver_(sessions);
    takeLog();
  }

  AgentSession waiting(const std::string& id, Seconds age) const {
    AgentSession session = sample(id);
    session.agent = Agent::codex;
    session.activity = shifted(now_, -age);
    return session;
  }

  // The time from now, as the settings have it: in seconds since the year 2001.
  double stored(Seconds later) const { return secondsSince1970(now_) + later.count() - 978307200; }

  const RushState& state() const { return rush_.state().value(); }
  std::string seat() const { return state().seat ? state().seat->nativeID : ""; }

  ManualClock clock_;
  ManualQueue queue_{clock_};
  MemoryUserDefaults defaults_{queue_};
  std::string log_;
  std::function<void(const RushController::Sessions&)> deliver_;
  std::function<void()> tick_;
  std::function<void()> hotKey_;
  std::optional<RushController::Sessions> replay_;
  std::optional<Date> lastPass_;
  bool grantsHotKey_ = true;
  bool companion_ = false;
  bool inFlow_ = false;
  Date now_ = clock_.now();
  const AgentSession a_ = waiting("a", 3min);
  const AgentSession b_ = waiting("b", 2min);
  const AgentSession c_ = waiting("c", 1min);
  RushController rush_{wiring(), defaults_};
};

TEST_F(RushControllerTest, startsAndStopsInOrder) {
  companion_ = true;
  rush_.start();
  EXPECT_EQ(takeLog(), "no companion, tunnel:nobody, refresh, hot key, bars, no panel, subscribe");
  EXPECT_TRUE(state().isOn);
  EXPECT_TRUE(state().tunnelOn);
  EXPECT_EQ(state().tourRun, 1);
  rush_.start();
  EXPECT_EQ(takeLog(), "");
  deliver_({a_, b_});
  takeLog();
  rush_.stop();
  EXPECT_EQ(takeLog(), "no tunnel, no hot key, no panel, no bars, no refresh, companion");
  EXPECT_FALSE(state().isOn);
  EXPECT_EQ(seat(), "");
  EXPECT_EQ(state().queueCount + state().upNext.size() + state().workingCount, 0U);
  EXPECT_EQ(deliver_, nullptr);
  EXPECT_EQ(tick_, nullptr);
  rush_.stop();
  EXPECT_EQ(takeLog(), "");
}

TEST_F(RushControllerTest, startHeedsTheSettings) {
  defaults_.set("rushTourOff", true);
  defaults_.set("rushFocusOnStart", false);
  grantsHotKey_ = false;
  rush_.start();
  EXPECT_EQ(takeLog(), "no companion, refresh, hot key, no bars, panel, subscribe");
  EXPECT_EQ(state().tourRun, 0);
  EXPECT_TRUE(state().hotKeyFailed);
  rush_.stop();
  EXPECT_FALSE(state().hotKeyFailed);
  defaults_.set("rushFocusOnStart", "no");  // not a truth value, so the default applies
  rush_.start();
  EXPECT_TRUE(state().tunnelOn);
}

TEST_F(RushControllerTest, waitsForAListOfItsOwnTime) {
  replay_ = {a_};
  lastPass_ = now_ - 1us;
  rush_.start();
  rush_.skip();
  rush_.snooze(RushSnooze::hour);
  rush_.markDone();
  rush_.back();
  rush_.take(a_);
  rush_.wakeSnoozed();
  rush_.redealDone();
  tick_();
  EXPECT_EQ(seat(), "");
  takeLog();
  lastPass_ = now_;
  tick_();
  EXPECT_EQ(seat(), "a");
  // The first deal opens whatever is in front, and aims the tunnel.
  EXPECT_EQ(takeLog(), "open:a, tunnel:a");
}

TEST_F(RushControllerTest, laterDealsOpenOnlyInTheFlow) {
  startDealing({a_, b_, c_});
  EXPECT_EQ(seat(), "a");
  deliver_({with(a_, SessionStatus::working), b_, c_});
  EXPECT_EQ(seat(), "b");
  EXPECT_EQ(takeLog(), "");
  inFlow_ = true;
  deliver_({with(b_, SessionStatus::idle), c_});
  EXPECT_EQ(takeLog(), "open:c");
  EXPECT_EQ(state().stats.played, 1);
}

TEST_F(RushControllerTest, commandsOpenWhomTheyDeal) {
  startDealing({a_, b_, c_});
  const auto expectDealt = [this](const std::string& who) {
    EXPECT_EQ(seat(), who);
    EXPECT_EQ(takeLog(), "open:" + who);
  };
  rush_.skip();
  expectDealt("b");
  rush_.markDone();
  expectDealt("c");
  rush_.back();
  expectDealt("b");
  rush_.snooze(RushSnooze::hour);
  expectDealt("c");
  rush_.take(a_);
  expectDealt("a");
  EXPECT_EQ(state().snoozedCount, 1U);
  EXPECT_EQ(state().upNext.size(), 1U);
}

TEST_F(RushControllerTest, theTickDrivesTheGraceAndTheSnoozes) {
  startDealing({a_, b_});
  rush_.snooze(RushSnooze::quarterHour);
  deliver_({a_});  // b has gone
  clock_.advance(9s);
  tick_();
  EXPECT_EQ(seat(), "b");
  clock_.advance(1s);
  tick_();
  EXPECT_EQ(seat(), "");
  clock_.advance(899s);
  tick_();
  EXPECT_EQ(seat(), "a");
  EXPECT_EQ(state().snoozedCount, 0U);
}

TEST_F(RushControllerTest, keepsWhatWasPutAwayInTheStoredForms) {
  startDealing({a_, b_, c_});
  rush_.markDone();
  rush_.snooze(RushSnooze::hour);
  rush_.toggleHold();
  const RushFilter filter{.hiddenAgents = {"t3"}};
  rush_.setFilter(filter);
  EXPECT_EQ(defaults_.dictionary("rushDone"), (DefaultsDictionary{{"codex:a", stored(-3min)}}));
  EXPECT_EQ(defaults_.dictionary("rushSnoozed"),
            (DefaultsDictionary{{"codex:b", DefaultsArray{stored(1h), 1.0}}}));
  rush_.stop();
  rush_.start();
  EXPECT_EQ(state().filter, filter);
  EXPECT_TRUE(state().holdOn);
  EXPECT_EQ(state().stats, RushStats{.startedAt = now_});
  deliver_({a_, b_, c_});
  EXPECT_EQ(seat(), "c");
  EXPECT_EQ(state().doneCount, 1U);
  rush_.redealDone();
  rush_.wakeSnoozed();
  EXPECT_EQ(state().queueCount, 2U);
}

TEST_F(RushControllerTest, readsStoredValuesOfWrongTypesAsThePlainDefault) {
  const double soon = stored(1h);
  for (const auto& [key, value] : std::initializer_list<std::pair<const char*, DefaultsValue>>{
           {"rushDone", "text"},
           {"rushDone", DefaultsDictionary{{"codex:a", 1.0}, {"codex:b", "x"}}},
           {"rushSnoozed", DefaultsArray{1.0}},
           {"rushSnoozed",
            DefaultsDictionary{{"x", soon},
                               {"y", DefaultsArray{soon}},
                               {"z", DefaultsArray{soon, 1.0, 1.0}},
                               {"w", DefaultsArray{soon, true}}}},
           {"rushFilter", "{}"},
           {"rushFilter", DefaultsData{"{\"window\":\"hour\"}"}},
           {"rushHold", 1.0},
       }) {
    defaults_.set(key, value);
    rush_.start();
    EXPECT_EQ(state().doneCount + state().snoozedCount, 0U) << key;
    EXPECT_TRUE(state().filter.isDefault()) << key;
    EXPECT_FALSE(state().holdOn) << key;
    rush_.stop();
    defaults_.remove(key);
  }
  defaults_.set("rushSnoozed",
                DefaultsDictionary{{"bad", 1.0}, {"codex:a", DefaultsArray{soon, 0.5}}});
  rush_.start();
  EXPECT_EQ(state().snoozedSessions,
            (RushStorage::Snoozed{{"codex:a", {.until = now_ + 1h, .waitingOnApproval = true}}}));
}

TEST_F(RushControllerTest, wakesOneSnoozeOnOrOff) {
  const auto until = [this](Seconds later) { return DefaultsArray{stored(later), 0.0}; };
  defaults_.set(
      "rushSnoozed",
      DefaultsDictionary{{"codex:a", until(1h)}, {"codex:b", until(1h)}, {"codex:c", until(0s)}});
  rush_.wake("codex:a");
  EXPECT_EQ(state().snoozedSessions.size(), 1U);  // the expired one has gone too
  defaults_.set("rushFocusOnStart", false);
  rush_.start();
  rush_.wake("codex:b");
  EXPECT_EQ(state().snoozedSessions.size(), 0U);
  EXPECT_EQ(defaults_.dictionary("rushSnoozed"), DefaultsDictionary());
  deliver_({with(waiting("y", 0s), SessionStatus::yourTurn)});
  rush_.snooze(RushSnooze::hour);
  EXPECT_EQ(seat(), "");
  takeLog();
  rush_.wake("codex:y");
  EXPECT_EQ(seat(), "y");
  EXPECT_EQ(takeLog(), "");  // nobody is in the flow
}

TEST_F(RushControllerTest, aFilterWhileWaitingTakesEffectWithTheFirstPass) {
  replay_ = {a_, b_};
  rush_.start();
  RushFilter filter{.projectMode = RushFilter::ProjectMode::only, .projects = {"/b"}};
  rush_.setFilter(filter);
  EXPECT_EQ(seat(), "");
  EXPECT_EQ(state().approvalsHidden, 1U);
  deliver_({a_, b_});
  EXPECT_EQ(seat(), "b");
  filter.projects = {"/a"};
  takeLog();
  rush_.setFilter(filter);
  EXPECT_EQ(takeLog(), "open:a, tunnel:a");
}

TEST_F(RushControllerTest, theTunnelFollowsTheSeat) {
  startDealing({a_, b_});
  rush_.toggleTunnel();
  EXPECT_EQ(takeLog(), "bars, no panel, open:a, tunnel:a");
  hotKey_();
  EXPECT_EQ(takeLog(), "click:a, tunnel:a");
  rush_.toggleTunnel();
  EXPECT_EQ(takeLog(), "no bars, panel, no tunnel");
  rush_.openSeat();
  EXPECT_EQ(takeLog(), "click:a");
}

TEST_F(RushControllerTest, showsTheHistoryWithThePresentCopies) {
  startDealing({a_, b_});
  rush_.skip();
  auto renamed = a_;
  renamed.title = "renamed";
  deliver_({renamed, b_});
  ASSERT_EQ(state().history.size(), 1U);
  EXPECT_EQ(state().history[0].session.title, "renamed");
  deliver_({b_});
  EXPECT_EQ(state().history[0].session.title, "");
}

TEST(RushController, knowsWhoIsInTheFlow) {
  EXPECT_FALSE(RushController::isInFlow(std::nullopt));
  EXPECT_TRUE(RushController::isInFlow(FrontmostApplication{.isThisProgram = true}));
  EXPECT_TRUE(RushController::isInFlow(FrontmostApplication{.identifier = "com.openai.codex"}));
  EXPECT_FALSE(RushController::isInFlow(FrontmostApplication{.identifier = "com.openai"}));
  EXPECT_FALSE(RushController::isInFlow(FrontmostApplication{}));
}

TEST_F(RushControllerTest, nothingReachesOneThatIsGone) {
  RushController::Wiring careless = wiring();
  careless.sessions = [this](auto call) {
    deliver_ = std::move(call);
    return RushController::Stream();
  };
  auto rush = std::make_unique<RushController>(careless, defaults_);
  rush->start();
  rush.reset();
  deliver_({});
  hotKey_();
}

}  // namespace
}  // namespace tessivane
