#include "app/AppDelegate.h"

#include <map>

#include <gtest/gtest.h>

#include "app/AppPresence.h"
#include "helpers/ManualClock.h"
#include "helpers/ManualQueue.h"
#include "platform/MemoryUserDefaults.h"

namespace tessivane {
namespace {

using Log = std::vector<std::string>;

class AppDelegateTest : public testing::Test {
 protected:
  AppDelegate::Environment environment() {
    const auto note = [this](const char* line) {
      return [this, line] { log_.emplace_back(line); };
    };
    AppDelegate::Environment made;
    made.mainQueue = &queue_;
    made.defaults = &defaults_;
    made.environmentVariable = [this](const char* name) {
      const auto found = variables_.find(name);
      return found == variables_.end() ? std::nullopt : std::optional(found->second);
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

  // What happens in a launch, one after the other; "|" where it has ended.
  std::string launch(const AppDelegate::Environment& environment) {
    log_.clear();
    AppDelegate delegate(environment);
    status_ = delegate.applicationDidFinishLaunching();
    log_.emplace_back("|");
    queue_.runPending();
    std::string words;
    for (const std::string& line : log_)
      words += (words.empty() ? "" : ", ") + line;
    return words;
  }

  ManualClock clock_;
  ManualQueue queue_{clock_};
  MemoryUserDefaults defaults_{queue_};
  std::map<std::string, std::string, std::less<>> variables_;
  Log log_;
  std::optional<int> status_;
  bool scheduled_ = false;
};

TEST_F(AppDelegateTest, launchesInOrder) {
  EXPECT_EQ(launch(environment()),
            "appearance system, restore, signals, status item, accessory, |, "
            "refresh, schedule, capture, presence");
  EXPECT_EQ(status_, std::nullopt);
  scheduled_ = true;
  defaults_.set("panelOpen", true);
  defaults_.set("appAppearance", "dark");
  auto installed = environment();
  installed.isInstalled = true;
  EXPECT_EQ(launch(installed),
            "appearance dark, restore, signals, status item, updates, accessory, |, "
            "capture, panel, presence");
  defaults_.set("appAppearance", "Dark");
  EXPECT_TRUE(launch(environment()).starts_with("appearance system,"));
}

TEST_F(AppDelegateTest, aDumpEndsTheLaunch) {
  const std::string before = "appearance system, restore, signals, status item, ";
  const auto dump = [this](const char* line, int status) {
    return [this, line, status] {
      log_.emplace_back(line);
      return status;
    };
  };
  auto dumping = environment();
  dumping.dumpAndExit = dump("dump", 0);
  EXPECT_EQ(launch(dumping), before + "dump, |");
  EXPECT_EQ(status_, 0);
  dumping.dumpRushAndExit = dump("dump rush", 3);
  EXPECT_EQ(launch(dumping), before + "dump rush, |");
  EXPECT_EQ(status_, 3);
}

TEST_F(AppDelegateTest, theEnvironmentMayOpenTheActivityWindow) {
  using Text = std::optional<std::string>;
  struct Row {
    const char* open = nullptr;
    const char* range = nullptr;
    Text view;
    Text shownRange;
  };
  for (const Row& row : std::initializer_list<Row>{{"", "1h", {}, {}},
                                                   {"Flow", "1h", {}, {}},
                                                   {"flow", "", "flow", {}},
                                                   {"lanes", "h1", "lanes", {}},
                                                   {"timeline", "6h", "timeline", "6h"}}) {
    variables_ = {{"TESSIVANE_OPEN_ACTIVITY", row.open}, {"TESSIVANE_ACTIVITY_RANGE", row.range}};
    defaults_.remove("activityView");
    defaults_.remove("activityRange");
    EXPECT_EQ(launch(environment()).ends_with("activity"), row.view.has_value());
    EXPECT_EQ(defaults_.text("activityView"), row.view);
    EXPECT_EQ(defaults_.text("activityRange"), row.shownRange);
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

}  // namespace
}  // namespace tessivane
