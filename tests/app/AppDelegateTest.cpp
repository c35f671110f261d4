#include "app/AppDelegate.h"

#include <map>

#include <gtest/gtest.h>

#include "app/AppPresence.h"
#include "app/StatusItemMenu.h"
#include "helpers/ManualClock.h"
#include "helpers/ManualQueue.h"
#include "platform/MemoryUserDefaults.h"

namespace tessivane {
namespace {

class AppDelegateTest : public testing::Test {
 protected:
  AppDelegate::Environment environment() {
    const auto note = [this](const char* line) {
      return [this, line] { log_.emplace_back(line); };
    };
    AppDelegate::Environment made;
    made.mainQueue = &queue_;
    made.defaults = &defaults_;
    made.environmentVariable = [this](const char* name) -> std::optional<std::string> {
      const auto found = variables_.find(name);
      if (found == variables_.end())
        return std::nullopt;
      return found->second;
    };
    made.applyAppearance = [this](AppearanceChoice choice) {
      log_.push_back("appearance " + std::string(rawValue(choice)));
    };
    made.restoreAfterUncleanExit = note("restore");
    made.quitOnTerminationSignals = note("signals");
    made.installStatusItem = note("status item");
    made.startUpdateCheck = note("updates");
    made.becomeAccessory = note("accessory");
    made.storeIsScheduled = [this] { return scheduled_; };
    made.refreshStore = note("refresh");
    made.scheduleStore = note("schedule");
    made.followCapturePolicy = note("capture");
    made.showFloatingPanel = note("panel");
    made.startPresence = note("presence");
    made.showActivityWindow = note("activity");
    made.stopRush = note("stop rush");
    return made;
  }

  std::vector<std::string> launch(const AppDelegate::Environment& environment) {
    log_.clear();
    AppDelegate delegate(environment);
    status_ = delegate.applicationDidFinishLaunching();
    log_.emplace_back("launched");
    queue_.runPending();
    return log_;
  }

