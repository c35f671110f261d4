#include "github/GitHubPRSource.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

#include "github/GitHubAPI.h"
#include "github/GitHubSearch.h"

namespace tessivane {

namespace {

constexpr Seconds rhythm{60};
constexpr std::array<Seconds, 4> failureDelays = {
    Seconds{60}, Seconds{120}, Seconds{300}, Seconds{600}};

}  // namespace

Seconds GitHubBackoff::next(const GitHubError& error) {
  const auto step = std::min(static_cast<std::size_t>(failures), failureDelays.size() - 1);
  // It only ever grows by one a minute, and the table ends long before it could overflow.
  failures += 1;
  return std::max(failureDelays.at(step), error.retryAfter.value_or(Seconds{0}));
}

GitHubPRSource::GitHubPRSource(Environment environment, TaskQueue& queue, Owner owner)
    : environment_(std::move(environment)), queue_(queue), owner_(std::move(owner)) {}

void GitHubPRSource::start() {
  if (running_)
    return;
  running_ = true;
  caughtUp_ = false;
  generation_ += 1;
  backoff_.failures = 0;
  cancel_ = std::stop_source();
  schedule(Seconds{0});
}

void GitHubPRSource::stop() {
  running_ = false;
  generation_ += 1;
  inFlight_ = false;
  cancel_.request_stop();
  pending_.cancel();
}

void GitHubPRSource::schedule(Seconds delay) {
  pending_ = queue_.after(delay, [weak = weak_from_this()] {
    if (const auto self = weak.lock())
      self->tick();
  });
}

void GitHubPRSource::tick() {
  if (!running_ || inFlight_)
    return;
  const Date now = owner_.clock();
  const Date limit = now - oldest;
  const auto stored = owner_.loadCursor();
  const std::optional<Date> previous = stored ? isoDate(*stored) : std::nullopt;
  const Date since = std::max(previous.value_or(limit), limit);
  inFlight_ = true;

  // The source may go while the poll runs; its result then finds nobody.
  environment_.worker->async([weak = weak_from_this(),
                              environment = environment_,
                              &queue = queue_,
                              since,
                              now,
                              stop = cancel_.get_token(),
                              catchUp = !caughtUp_,
                              previous,
                              generation = generation_] {
    queue.async(
        [weak, outcome = poll(environment, since, now, stop), catchUp, previous, generation] {
          if (const auto self = weak.lock())
            self->finish(outcome, catchUp, previous, generation);
        });
  });
}

GitHubPRSource::Outcome GitHubPRSource::poll(const Environment& environment,
                                             Date since,
                                             Date now,
                                             const std::stop_token& stop) {
  GitHubAuth& auth = *environment.auth;
  const auto credential = auth.credential(stop);
  // A token that GitHub has refused is not tried again until there is another one.
  if (!credential || credential->token == auth.invalidToken())
    return Skipped{};
  const std::string& token = credential->token;

  std::optional<std::string> login = credential->login;
  if (!login) {
    auto found = GitHubAPI::viewerLogin(token, *environment.transport, now, stop);
    if (const auto* error = std::get_if<GitHubError>(&found))
      return Failure{*error, token};
    login = std::get<std::string>(std::move(found));
    auth.remember(*login, token);
  }
  auto fetched = GitHubSearch::fetchAll(*login, since, token, *environment.transport, now, stop);
  if (const auto* error = std::get_if<GitHubError>(&fetched))
    return Failure{*error, token};
  return Success{std::get<std::vector<GitHubPR>>(std::move(fetched))};
}

void GitHubPRSource::finish(const Outcome& outcome,
                            bool catchUp,
                            std::optional<Date> previous,
                            int generation) {
  if (generation != generation_ || !running_)
    return;
  inFlight_ = false;
  Seconds delay = rhythm;
  if (const auto* success = std::get_if<Success>(&outcome))
    tellSuccess(*success, catchUp, previous);
  else if (const auto* failure = std::get_if<Failure>(&outcome))
    delay = delayAfter(*failure);
  lastDelay_ = delay;
  completedPolls_ += 1;
  // The owner may have stopped it from within what it was told.
  if (running_ && generation == generation_)
    schedule(delay);
}

void GitHubPRSource::tellSuccess(const Success& success,
                                 bool catchUp,
                                 std::optional<Date> previous) {
  caughtUp_ = true;
  backoff_.failures = 0;
  // A run begins from what GitHub says, even if the stored cursor is ahead of it, as it is when the
  // clock was set back.
  const auto cursor = GitHubSearch::nextCursor(success.prs, catchUp ? std::nullopt : previous);
  if (cursor)
    owner_.saveCursor(isoText(*cursor));
  owner_.deliver(success.prs, catchUp);
}

Seconds GitHubPRSource::delayAfter(const Failure& failure) {
  if (failure.error.kind == GitHubError::Kind::unauthorized)
    environment_.auth->markInvalid(failure.token);
  std::fprintf(
      stderr, "Tessivane: GitHub pull request poll failed (%s)\n", word(failure.error).c_str());
  return backoff_.next(failure.error);
}

}  // namespace tessivane
