#include "soak/Soak.h"

#include <sys/wait.h>

#include <algorithm>
#include <csignal>
#include <iterator>
#include <thread>
#include <utility>

#include <fmt/format.h>
#include <sqlite3.h>

namespace tessivane {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr std::size_t repositoryCount = 4;
constexpr std::size_t claudeCount = 6;
constexpr std::size_t codexCount = 3;
// With more of them the home would grow beyond what one person has.
constexpr std::size_t mostSessions = 40;

// When asked to end, the program has half a second for it.
constexpr seconds endLimit{2};
constexpr seconds settlingLimit{100};

// Rough and calm times take turns: some faults show only when no start repairs them. In calm times
// the database alone is held now and then, and for so long that the program gives up waiting.
constexpr seconds phase{30};
constexpr seconds longHold{5};

}  // namespace

Soak::Soak(std::string program, const std::string& directory, std::uint64_t seed)
    : program_(std::move(program)),
      workshop_(ProgramHome(directory), seed),
      codexDatabase_(workshop_.path(".codex/state_5.sqlite")) {
  std::vector<std::string> roots;
  for (std::size_t index = 0; index < repositoryCount; ++index) {
    repositories_.push_back(std::make_unique<Repository>(workshop_, "r" + std::to_string(index)));
    roots.push_back(repositories_.back()->root());
  }
  for (std::size_t index = 0; index < claudeCount; ++index)
    addClaude();
  for (std::size_t index = 0; index < codexCount; ++index)
    addCodex();
  t3_ = std::make_unique<T3Agent>(workshop_, roots);
  stamps_.adopt(workshop_.home.home());
}

Soak::~Soak() {
  release();
}

void Soak::addClaude() {
  // One at least in each repository.
  const auto& repository = *repositories_[claudes_.size() % repositories_.size()];
  claudes_.push_back(
      std::make_unique<ClaudeAgent>(workshop_, repository.root(), repository.slug()));
}

void Soak::addCodex() {
  const auto& repository = *workshop_.pick(repositories_);
  codexes_.push_back(std::make_unique<CodexAgent>(
      workshop_, codexDatabase_, repository.root(), repository.slug()));
}

// Does something to files that nobody else may have touched since the last time.
void Soak::within(const std::string& directory, const std::function<void()>& task) {
  const std::string path = workshop_.path(directory);
  std::ranges::copy(stamps_.differences(path), std::back_inserter(complaints_));
  task();
  stamps_.adopt(path);
}

void Soak::work() {
  const std::size_t choice = workshop_.random.below(100);
  if (choice < 50)
    within(".claude", [this] { workshop_.pick(claudes_)->step(claudes_); });
  else if (choice < 70)
    within(".codex", [this] { workshop_.pick(codexes_)->step(); });
  else if (choice < 80)
    within(".t3", [this] { within(".claude", [this] { t3_->step(claudes_); }); });
  else if (choice < 98)
    within("src", [this] { workshop_.pick(repositories_)->step(); });
  else if (addsSessions_ && choice == 98 && claudes_.size() < mostSessions)
    within(".claude", [this] { addClaude(); });
  else if (addsSessions_ && codexes_.size() < mostSessions)
    within(".codex", [this] { addCodex(); });
}

void Soak::start() {
  run_ = std::make_unique<ProgramRun>(workshop_.home.headless(program_));
  ++workshop_.generation;
  workshop_.calmSince = Clock::now();
  startAgain_.reset();
}

void Soak::end(int signal) {
  const auto begin = Clock::now();
  // One that has just been started does not handle signals yet and is killed by any.
  const bool handles = signal != SIGKILL && run_->catches(signal);
  run_->signal(signal);
  const auto status = run_->wait(endLimit);
  const bool isGood = status && (*status == 0 || (!handles && WTERMSIG(*status) == signal));
  if (signal != SIGKILL)
    longestEnd_ = std::max(longestEnd_, Clock::now() - begin);
  if (!isGood)
    complaints_.push_back(status ? fmt::format("the program ended with status {:#x}", *status)
                                 : "the program does not end when asked");
  run_.reset();
}

