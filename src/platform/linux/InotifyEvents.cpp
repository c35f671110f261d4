#include "platform/linux/InotifyEvents.h"

#include <cerrno>
#include <cstring>
#include <set>
#include <utility>

#include "platform/linux/AsioLoop.h"
#include "platform/linux/InotifyTree.h"
#include "support/Mutex.h"

namespace tessivane {

namespace {

// Says each sentence once, on any thread.
class Problems final {
 public:
  explicit Problems(std::function<void(const std::string&)> say) : say_(std::move(say)) {}

  void refusedWatch(int error) {
    if (error == ENOSPC)
      tell(
          "Not all directories can be watched: the system's limit for this user "
          "(fs.inotify.max_user_watches) is reached. What changes in the others is noticed late.");
    else
      tell("Not all directories can be watched: " + reason(error) +
           ". What changes in the others is noticed late.");
  }

  void refusedInstance(int error) {
    if (error == EMFILE)
      tell(
          "Directories cannot be watched: too many programs of this user do "
          "(fs.inotify.max_user_instances), or this one has too many files open. Changes are "
          "noticed late.");
    else
      tell("Directories cannot be watched: " + reason(error) + ". Changes are noticed late.");
  }

 private:
  static std::string reason(int error) { return std::generic_category().message(error); }

  void tell(const std::string& sentence) {
    {
      const MutexLock lock(mutex_);
      if (!said_.insert(sentence).second)
        return;
    }
    if (say_)
      say_(sentence);
  }

  const std::function<void(const std::string&)> say_;
  Mutex mutex_;
  std::set<std::string> said_ GUARDED_BY(mutex_);
};

// Carries changes over to the queue. Where that is slow they gather into one call, so that never
// more than one waits.
class Delivery final : public std::enable_shared_from_this<Delivery> {
 public:
  Delivery(TaskQueue& queue, FileEvents::Handler handler)
      : queue_(queue), handler_(std::move(handler)) {}

  // The watch's thread.
  void send(FileChanges&& changes) {
    if (changes.isEmpty())
      return;
    const MutexLock lock(mutex_);
    const bool isOnItsWay = !waiting_.isEmpty();
    waiting_.add(std::move(changes));
    if (!isOnItsWay)
      queue_.async([self = shared_from_this()] { self->arrive(); });
  }

  // Any thread.
  void end() {
    const MutexLock lock(mutex_);
    hasEnded_ = true;
  }

 private:
  void arrive() {
    FileChanges changes;
    {
      const MutexLock lock(mutex_);
      if (hasEnded_)
        return;
      changes = std::exchange(waiting_, {});
    }
    handler_({changes.paths.begin(), changes.paths.end()}, changes.rescan);
  }

  TaskQueue& queue_;
  const FileEvents::Handler handler_;
  Mutex mutex_;
  FileChanges waiting_ GUARDED_BY(mutex_);
  bool hasEnded_ GUARDED_BY(mutex_) = false;
};

class Watcher final {
 public:
  Watcher(const std::vector<std::string>& paths,
          Seconds latency,
          std::shared_ptr<Delivery> delivery,
          std::shared_ptr<Problems> problems)
      : latency_(latency),
        delivery_(std::move(delivery)),
        problems_(std::move(problems)),
        tree_(thread_.loop().context(), paths, [this](int error) {
          problems_->refusedWatch(error);
        }) {}
  Watcher(const Watcher&) = delete;
  Watcher& operator=(const Watcher&) = delete;
  ~Watcher() {
    delivery_->end();
    thread_.stop();
  }

  // False when nothing can be watched at all.
  bool start() {
    if (const int error = tree_.inotify().error(); error != 0) {
      problems_->refusedInstance(error);
      return false;
    }
    wait();
    return true;
  }

 private:
  void wait() {
    tree_.inotify().wait([this] {
      take();
      if (changes_.isEmpty())
        wait();
      else
        // What comes meanwhile stays with the kernel, so that a busy writer wakes this thread
        // twice per latency and not for each line.
        timer_ = thread_.loop().after(latency_, [this] { finish(); });
    });
  }

  void finish() {
    take();
    delivery_->send(std::exchange(changes_, {}));
    // After an overflow the kernel may have refused a new beginning.
    start();
  }

  void take() { changes_.add(tree_.take()); }

  const Seconds latency_;
  const std::shared_ptr<Delivery> delivery_;
  const std::shared_ptr<Problems> problems_;
  AsioThread thread_{"tessivane.files"};
  InotifyTree tree_;
  FileChanges changes_;
  TaskHandle timer_;
};

}  // namespace

FileEvents inotifyEvents(std::function<void(const std::string& sentence)> problem) {
  FileEvents events;
  events.watch = [problems = std::make_shared<Problems>(std::move(problem))](
                     const std::vector<std::string>& paths,
                     Seconds latency,
                     TaskQueue& queue,
                     FileEvents::Handler handler) -> std::shared_ptr<void> {
    auto watcher = std::make_shared<Watcher>(
        paths, latency, std::make_shared<Delivery>(queue, std::move(handler)), problems);
    if (!watcher->start())
      return nullptr;
    return watcher;
  };
  return events;
}

}  // namespace tessivane
