#pragma once

// The one long-lived object that runs Rush: it owns the table, turns commands and session updates
// into table operations, keeps what must survive a restart, publishes what surfaces show and has
// the seated session opened. Everything outside comes through `Wiring`.
//
// Lives on the main thread, as all its operations do. A run goes from off to waiting for a list
// that is fresher than its start, and from there to dealing.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "rush/RushProjectOption.h"
#include "rush/RushStorage.h"
#include "rush/RushTable.h"
#include "sessions/AgentSession.h"
#include "support/Calendar.h"
#include "support/Date.h"
#include "support/Observers.h"

namespace tessivane {

/// What surfaces see of Rush.
struct RushState {
  bool isOn = false;
  std::optional<AgentSession> seat = {};
  std::size_t queueCount = 0;
  std::size_t workingCount = 0;  ///< conversations at work
  RushStats stats = {};
  bool hotKeyFailed = false;
  std::size_t doneCount = 0;
  std::size_t snoozedCount = 0;
  std::unordered_map<std::string, RushSnoozed> snoozedSessions = {};
  RushFilter filter = {};
  std::size_t approvalsHidden = 0;  ///< requests that only the filter hides
  std::vector<RushProjectOption> projectOptions = {};
  std::deque<RushHistoryEntry> history = {};  ///< with the present copies of the sessions
  bool tunnelOn = false;
  bool holdOn = false;
  bool companionOn = false;
  bool rushWindowOn = false;
  bool filtersOpen = false;
  int tourRun = 0;                        ///< counts up when the tour is to start
  std::vector<AgentSession> upNext = {};  ///< the first four of the queue

  friend bool operator==(const RushState&, const RushState&) = default;
};

/// The application in front, as far as the desktop tells.
struct FrontmostApplication {
  bool isThisProgram = false;
  std::optional<std::string> identifier = {};
};

class RushController final {
 public:
  using Sessions = std::vector<AgentSession>;
  /// Ends a stream when it goes.
  using Stream = std::shared_ptr<void>;

  /// The platform and the store, as Rush needs them. The default is inert.
  struct Wiring {
    /// Calls for each list that the store publishes once it has loaded, and at once, within the
    /// call, with the present one if there is one.
    std::function<Stream(std::function<void(const Sessions&)>)> sessions = [](const auto&) {
      return Stream();
    };
    /// When the store last finished a refresh.
    std::function<std::optional<Date>()> lastPass = [] { return std::nullopt; };
    /// Calls once a second.
    std::function<Stream(std::function<void()>)> ticks = [](const auto&) { return Stream(); };
    /// Tells the store that Rush is on or off.
    std::function<void(bool)> setRefresh = [](bool) {};
    /// False when the system refuses the hot key.
    std::function<bool(std::function<void()> action)> registerHotKey = [](const auto&) {
      return true;
    };
    std::function<void()> unregisterHotKey = [] {};
    std::function<void()> showPanel = [] {};
    std::function<void()> hidePanel = [] {};
    Clock now = [] { return distantPast; };
    std::function<Calendar()> calendar = [] { return Calendar("UTC"); };
    /// Enters the focus tunnel, or aims it at a session.
    std::function<void(const std::optional<AgentSession>&)> focusTunnel = [](const auto&) {};
    std::function<void()> endTunnel = [] {};
    /// The floating session panel.
    std::function<bool()> companionVisible = [] { return false; };
    std::function<void(bool)> setCompanion = [](bool) {};
    std::function<void(bool)> setFocusBars = [](bool) {};
    /// Opens a dealt session; and one that the person clicked, which may end in a copied command.
    std::function<void(const AgentSession&)> opener = [](const auto&) {};
    std::function<void(const AgentSession&)> clickOpener = [](const auto&) {};
    /// Whether an automatic deal may bring another window forward.
    std::function<bool()> frontmostIsInFlow = [] { return false; };
  };

  static constexpr std::size_t upNextCount = 4;

  /// `defaults` outlives the controller.
  RushController(Wiring wiring, UserDefaults& defaults);
  RushController(const RushController&) = delete;
  RushController& operator=(const RushController&) = delete;
  ~RushController();

  const Observable<RushState>& state() const { return state_; }

  /// Starts a run: a fresh table with what was put away earlier. Nothing while one is on.
  void start();
  /// Ends the run and undoes what it changed outside. Nothing while none is on.
  void stop();

  // What the person does with the seat. Nothing unless a run is dealing.
  void skip();
  void snooze(RushSnooze choice);
  void markDone();
  void back();
  void take(const AgentSession& session);
  /// Ends all snoozes; forgets all that was marked done.
  void wakeSnoozed();
  void redealDone();

  /// Keeps a seated session that starts to work, or no longer does. While a run is on.
  void toggleHold();
  void setFilter(const RushFilter& filter);
  /// Ends one snooze. With no run on, in the stored ones.
  void wake(const std::string& id);
  /// Brings the seated session up, copying its command where there is no other way.
  void openSeat();
  void toggleTunnel();
  /// With no run on: forgets the stored snoozes that have run out, and shows the others.
  void pruneExpiredSnoozes();

  /// Whether the person is in the flow: in this program or in one of the agents' applications.
  static bool isInFlow(const std::optional<FrontmostApplication>& frontmost);

  /// A table as a run of `start` begins with, but with nothing put away and the default filter.
  static RushTable freshTable(Date now);

 private:
  enum class Focus { always, onlyInFlow };

  bool isDealing() const { return state_.value().isOn && !awaitingFirstPass_; }
  void receive(const Sessions& sessions);
  void tick();
  void advance();
  void finish(const RushChange& change, Focus focus);
  void saveDone();
  void publish();
  void syncChrome();
  void watch();
  template <typename Change>
  void update(Change change);

  const Wiring wiring_;
  RushStorage storage_;
  Observable<RushState> state_;
  RushTable table_;
  Sessions latest_;
  bool companionWasOn_ = false;
  bool replaying_ = false;
  bool awaitingFirstPass_ = false;
  // Before the streams, so that none of their calls outlives it.
  std::shared_ptr<RushController*> self_ = std::make_shared<RushController*>(this);
  Stream subscription_;
  Stream ticker_;
};

}  // namespace tessivane