// What the program meets on a bad day. One trouble at a time, but for the database that somebody
// holds.
void Soak::makeTrouble() {
  const auto moment = milliseconds(workshop_.random.below(1'500));
  const std::size_t choice = workshop_.random.below(5);
  if (choice > 2) {
    // Now and then for longer than the program waits.
    if (lock_ == nullptr)
      hold(workshop_.random.chance(30) ? moment * 4 : moment);
  } else if (run_ == nullptr || goOn_) {
    return;
  } else if (choice == 2) {
    ++workshop_.counts["stops"];
    run_->signal(SIGSTOP);
    goOn_ = Clock::now() + moment;
  } else {
    ++workshop_.counts[choice == 0 ? "kills" : "ends"];
    end(choice == 0 ? SIGKILL : SIGTERM);
    startAgain_ = Clock::now() + moment;
  }
}

void Soak::hold(Clock::duration duration) {
  if (sqlite3_open_v2(workshop_.home.database().c_str(), &lock_, SQLITE_OPEN_READWRITE, nullptr) !=
          SQLITE_OK ||
      sqlite3_exec(lock_, "begin immediate", nullptr, nullptr, nullptr) != SQLITE_OK) {
    release();
    return;
  }
  ++workshop_.counts["locked databases"];
  release_ = Clock::now() + duration;
}

void Soak::release() {
  sqlite3_close(std::exchange(lock_, nullptr));
  if (std::exchange(release_, std::nullopt))
    workshop_.calmSince = Clock::now();
}

void Soak::goOn() {
  if (run_ != nullptr && std::exchange(goOn_, std::nullopt)) {
    run_->signal(SIGCONT);
    workshop_.calmSince = Clock::now();
  }
}

// Ends the troubles whose time is over, and sees what came through them.
void Soak::watchOver() {
  const auto now = Clock::now();
  if (run_ != nullptr && !run_->isRunning()) {
    complaints_.push_back(fmt::format("the program ended by itself with status {:#x}",
                                      run_->wait(seconds(0)).value_or(0)));
    run_.reset();
    startAgain_ = now;
  }
  if (goOn_ && now >= *goOn_)
    goOn();
  if (release_ && now >= *release_)
    release();
  if (startAgain_ && now >= *startAgain_)
    start();
  for (const auto& claude : claudes_)
    claude->review();
}

void Soak::run(seconds duration) {
  addsSessions_ = duration >= std::chrono::minutes(1);
  start();
  const auto begin = Clock::now();
  for (auto now = begin; now < begin + duration && complaints_.empty(); now = Clock::now()) {
    watchOver();
    const bool isRough = (now - begin) / phase % 2 == 0;
    if (isRough && workshop_.random.chance(4))
      makeTrouble();
    else if (!isRough && lock_ == nullptr && workshop_.random.below(300) == 0)
      hold(longHold);
    work();
    std::this_thread::sleep_for(milliseconds(workshop_.random.below(60)));
  }
}

// True when everything was stored while the program ran undisturbed.
bool Soak::settles(seconds limit) {
  const auto end = Clock::now() + limit;
  while (Clock::now() < end) {
    watchOver();
    const auto stored = StoredActivity::read(workshop_.home.database());
    if (stored && workshop_.ledger.differences(*stored).empty())
      return true;
    std::this_thread::sleep_for(milliseconds(100));
  }
  return false;
}

// The last works of everybody, so that it is seen that all was read up to there.
void Soak::finishWork() {
  within(".claude", [this] { std::ranges::for_each(claudes_, [](auto& one) { one->finish(); }); });
  within(".codex", [this] { std::ranges::for_each(codexes_, [](auto& one) { one->finish(); }); });
  within("src", [this] { std::ranges::for_each(repositories_, [](auto& one) { one->finish(); }); });
}

std::vector<std::string> Soak::conclude() {
  goOn();
  release();
  if (run_ == nullptr)
    start();
  finishWork();
  // Started once more it may neither find anything twice nor miss what comes then.
  if (settles(settlingLimit) && run_ != nullptr) {
    end(SIGTERM);
    start();
    finishWork();
    settles(settlingLimit);
  }
  if (run_ != nullptr)
    end(SIGTERM);
  std::ranges::copy(stamps_.differences(workshop_.home.home()), std::back_inserter(complaints_));
  const auto stored = StoredActivity::read(workshop_.home.database());
  if (!stored) {
    complaints_.emplace_back("the database cannot be read");
    return complaints_;
  }
  std::ranges::copy(workshop_.ledger.differences(*stored), std::back_inserter(complaints_));
  if (const std::string found = StoredActivity::integrity(workshop_.home.database()); found != "ok")
    complaints_.push_back("the database is damaged: " + found);
  workshop_.ledger.count(*stored, workshop_.counts);
  return complaints_;
}

std::vector<std::string> Soak::summary() const {
  std::vector<std::string> lines;
  lines.push_back(fmt::format("{} events and {} edits must be stored",
                              workshop_.ledger.events(),
                              workshop_.ledger.edits()));
  for (const auto& [what, count] : workshop_.counts)
    lines.push_back(fmt::format("{:6} {}", count, what));
  lines.push_back(fmt::format("{:6} ms is the longest time in which the program ended",
                              std::chrono::duration_cast<milliseconds>(longestEnd_).count()));
  return lines;
}

}  // namespace tessivane
