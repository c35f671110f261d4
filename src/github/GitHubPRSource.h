#pragma once

// Polls GitHub for the pull requests of the person who is signed in: once a minute, slower after
// failures, from a cursor that only moves forward.
//
// Lives on the queue it is given, the activity backend's, where its owner makes it (as a shared
// pointer), starts and stops it and where it delivers. The network work runs on the worker queue
// and comes back by a task of the first; both queues outlive it, and the worker ends before the
// other one does.

#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <variant>
#include <vector>

#include "github/GitHubAuth.h"
#include "github/GitHubError.h"
#include "github/GitHubPR.h"
#include "github/GitHubTransport.h"
#include "platform/TaskQueue.h"

namespace tessivane {

/// The number of failed polls since the last success, and the wait that follows from it.
struct GitHubBackoff {
  int failures = 0;

  /// The wait after one more failure, which is counted: 60, 120, 300, then 600 seconds, or as long
  /// as a rate limit asks for, if that is longer.
  Seconds next(const GitHubError& error);
};

class GitHubPRSource final : public std::enable_shared_from_this<GitHubPRSource> {
 public:
  /// The oldest update that is ever asked for lies that far back.
  static constexpr std::chrono::seconds oldest{172'800};

  struct Environment {
    std::shared_ptr<GitHubTransport> transport = {};
    std::shared_ptr<GitHubAuth> auth = {};
    TaskQueue* worker = nullptr;
  };

  /// What the owner does for the source, called on its queue. The cursor is an ISO 8601 date.
  struct Owner {
    Clock clock = {};
    std::function<std::optional<std::string>()> loadCursor = {};
    std::function<void(const std::string&)> saveCursor = {};
    /// `catchUp` until the first poll of a run has succeeded, that one included.
    std::function<void(const std::vector<GitHubPR>& prs, bool catchUp)> deliver = {};
  };

  GitHubPRSource(Environment environment, TaskQueue& queue, Owner owner);

  /// Polls at once, then in its rhythm. Nothing when it runs.
  void start();

  /// Ends the poll under way, whose result counts for nothing, and polls no more.
  void stop();

  /// Sets the next poll to that long from now. One under way goes on in its place.
  void schedule(Seconds delay);

  /// The wait that was chosen last, and how many polls have ended; to see how it does.
  std::optional<Seconds> lastDelay() const { return lastDelay_; }
  int completedPolls() const { return completedPolls_; }

 private:
  struct Success {
    std::vector<GitHubPR> prs;
  };
  struct Failure {
    GitHubError error;
    std::string token;
  };
  /// No usable sign-in.
  struct Skipped {};
  using Outcome = std::variant<Skipped, Success, Failure>;

  void tick();
  static Outcome poll(const Environment& environment,
                      Date since,
                      Date now,
                      const std::stop_token& stop);
  void finish(const Outcome& outcome, bool catchUp, std::optional<Date> previous, int generation);
  void tellSuccess(const Success& success, bool catchUp, std::optional<Date> previous);
  Seconds delayAfter(const Failure& failure);

  const Environment environment_;
  TaskQueue& queue_;
  const Owner owner_;
  bool running_ = false;
  bool inFlight_ = false;
  bool caughtUp_ = false;
  int generation_ = 0;
  TaskHandle pending_;
  std::stop_source cancel_;
  GitHubBackoff backoff_;
  std::optional<Seconds> lastDelay_;
  int completedPolls_ = 0;
};

}  // namespace tessivane
