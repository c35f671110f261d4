#include "app/Program.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "activity/SyntheticActivitySource.h"
#include "backend/BackendActivitySource.h"
#include "platform/SystemClock.h"
#include "platform/linux/InotifyEvents.h"
#include "support/Calendar.h"
#include "support/Paths.h"

namespace tessivane {

namespace {

constexpr Seconds tickInterval{1};
constexpr Seconds tickTolerance{0.1};
// How soon after a refresh changed files lead to the next one.
constexpr Seconds sourcesSpacing{2};

SessionDiscovery::Options discoveryOptions() {
  return {.home = Paths::home(),
          .configDirectory = Paths::configDirectory(),
          .now = systemNow,
          .report = [](std::string_view line) {
            std::fprintf(stderr, "%.*s\n", static_cast<int>(line.size()), line.data());
          }};
}

SessionStore::Environment storeEnvironment(TaskQueue& mainQueue,
                                           TaskQueue& refreshQueue,
                                           SessionDiscovery& discovery,
                                           BackendActivityStore* backend,
                                           const Program::Shell& shell) {
  return {.mainQueue = &mainQueue,
          .refreshQueue = &refreshQueue,
          .now = systemNow,
          .calendar = Calendar::current,
          .discover = [&discovery](Date since) { return discovery.sessions(since); },
          .problems = [&discovery] { return discovery.problems(); },
          .sessionsDidRefresh =
              [backend](const SessionStore::Sessions& sessions) {
                if (backend != nullptr)
                  backend->sessionsDidRefresh(sessions);
              },
          .workspace = shell.workspace,
          .pasteboard = shell.pasteboard};
}

// Panel, tunnel, bars and hot key stay inert until they exist. So does the companion: hiding the
// session list without a Rush panel in its place would leave nothing to see.
RushController::Wiring rushWiring(TaskQueue& mainQueue,
                                  SessionStore& store,
                                  const Program::Shell& shell) {
  RushController::Wiring wiring;
  wiring.sessions = [&store](std::function<void(const RushController::Sessions&)> call) {
    return loadedSessions(store, std::move(call));
  };
  wiring.lastPass = [&store] { return store.lastRefresh(); };
  wiring.ticks = [&mainQueue](std::function<void()> call) -> RushController::Stream {
    return std::make_shared<TaskHandle>(
        mainQueue.every(tickInterval, tickTolerance, std::move(call)));
  };
  wiring.setRefresh = [&store](bool isOn) { store.setRushRefresh(isOn); };
  wiring.now = systemNow;
  wiring.calendar = Calendar::current;
  wiring.opener = [&store](const AgentSession& session) { store.open(session, false); };
  wiring.clickOpener = [&store](const AgentSession& session) { store.open(session, true); };
  wiring.frontmostIsInFlow = shell.frontmostIsInFlow;
  return wiring;
}

bool wantsInventedWork(const UserDefaults& defaults) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing here sets the environment
  const char* variable = std::getenv(syntheticActivityVariable);
  const auto asked = variable == nullptr ? std::nullopt : std::optional<std::string_view>(variable);
  return wantsSyntheticActivity(asked, defaults.boolean(syntheticActivityKey));
}

std::unique_ptr<ActivitySource> activitySource(TaskQueue& mainQueue,
                                               BackendActivityStore* backend) {
  if (backend != nullptr)
    return std::make_unique<BackendActivitySource>(*backend);
  return std::make_unique<SyntheticActivitySource>(
      SyntheticActivitySource::defaultSeed,
      SyntheticActivitySource::defaultTickInterval,
      SyntheticActivitySource::Environment{.now = systemNow, .queue = &mainQueue});
}

}  // namespace

Program::Program(TaskQueue& mainQueue, UserDefaults& defaults, const Shell& shell)
    : discovery_(discoveryOptions()),
      activityQueue_("tessivane.activity"),
      backend_(makeBackend(mainQueue, defaults)),
      refreshQueue_("tessivane.refresh"),
      store_(storeEnvironment(mainQueue, refreshQueue_, discovery_, backend_.get(), shell)),
      rush_(rushWiring(mainQueue, store_, shell), defaults),
      activity_({.mainQueue = &mainQueue, .defaults = &defaults, .now = systemNow},
                activitySource(mainQueue, backend_.get())) {
  settings_ = defaults.subscribe([this] {
    if (backend_ != nullptr)
      backend_->settingsDidChange();
  });
}

Program::~Program() = default;

// GitHub is asked as soon as `config.github` is filled in.
std::unique_ptr<BackendActivityStore> Program::makeBackend(TaskQueue& mainQueue,
                                                           UserDefaults& defaults) {
  if (wantsInventedWork(defaults))
    return nullptr;
  BackendActivityConfig config;
  config.defaults = &defaults;
  config.clock = systemNow;
  config.fileEvents = inotifyEvents([](const std::string& sentence) {
    std::fprintf(stderr, "Tessivane: %s\n", sentence.c_str());
  });
  config.onSourcesChanged = [&mainQueue, weak = std::weak_ptr(self_)] {
    mainQueue.async([weak] {
      if (const auto self = weak.lock())
        (*self)->store_.refreshSoon(sourcesSpacing);
    });
  };
  return std::make_unique<BackendActivityStore>(
      std::move(config), activityQueue_, discovery_.roots());
}

bool Program::comesToRest(Seconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  auto rested = std::make_shared<std::promise<void>>();
  auto future = rested->get_future();
  refreshQueue_.async([rested] { rested->set_value(); });
  if (backend_ != nullptr && !backend_->stopAndWait(limit))
    return false;
  return future.wait_until(end) == std::future_status::ready;
}

RushController::Stream loadedSessions(SessionStore& store,
                                      std::function<void(const RushController::Sessions&)> call) {
  struct Subscriptions {
    Subscription sessions;
    Subscription loaded;
  };
  auto kept = std::make_shared<Subscriptions>();
  const auto deliver = [&store, call = std::move(call)] {
    if (store.hasLoaded().value())
      call(store.sessions().value());
  };
  kept->sessions = store.sessions().subscribe([deliver](const auto&) { deliver(); });
  kept->loaded = store.hasLoaded().subscribe([deliver](bool) { deliver(); });
  deliver();
  return kept;
}

}  // namespace tessivane
