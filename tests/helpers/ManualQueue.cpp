#include "helpers/ManualQueue.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace tessivane {

namespace {

constexpr std::size_t endless = 100'000;

std::chrono::microseconds rounded(Seconds seconds) {
  return std::chrono::round<std::chrono::microseconds>(seconds);
}

}  // namespace

struct ManualQueue::Scheduled {
  Instant due{0};
  Instant interval{0};
  Seconds tolerance{0};
  Task task;
};

ManualQueue::ManualQueue(ManualClock& clock)
    : clock_(clock), timers_(std::make_shared<std::list<std::shared_ptr<Scheduled>>>()) {}

ManualQueue::~ManualQueue() = default;

void ManualQueue::async(Task task) {
  pending_.push_back(std::move(task));
}

TaskHandle ManualQueue::after(Seconds delay, Task task) {
  return schedule(std::max(rounded(delay), Instant{0}), Instant{0}, Seconds{0}, std::move(task));
}

TaskHandle ManualQueue::every(Seconds interval, Seconds tolerance, Task task) {
  const Instant period = std::max<Instant>(rounded(interval), std::chrono::milliseconds{1});
  return schedule(period, period, tolerance, std::move(task));
}

TaskHandle ManualQueue::schedule(Instant delay, Instant interval, Seconds tolerance, Task task) {
  auto timer = std::make_shared<Scheduled>();
  timer->due = clock_.uptime() + delay;
  timer->interval = interval;
  timer->tolerance = tolerance;
  timer->task = std::move(task);
  timers_->push_back(timer);
  return TaskHandle([weakTimers = std::weak_ptr(timers_), weakTimer = std::weak_ptr(timer)] {
    const auto timers = weakTimers.lock();
    const auto cancelled = weakTimer.lock();
    if (timers != nullptr && cancelled != nullptr)
      timers->remove(cancelled);
  });
}

std::shared_ptr<ManualQueue::Scheduled> ManualQueue::earliest() const {
  const auto found = std::min_element(timers_->begin(),
                                      timers_->end(),
                                      [](const auto& a, const auto& b) { return a->due < b->due; });
  return found == timers_->end() ? nullptr : *found;
}

void ManualQueue::runTimer(const std::shared_ptr<Scheduled>& timer) {
  if (timer->interval == Instant{0}) {
    timers_->remove(timer);
  } else {
    const Instant late = clock_.uptime() - timer->due;
    timer->due += timer->interval * (1 + late / timer->interval);
  }
  // The task may cancel its own timer.
  const Task task = timer->task;
  task();
}

std::size_t ManualQueue::runPending() {
  for (std::size_t count = 0; count < endless; ++count) {
    if (!pending_.empty()) {
      const Task task = std::move(pending_.front());
      pending_.pop_front();
      task();
      continue;
    }
    const auto timer = earliest();
    if (timer == nullptr || timer->due > clock_.uptime())
      return count;
    runTimer(timer);
  }
  throw std::runtime_error("ManualQueue: the tasks go on posting tasks");
}

std::size_t ManualQueue::advance(Seconds duration) {
  const Instant end = clock_.uptime() + rounded(duration);
  std::size_t count = runPending();
  for (auto timer = earliest(); timer != nullptr && timer->due <= end; timer = earliest()) {
    clock_.advance(timer->due - clock_.uptime());
    count += runPending();
  }
  clock_.advance(end - clock_.uptime());
  return count;
}

std::vector<ManualQueue::Timer> ManualQueue::timers() const {
  std::vector<Timer> result;
  for (const auto& timer : *timers_) {
    result.push_back(Timer{.remaining = std::max(timer->due - clock_.uptime(), Instant{0}),
                           .interval = timer->interval,
                           .tolerance = timer->tolerance});
  }
  std::stable_sort(result.begin(), result.end(), [](const Timer& a, const Timer& b) {
    return a.remaining < b.remaining;
  });
  return result;
}

}  // namespace tessivane