  ManualClock clock_;
  ManualQueue queue_{clock_};
  MemoryUserDefaults defaults_{queue_};
  std::map<std::string, std::string, std::less<>> variables_;
  std::vector<std::string> log_;
  std::optional<int> status_;
  bool scheduled_ = false;
};

using Log = std::vector<std::string>;

TEST_F(AppDelegateTest, launchesInOrder) {
  EXPECT_EQ(launch(environment()),
            (Log{"appearance system",
                 "restore",
                 "signals",
                 "status item",
                 "accessory",
                 "launched",
                 "refresh",
                 "schedule",
                 "capture",
                 "presence"}));
  EXPECT_EQ(status_, std::nullopt);
  scheduled_ = true;
  defaults_.set("panelOpen", true);
  defaults_.set("appAppearance", "dark");
  auto installed = environment();
  installed.isInstalled = true;
  EXPECT_EQ(launch(installed),
            (Log{"appearance dark",
                 "restore",
                 "signals",
                 "status item",
                 "updates",
                 "accessory",
                 "launched",
                 "capture",
                 "panel",
                 "presence"}));
  defaults_.set("appAppearance", "Dark");
  EXPECT_EQ(launch(environment())[0], "appearance system");
}

TEST_F(AppDelegateTest, aDumpEndsTheLaunch) {
  auto dumping = environment();
  dumping.dumpAndExit = [this] {
    log_.emplace_back("dump");
    return 0;
  };
  const Log before{"appearance system", "restore", "signals", "status item"};
  EXPECT_EQ(launch(dumping), (Log{before[0], before[1], before[2], before[3], "dump", "launched"}));
  EXPECT_EQ(status_, 0);
  dumping.dumpRushAndExit = [this] {
    log_.emplace_back("dump rush");
    return 3;
  };
  EXPECT_EQ(launch(dumping),
            (Log{before[0], before[1], before[2], before[3], "dump rush", "launched"}));
  EXPECT_EQ(status_, 3);
}

TEST_F(AppDelegateTest, theEnvironmentMayOpenTheActivityWindow) {
  struct Row {
    std::map<std::string, std::string, std::less<>> variables;
    std::optional<std::string> view;
    std::optional<std::string> range;
  };
  for (const Row& row : std::initializer_list<Row>{
           {{}, {}, {}},
           {{{"TESSIVANE_ACTIVITY_RANGE", "1h"}}, {}, {}},
           {{{"TESSIVANE_OPEN_ACTIVITY", "Flow"}, {"TESSIVANE_ACTIVITY_RANGE", "1h"}}, {}, {}},
           {{{"TESSIVANE_OPEN_ACTIVITY", "flow"}}, "flow", {}},
           {{{"TESSIVANE_OPEN_ACTIVITY", "lanes"}, {"TESSIVANE_ACTIVITY_RANGE", "h1"}},
            "lanes",
            {}},
           {{{"TESSIVANE_OPEN_ACTIVITY", "timeline"}, {"TESSIVANE_ACTIVITY_RANGE", "6h"}},
            "timeline",
            "6h"},
       }) {
    variables_ = row.variables;
    defaults_.remove("activityView");
    defaults_.remove("activityRange");
    const Log log = launch(environment());
    EXPECT_EQ(log.back() == "activity", row.view.has_value());
    EXPECT_EQ(defaults_.text("activityView"), row.view);
    EXPECT_EQ(defaults_.text("activityRange"), row.range);
  }
}

TEST_F(AppDelegateTest, endsByStoppingRushAndReopensThePanel) {
  AppDelegate delegate(environment());
  delegate.applicationShouldHandleReopen(true);
  EXPECT_TRUE(log_.empty());
  queue_.runPending();
  delegate.applicationWillTerminate();
  EXPECT_EQ(log_, (Log{"panel", "stop rush"}));
}

TEST(AppPresence, isRegularOnlyWithARealWindow) {
  struct Row {
    PresenceWindow window;
    bool counts = false;
  };
  for (const Row& row : std::initializer_list<Row>{{{1, true, false}, true},
                                                   {{1 | 2 | 4, false, true}, true},
                                                   {{1, false, false}, false},
                                                   {{129, true, false}, false},
                                                   {{128, true, true}, false},
                                                   {{0, true, false}, false}}) {
    EXPECT_EQ(row.window.counts(), row.counts) << row.window.styleMask;
  }
  std::vector<PresenceWindow> windows;
  auto policy = ActivationPolicy::accessory;
  Log log;
  Observers<bool> changes;
  AppPresence presence({.windows = [&] { return windows; },
                        .policy = [&] { return policy; },
                        .setPolicy =
                            [&](ActivationPolicy wanted) {
                              policy = wanted;
                              log.emplace_back(wanted == ActivationPolicy::regular ? "regular"
                                                                                   : "accessory");
                            },
                        .activate = [&] { log.emplace_back("activate"); },
                        .windowChanges = [&](auto call) { return changes.subscribe(call); }});
  presence.start();
  windows = {{129, true, false}, {1, true, false}};
  changes.notify(true);
  changes.notify(true);
  windows.pop_back();  // the panel alone remains
  changes.notify(false);
  windows = {{1, true, false}};
  changes.notify(false);
  EXPECT_EQ(log, (Log{"regular", "activate", "accessory", "regular"}));
}

TEST(StatusItemMenu, hasNineRows) {
  Log titles;
  for (const auto& entry : StatusItemMenu::entries(false))
    titles.push_back(entry.title);
  EXPECT_EQ(titles,
            (Log{"Show or Hide Floating Window",
                 "Activity",
                 "Start Rush Mode...",
                 "",
                 "Settings...",
                 "Check for Updates...",
                 "About Tessivane",
                 "",
                 "Quit Tessivane"}));
  EXPECT_EQ(StatusItemMenu::entries(true)[2],
            (StatusItemMenu::Entry{"Stop Rush", StatusItemMenu::Action::rush}));
}

}  // namespace
}  // namespace tessivane
