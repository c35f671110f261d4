#pragma once

// The one observable owner of the session list. It runs discovery on the refresh queue, at a pace
// that depends on who is looking, and publishes the sorted list on the main thread; surfaces and
// Rush read from it. It also opens a session in its application and holds the one toast.
//
// Lives on the main thread, as all its operations do. Creating it starts nothing: the first
// `refresh` and `schedule` come from the launch or from the first surface. Observers may call any
// of its operations, but must not destroy it.

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/Pasteboard.h"
#include "platform/TaskQueue.h"
#include "platform/Workspace.h"
#include "sessions/AgentSession.h"
#include "support/Calendar.h"
#include "support/Date.h"
#include "support/Observers.h"

namespace tessivane {

class SessionStore final {
 public:
  using Sessions = std::vector<AgentSession>;
  using Problems = std::map<Agent, std::string>;

  /// What the store needs of the rest. The queues outlive it; so does whatever the closures use.
  struct Environment {
    TaskQueue* mainQueue = nullptr;
    TaskQueue* refreshQueue = nullptr;
    Clock now = {};
    std::function<Calendar()> calendar = {};

    /// Called on the refresh queue, one pass at a time: `SessionDiscovery`.
    std::function<Sessions(Date since)> discover = {};
    std::function<Problems()> problems = {};
    /// Told the sorted list of every pass, on the refresh queue, before it is published.
    std::function<void(const Sessions&)> sessionsDidRefresh = [](const Sessions&) {};

    /// Told the projects of a changed list, on the main thread.
    std::function<void(const std::vector<std::string>&)> projectsDidChange =
        [](const std::vector<std::string>&) {};
    Workspace workspace = {};
    Pasteboard pasteboard = {};
  };

  static constexpr Seconds activeInterval{5};
  static constexpr Seconds backgroundInterval{30};
  static constexpr Seconds rushInterval{2};
  /// The part of an interval by which a timer may come late, so that wake-ups fall together.
  static constexpr double timerTolerance = 0.2;
  static constexpr Seconds toastDuration{2};

  explicit SessionStore(Environment environment);
  SessionStore(const SessionStore&) = delete;
  SessionStore& operator=(const SessionStore&) = delete;
  ~SessionStore();

  /// The published list: most urgent status first, within one status the latest activity first.
  const Observable<Sessions>& sessions() const { return sessions_; }
  /// Counts up about once a minute, with a refresh, so that relative times are drawn anew.
  const Observable<int>& minuteTick() const { return minuteTick_; }
  /// False until the first refresh has been published.
  const Observable<bool>& hasLoaded() const { return hasLoaded_; }
  const Observable<std::optional<std::string>>& toast() const { return toast_; }
  /// What is wrong with each source, as of the latest refresh.
  const Observable<Problems>& sourceProblems() const { return sourceProblems_; }
  /// When the latest refresh was published.
  std::optional<Date> lastRefresh() const { return lastRefresh_; }

  /// Starts a pass. While one runs, any number of calls lead to exactly one more after it.
  void refresh();
  /// Asks for a refresh no sooner than `spacing` after the latest one was published.
  void refreshSoon(Seconds spacing);
  /// Sets the refresh timer anew: Rush outranks open surfaces, they outrank the background.
  void schedule();
  bool isScheduled() const { return static_cast<bool>(timer_); }

  /// A surface that shows the data has appeared, or gone. The first one to appear is fresh at once.
  void surfaceOpened();
  void surfaceClosed();
  std::size_t openSurfaces() const { return openSurfaces_; }
  void setRushRefresh(bool isOn);

  /// Brings a session up: through its link, else for T3 Code by starting the application, else, if
  /// `copyFallback`, by `copyResumeCommand`.
  void open(const AgentSession& session, bool copyFallback);
  /// Puts the session's resume command, if it has one, on the pasteboard; the toast says so only
  /// when the command really went there.
  void copyResumeCommand(const AgentSession& session);
  /// Shows a message for `toastDuration`. A newer message takes its place and its full time.
  void showToast(const std::string& text);

  /// The order in which sessions are published.
  static void sort(Sessions& sessions);

 private:
  struct Pass {
    Sessions sessions;
    Problems problems;
  };

  void publish(Pass pass);
  void moveMinuteTick(Date now);
  template <typename Task>
  TaskQueue::Task ifAlive(Task task) const;

  const std::shared_ptr<const Environment> environment_;

  Observable<Sessions> sessions_;
  Observable<int> minuteTick_;
  Observable<bool> hasLoaded_;
  Observable<std::optional<std::string>> toast_;
  Observable<Problems> sourceProblems_;

  std::optional<Date> lastRefresh_;
  Date lastMinuteTick_;
  bool refreshing_ = false;
  bool refreshRequested_ = false;  // while one ran
  std::size_t openSurfaces_ = 0;
  bool rushRefresh_ = false;

  // Before the handles, so that no task of theirs outlives it.
  std::shared_ptr<SessionStore*> self_ = std::make_shared<SessionStore*>(this);
  TaskHandle timer_;
  TaskHandle soon_;  // set while a delayed refresh waits
  TaskHandle toastEnd_;
};

}  // namespace tessivane
