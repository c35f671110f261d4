#include "app/AppDelegate.h"

#include <algorithm>
#include <array>
#include <utility>

#include "activity/ActivityEvent.h"

namespace tessivane {

namespace {

constexpr const char* openActivityVariable = "TESSIVANE_OPEN_ACTIVITY";
constexpr const char* activityRangeVariable = "TESSIVANE_ACTIVITY_RANGE";
constexpr std::array<std::string_view, 3> activityViews = {"timeline", "flow", "lanes"};

}  // namespace

AppDelegate::AppDelegate(Environment environment) : environment_(std::move(environment)) {}

std::optional<int> AppDelegate::applicationDidFinishLaunching() {
  applyAppearance();
  environment_.restoreAfterUncleanExit();
  environment_.quitOnTerminationSignals();
  environment_.installStatusItem();
  if (environment_.isInstalled)
    environment_.startUpdateCheck();
  if (environment_.dumpRushAndExit)
    return environment_.dumpRushAndExit();
  if (environment_.dumpAndExit)
    return environment_.dumpAndExit();
  environment_.becomeAccessory();
  environment_.mainQueue->async([environment = environment_] {
    if (!environment.storeIsScheduled()) {
      environment.refreshStore();
      environment.scheduleStore();
    }
    environment.followCapturePolicy();
    if (environment.defaults->boolean("panelOpen").value_or(false))
      environment.showFloatingPanel();
    environment.startPresence();
  });
  openActivityForProfiling();
  return std::nullopt;
}

void AppDelegate::applicationWillTerminate() const {
  environment_.stopRush();
}

void AppDelegate::applicationShouldHandleReopen(bool /*hasVisibleWindows*/) const {
  environment_.mainQueue->async([show = environment_.showFloatingPanel] { show(); });
}

void AppDelegate::applyAppearance() const {
  const auto stored = environment_.defaults->text(appearanceKey);
  environment_.applyAppearance(
      appearanceChoice(stored.value_or("")).value_or(AppearanceChoice::system));
}

void AppDelegate::openActivityForProfiling() const {
  const auto view = environment_.environmentVariable(openActivityVariable);
  if (!view || std::ranges::find(activityViews, *view) == activityViews.end())
    return;
  environment_.defaults->set("activityView", *view);
  const auto range = environment_.environmentVariable(activityRangeVariable);
  if (range && activityRange(*range))
    environment_.defaults->set("activityRange", *range);
  environment_.mainQueue->async([show = environment_.showActivityWindow] { show(); });
}

}  // namespace tessivane
