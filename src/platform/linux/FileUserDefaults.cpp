#include "platform/linux/FileUserDefaults.h"

#include <map>
#include <set>
#include <utility>

#include "platform/DefaultsNotifier.h"
#include "platform/linux/DefaultsFile.h"
#include "platform/linux/FileWatch.h"
#include "support/Mutex.h"
#include "support/Paths.h"

namespace tessivane {

class FileUserDefaults::Store final {
 public:
  Store(std::string path, TaskQueue& queue, Report report)
      : file_(std::move(path)),
        report_(std::move(report)),
        notifier_(std::make_shared<DefaultsNotifier>(queue)) {
    const MutexLock lock(mutex_);
    file_.makeDirectory();
    // Before the first reading, so that no change is missed. It waits for the mutex.
    watch_ = std::make_unique<FileWatch>(file_.path(), [this] { reread(); });
    if (refresh() == DefaultsFile::State::broken)
      setAsideAtStart();
  }

  std::optional<DefaultsValue> value(std::string_view key) const {
    const MutexLock lock(mutex_);
    return current(key);
  }

  void change(std::string_view key, std::optional<DefaultsValue> value) {
    bool changed = false;
    {
      const MutexLock lock(mutex_);
      const bool differed = current(key) != value;
      const DefaultsDictionary before = saved_;
      // Another process may have given this key another value just now.
      refresh();
      if (!unsaved_.empty() || current(key) != value) {
        unsaved_.insert_or_assign(std::string(key), std::move(value));
        if (const DefaultsFile::Failure failure = save())
          say("The settings could not be saved in " + file_.path() + ": " + *failure +
              ". Changes last for this run only.");
      }
      // What was found in the file is told here: the watch will find nothing new.
      changed = differed || before != saved_;
    }
    if (changed)
      notifier_->valuesChanged();
  }

  Subscription subscribe(std::function<void()> changed) {
    return notifier_->subscribe(std::move(changed));
  }

 private:
  std::optional<DefaultsValue> current(std::string_view key) const REQUIRES_LOCK(mutex_) {
    const auto unsaved = unsaved_.find(key);
    if (unsaved != unsaved_.end())
      return unsaved->second;
    const auto saved = saved_.find(key);
    if (saved == saved_.end())
      return std::nullopt;
    return saved->second;
  }

  // The watch's thread.
  void reread() {
    bool changed = false;
    {
      const MutexLock lock(mutex_);
      const DefaultsDictionary before = saved_;
      if (refresh() == DefaultsFile::State::broken)
        say("The settings file " + file_.path() +
            " cannot be understood any more. What was read before stays in force.");
      changed = before != saved_;
    }
    if (changed)
      notifier_->valuesChanged();
  }

  DefaultsFile::State refresh() REQUIRES_LOCK(mutex_) {
    DefaultsFile::Reading reading = file_.read();
    if (reading.state == DefaultsFile::State::read || reading.state == DefaultsFile::State::absent)
      saved_ = std::move(reading.values);
    if (reading.state == DefaultsFile::State::unavailable)
      say("The settings file " + file_.path() + " could not be read.");
    return reading.state;
  }

  void setAsideAtStart() REQUIRES_LOCK(mutex_) {
    DefaultsFile::Failure reason;
    const auto fileLock = file_.lock(reason);
    // Another process may have been faster.
    if (fileLock && refresh() != DefaultsFile::State::broken)
      return;
    if (!fileLock || !setAside(reason))
      say("The settings file " + file_.path() + " cannot be understood, nor renamed: " + *reason +
          ". Nothing is taken from it.");
  }

  bool setAside(DefaultsFile::Failure& reason) REQUIRES_LOCK(mutex_) {
    const std::optional<std::string> aside = file_.setAside(reason);
    if (!aside)
      return false;
    say("The settings file " + file_.path() + " cannot be understood. It was kept as " + *aside +
        ".");
    // What was read while it was whole is in no file now.
    for (const auto& [key, value] : saved_)
      unsaved_.try_emplace(key, value);
    saved_.clear();
    return true;
  }

  // Saves what is unsaved upon what is in the file by now.
  DefaultsFile::Failure save() REQUIRES_LOCK(mutex_) {
    file_.makeDirectory();
    DefaultsFile::Failure reason;
    const auto fileLock = file_.lock(reason);
    if (!fileLock)
      return reason;
    const DefaultsFile::State state = refresh();
    if (state == DefaultsFile::State::unavailable)
      return "what is there could not be read";
    if (state == DefaultsFile::State::broken && !setAside(reason))
      return "what is there cannot be understood, nor renamed: " + *reason;

    DefaultsDictionary merged = saved_;
    for (const auto& [key, value] : unsaved_) {
      if (value)
        merged.insert_or_assign(key, *value);
      else
        merged.erase(key);
    }
    if (merged != saved_) {
      reason = file_.write(merged);
      if (reason)
        return reason;
      saved_ = std::move(merged);
      // The directory may be a new one.
      watch_->renew();
    }
    unsaved_.clear();
    return std::nullopt;
  }

  // A sentence that was said is not repeated.
  void say(const std::string& sentence) REQUIRES_LOCK(mutex_) {
    if (said_.insert(sentence).second && report_)
      report_(sentence);
  }

  mutable Mutex mutex_;
  // What the file holds, as far as known.
  DefaultsDictionary saved_ GUARDED_BY(mutex_);
  // Changes on their way there, or that could not be saved; nothing for a removed key.
  std::map<std::string, std::optional<DefaultsValue>, std::less<>> unsaved_ GUARDED_BY(mutex_);
  std::set<std::string> said_ GUARDED_BY(mutex_);
  const DefaultsFile file_;
  const Report report_;
  const std::shared_ptr<DefaultsNotifier> notifier_;
  // Last: its thread uses all of the above until it has gone.
  std::unique_ptr<FileWatch> watch_;
};

std::string FileUserDefaults::standardPath() {
  return joinedPath(Paths::configDirectory(), "Tessivane/defaults.json");
}

FileUserDefaults::FileUserDefaults(std::string path, TaskQueue& queue, Report report)
    : store_(std::make_unique<Store>(std::move(path), queue, std::move(report))) {}

FileUserDefaults::~FileUserDefaults() = default;

std::optional<DefaultsValue> FileUserDefaults::value(std::string_view key) const {
  return store_->value(key);
}

void FileUserDefaults::set(std::string_view key, DefaultsValue value) {
  store_->change(key, std::move(value));
}

void FileUserDefaults::remove(std::string_view key) {
  store_->change(key, std::nullopt);
}

Subscription FileUserDefaults::subscribe(std::function<void()> changed) {
  return store_->subscribe(std::move(changed));
}

}  // namespace tessivane
