#include "surfaces/QtMainQueue.h"

#include <QCoreApplication>
#include <QEvent>
#include <QObject>
#include <QTimer>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <utility>

#include "platform/TimerSchedule.h"

namespace tessivane {

namespace {

// Qt keeps intervals as an int of milliseconds. A longer wait is made of several.
constexpr std::chrono::milliseconds longestWait = std::chrono::hours{24};

// Brings a task to the main thread. Events come in the order in which they were posted.
class TaskEvent final : public QEvent {
 public:
  explicit TaskEvent(TaskQueue::Task task) : QEvent(kind()), task_(std::move(task)) {}

  void run() const { task_(); }

  static Type kind() {
    static const auto registered = static_cast<Type>(registerEventType());
    return registered;
  }

 private:
  TaskQueue::Task task_;
};

class TaskReceiver final : public QObject {
 public:
  bool event(QEvent* event) override {
    if (event->type() != TaskEvent::kind())
      return QObject::event(event);
    static_cast<const TaskEvent*>(event)->run();
    return true;
  }
};

}  // namespace

struct QtMainQueue::Timer {
  Task task;
  MonotonicTime due = {};
  MonotonicDuration interval = MonotonicDuration::zero();  // zero: runs once
  MonotonicDuration tolerance = MonotonicDuration::zero();
  // Belongs to the main thread, and there to the loop's receiver. Empty before and after its time.
  QTimer* clock = nullptr;
  std::atomic<bool> cancelled = false;
};

class QtMainQueue::Loop final : public std::enable_shared_from_this<Loop> {
 public:
  void async(Task task) {
    // The event queue owns what is posted.
    QCoreApplication::postEvent(&receiver_, new TaskEvent(std::move(task)));
  }

  TaskHandle start(const std::shared_ptr<Timer>& timer) {
    async([this, timer] { begin(timer); });
    return TaskHandle([weakTimer = std::weak_ptr<Timer>(timer), weakLoop = weak_from_this()] {
      const auto waiting = weakTimer.lock();
      if (waiting == nullptr)
        return;
      waiting->cancelled = true;
      // What the task captured is let go of soon, not when it would have been due.
      if (const auto loop = weakLoop.lock())
        loop->async([weakTimer] {
          if (const auto cancelled = weakTimer.lock())
            end(*cancelled);
        });
    });
  }

 private:
  void begin(const std::shared_ptr<Timer>& timer) {
    if (timer->cancelled)
      return;
    timer->clock = new QTimer(&receiver_);  // NOLINT(cppcoreguidelines-owning-memory): the parent
    timer->clock->setSingleShot(true);
    timer->clock->setTimerType(Qt::PreciseTimer);
    QObject::connect(timer->clock, &QTimer::timeout, &receiver_, [this, timer] { fire(timer); });
    arm(*timer);
  }

  static void end(Timer& timer) {
    if (QTimer* clock = std::exchange(timer.clock, nullptr))
      clock->deleteLater();
  }

  static void arm(const Timer& timer) {
    const auto wait = coalescedWake(timer.due, timer.tolerance) - std::chrono::steady_clock::now();
    timer.clock->start(std::clamp(std::chrono::ceil<std::chrono::milliseconds>(wait),
                                  std::chrono::milliseconds::zero(),
                                  longestWait));
  }

  static void fire(const std::shared_ptr<Timer>& timer) {
    if (timer->cancelled || timer->clock == nullptr)
      return;
    if (std::chrono::steady_clock::now() < timer->due) {
      arm(*timer);
      return;
    }
    timer->task();
    // The task may have let its own handle go.
    if (timer->cancelled || timer->interval == MonotonicDuration::zero()) {
      end(*timer);
      return;
    }
    timer->due = nextDue(timer->due, timer->interval, std::chrono::steady_clock::now());
    arm(*timer);
  }

  TaskReceiver receiver_;
};

QtMainQueue::QtMainQueue() : loop_(std::make_shared<Loop>()) {}
QtMainQueue::~QtMainQueue() = default;

void QtMainQueue::async(Task task) {
  loop_->async(std::move(task));
}

TaskHandle QtMainQueue::after(Seconds delay, Task task) {
  auto timer = std::make_shared<Timer>();
  timer->task = std::move(task);
  timer->due = std::chrono::steady_clock::now() + timerDuration(delay, MonotonicDuration::zero());
  return loop_->start(timer);
}

TaskHandle QtMainQueue::every(Seconds interval, Seconds tolerance, Task task) {
  auto timer = std::make_shared<Timer>();
  timer->task = std::move(task);
  timer->interval = timerDuration(interval, std::chrono::milliseconds{1});
  timer->tolerance = std::min(timerDuration(tolerance, MonotonicDuration::zero()), timer->interval);
  timer->due = std::chrono::steady_clock::now() + timer->interval;
  return loop_->start(timer);
}

}  // namespace tessivane
