#include "backend/BackendActivityCore.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

#include "backend/BackendTransaction.h"
#include "github/GitHubSettings.h"
#include "support/Paths.h"

namespace tessivane {

namespace {

using Pass = BackendGitScan::Pass;

constexpr Seconds pruneInterval{3600};
constexpr Seconds firstRetry{1};
constexpr Seconds longestRetry{60};
// Events that wait to be stored; past that the older ones are given up.
constexpr std::size_t maxRecorded = 10'000;

std::vector<std::string> signatureOf(const std::vector<AgentSession>& sessions) {
  std::vector<std::string> signature;
  signature.reserve(sessions.size());
  for (const AgentSession& session : sessions) {
    signature.push_back(fmt::format("{}|{}|{}|{}|{}",
                                    session.id(),
                                    session.transcriptPath.value_or(""),
                                    session.projectPath,
                                    session.cwd,
                                    label(session.status)));
  }
  return signature;
}

}  // namespace

BackendActivityCore::BackendActivityCore(BackendActivityConfig config,
                                         TaskQueue& queue,
                                         ProjectRootResolver& roots)
    : config_(std::move(config)),
      queue_(queue),
      roots_(roots),
      throttle_({.interval = config_.publishInterval}),
      repositories_(roots),
      transcripts_(repositories_, config_.backfill),
      gitHubIngest_(roots) {}

BackendActivityCore::~BackendActivityCore() = default;

void BackendActivityCore::start(BatchHandler onBatch) {
  if (onBatch_)
    return;
  onBatch_ = std::move(onBatch);
  begin();
}

void BackendActivityCore::stop() {
  --stops_;
  running_ = false;
  onBatch_ = nullptr;
  for (TaskHandle* handle : {&flush_, &retry_, &t3Timer_})
    handle->cancel();
  follower_.reset();
  if (const auto gitHub = std::exchange(gitHub_, nullptr))
    gitHub->stop();
  outbox_.clear();
  due_ = {};
  retryDelay_ = Seconds(0);
}

// Where the store cannot be opened the backend is off, and opening is tried again.
void BackendActivityCore::begin() {
  if (!openStore()) {
    retryLater();
    return;
  }
  running_ = true;
  const Date now = config_.clock();
  {
    const BackendTransaction transaction(*store_);
    store_->prune(now);
  }
  lastPrune_ = now;
  deliverHistory(now);
  makeFollower();
  makeGitHub();
  throttle_.lastPublish = now;
  isBackfilled_ = false;
  reconcile(Extent::everything);
  runPass();
  if (config_.defaults != nullptr)
    GitHubSettings::migrate(*config_.defaults);
  gitHub_->update();
}

// The feed is filled before anything is scanned; what cannot be read yet comes after the first pass
// that could be stored.
void BackendActivityCore::deliverHistory(Date now) {
  const auto failures = store_->db().failures();
  auto history = store_->history(now - BackendEventStore::window);
  historyIsWhole_ = store_->db().failures() == failures;
  if (history.events.empty() && history.edits.empty())
    return;
  config_.deliver([onBatch = onBatch_, history = std::move(history)] {
    onBatch(history.events, history.edits);
  });
}

void BackendActivityCore::makeFollower() {
  follower_ = std::make_shared<BackendFollower>(
      config_, queue_, [weak = weak_from_this()](const auto& changed, bool rescan) {
        if (const auto self = weak.lock())
          self->handle(changed, rescan);
      });
}

void BackendActivityCore::makeGitHub() {
  const auto loadCursor = [weak = weak_from_this()]() -> std::optional<std::string> {
    const auto self = weak.lock();
    return self && self->store_ ? BackendGitHubIngest::cursor(*self->store_) : std::nullopt;
  };
  const auto deliver = [weak = weak_from_this()](BackendPolled polled) {
    if (const auto self = weak.lock()) {
      self->due_.polled = std::move(polled);
      self->runPass();
    }
  };
  gitHub_ = std::make_shared<BackendGitHubPolls>(
      config_, queue_, BackendGitHubPolls::Owner{.loadCursor = loadCursor, .deliver = deliver});
}

void BackendActivityCore::updateGitHub() {
  if (gitHub_)
    gitHub_->update();
}

// Sees to it that the store is the file at its path. One that cannot be used any more is given up
// for the one that is there or is made then; whatever files, sessions and GitHub tell is found anew
// for it.
bool BackendActivityCore::openStore() {
  if (store_ != nullptr) {
    if (store_->isUsable())
      return true;
    giveUpStore();
  }
  store_ = BackendEventStore::open(config_.dbPath);
  if (store_ == nullptr)
    return false;
  gitScan_.emplace(*store_, roots_, config_.clock, config_.backfill);
  if (config_.t3DBPath && !config_.t3DBPath->empty()) {
    t3Scan_.emplace(roots_,
                    BackendT3Scan::Options{.path = *config_.t3DBPath,
                                           .interval = config_.t3Interval,
                                           .backfill = config_.backfill});
  }
  starts_ = {};
  subagents_.reset();
  if (running_)
    addAllDue();
  return true;
}

void BackendActivityCore::giveUpStore() {
  // What a poll brings that was begun from the cursor in the lost file is not all.
  due_.polled.reset();
  if (gitHub_)
    gitHub_->restart();
  const bool isDamaged = store_->db().isInPlace() && store_->db().isDamaged();
  gitScan_.reset();
  t3Scan_.reset();
  store_.reset();
  if (isDamaged && BackendDatabase::setAside(config_.dbPath))
    config_.report("What was stored of past events is damaged. It is kept as " + config_.dbPath +
                   ".damaged, and a new record has begun.");
}

void BackendActivityCore::sessionsDidRefresh(const Sessions& sessions, const Events& transitions) {
  const Date now = config_.clock();
  keep(transitions);
  keep(starts_.events(sessions, now));
  if (!subagents_)
    subagents_.emplace();
  keep(subagents_->events(sessions, now));
  sessionsByID_.clear();
  sessions_.list = sessions;
  for (const AgentSession& session : sessions_.list)
    sessionsByID_[session.id()] = &session;
  std::erase_if(sessions_.branches,
                [this](const auto& entry) { return !sessionsByID_.contains(entry.first); });
  hasSessions_ = true;
  if (!running_)
    return;
  reconcile(Extent::changes);
  runPass();
}

void BackendActivityCore::record(const Events& events) {
  keep(events);
  runPass();
}

void BackendActivityCore::keep(const Events& events) {
  recorded_.insert(recorded_.end(), events.begin(), events.end());
  if (recorded_.size() > maxRecorded) {
    recorded_.erase(recorded_.begin(), recorded_.end() - static_cast<std::ptrdiff_t>(maxRecorded));
  }
}

// Brings what is followed in line with the sessions. Watching and polling begin before the scan, so
// that nothing is written between the two unseen.
void BackendActivityCore::reconcile(Extent extent) {
  auto changed = transcripts_.update(sessions_.list);
  // Where a repository's file system sends no events, those who work in it are what tells; and one
  // may have been made since they began.
  std::set<std::string> gitDirs;
  for (const AgentSession& session : sessions_.list) {
    if (session.transcriptPath && changed.contains(*session.transcriptPath))
      gitDirs.merge(repositories_.dirsOf({workingDirectory(session)}));
  }
  auto signature = signatureOf(sessions_.list);
  if (signature != sessionSignature_ || extent == Extent::everything ||
      !std::ranges::includes(repositories_.dirs(), gitDirs)) {
    sessionSignature_ = std::move(signature);
    // Perhaps it is known now where they belong.
    due_.t3 = due_.t3 || (t3Scan_ && t3Scan_->hasWaiting());
    if (repositories_.update(sessions_.list))
      gitDirs.insert(repositories_.dirs().begin(), repositories_.dirs().end());
  }
  due_.gitDirs.merge(gitDirs);
  due_.transcripts.merge(std::move(changed));
  follower_->follow(transcripts_.paths(), repositories_.dirs());
  if (extent == Extent::everything)
    addAllDue();
}

void BackendActivityCore::addAllDue() {
  due_.transcripts.merge(transcripts_.paths());
  due_.gitDirs.insert(repositories_.dirs().begin(), repositories_.dirs().end());
  due_.gitDirs.merge(knownGitDirs());
  due_.t3 = true;
}

std::set<std::string> BackendActivityCore::knownGitDirs() {
  auto dirs = repositories_.dirsOf(store_ ? store_->localRoots() : std::vector<std::string>());
  dirs.merge(repositories_.dirsOf(config_.savedProjects()));
  return dirs;
}

void BackendActivityCore::handle(const std::vector<std::string>& changed, bool rescan) {
  if (!running_)
    return;
  if (rescan)
    addAllDue();
  bool sourcesChanged = rescan;
  for (const std::string& path : changed) {
    if (transcripts_.contains(path))
      due_.transcripts.insert(path);
    else if (auto dir = repositories_.dirOfLog(path))
      due_.gitDirs.insert(std::move(*dir));
    due_.t3 = due_.t3 || isT3(path);
    sourcesChanged = sourcesChanged || isSource(path);
  }
  if (sourcesChanged)
    config_.onSourcesChanged();
  runPass();
}

// The database and its companions.
bool BackendActivityCore::isT3(const std::string& path) const {
  return config_.t3DBPath && path.starts_with(*config_.t3DBPath);
}

// What sessions are made from. A T3 database of the older schema is called "state.sqlite".
bool BackendActivityCore::isSource(const std::string& path) const {
  const bool isDatabase = lastPathComponent(path).find(".sqlite") != std::string_view::npos;
  return isDatabase || path.starts_with(config_.claudeDir) || path.starts_with(config_.codexDir);
}

// Nothing is scanned before it is known which sessions there are, as what happened belongs to them.
void BackendActivityCore::runPass() {
  if (!running_ || retry_ || !hasSessions_)
    return;
  if (!openStore()) {
    retryLater();
    return;
  }
  if (due_.isEmpty() && recorded_.empty())
    return;
  Due due = std::exchange(due_, {});
  const std::size_t recorded = recorded_.size();
  BackendTransaction transaction(*store_);
  const BackendPass pass{.store = *store_,
                         .outbox = outbox_,
                         .stops = stops_,
                         .home = config_.home,
                         .kind = isBackfilled_ ? Pass::live : Pass::startUp,
                         .now = config_.clock()};
  storeRecorded(pass);
  scanDue(due, pass);
  passEnded(std::move(due), recorded, transaction.commit());
  scheduleFlush();
}

void BackendActivityCore::storeRecorded(const BackendPass& pass) {
  for (const ActivityEvent& event : recorded_) {
    if (event.date >= pass.now - BackendEventStore::window)
      pass.insert(event);
  }
}

void BackendActivityCore::scanDue(const Due& due, const BackendPass& pass) {
  for (const std::string& path : due.transcripts) {
    if (pass.isStopped())
      return;
    follower_->note(path);
    transcripts_.scan(path, pass, sessions_.branches);
  }
  for (const std::string& dir : due.gitDirs) {
    if (pass.isStopped())
      return;
    gitScan_->scan(
        dir, pass.kind, sessions_, [this](const ActivityEvent& event) { outbox_.add(event); });
  }
  if (due.t3 && t3Scan_ && !pass.isStopped())
    scanT3(pass);
  if (due.polled && !pass.isStopped()) {
    auto dirs = repositories_.dirs();
    dirs.merge(knownGitDirs());
    gitHubIngest_.store(*due.polled, sessions_, dirs, pass);
  }
}

// However often T3's database changes, it is read once in its interval.
void BackendActivityCore::scanT3(const BackendPass& pass) {
  const Seconds wait = t3Scan_->wait(pass.now);
  if (wait <= Seconds(0)) {
    t3Scan_->scan(pass, sessionsByID_);
  } else if (!t3Timer_) {
    t3Timer_ = queue_.after(wait, ifAlive([](BackendActivityCore& core) {
                              core.t3Timer_.cancel();
                              core.due_.t3 = true;
                              core.runPass();
                            }));
  }
}

void BackendActivityCore::passEnded(Due due, std::size_t recorded, bool stored) {
  transcripts_.settle(*store_, stored);
  if (t3Scan_ && due.t3)
    t3Scan_->settle(stored);
  if (stored) {
    isBackfilled_ = true;
    recorded_.erase(recorded_.begin(), recorded_.begin() + static_cast<std::ptrdiff_t>(recorded));
    retryDelay_ = Seconds(0);
    if (!historyIsWhole_)
      deliverHistory(config_.clock());
    return;
  }
  due_.transcripts.merge(due.transcripts);
  due_.gitDirs.merge(due.gitDirs);
  due_.t3 = due_.t3 || due.t3;
  due_.polled = std::move(due.polled);
  retryLater();
}

void BackendActivityCore::retryLater() {
  retryDelay_ = std::clamp(retryDelay_ * 2, firstRetry, longestRetry);
  retry_ = queue_.after(retryDelay_, ifAlive([](BackendActivityCore& core) {
                          core.retry_.cancel();
                          if (core.running_)
                            core.runPass();
                          else
                            core.begin();
                        }));
}

void BackendActivityCore::scheduleFlush() {
  if (!running_ || flush_ || outbox_.isEmpty())
    return;
  flush_ = queue_.after(throttle_.wait(config_.clock()), ifAlive([](BackendActivityCore& core) {
                          core.flush_.cancel();
                          core.flush();
                        }));
}

void BackendActivityCore::flush() {
  const Date now = config_.clock();
  lastPrune_ = std::min(lastPrune_, now);
  if (store_ && now - lastPrune_ > pruneInterval) {
    const BackendTransaction transaction(*store_);
    store_->prune(now);
    lastPrune_ = now;
  }
  if (outbox_.isEmpty())
    return;
  throttle_.lastPublish = now;
  config_.deliver(
      [onBatch = onBatch_, batch = outbox_.take()] { onBatch(batch.events, batch.edits); });
}

}  // namespace tessivane
