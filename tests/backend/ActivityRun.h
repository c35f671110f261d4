#pragma once

// An activity store over a home directory of its own, with clock, queue and file events that a test
// moves by hand, and short words for what happens to it.

#include <algorithm>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "SampleLines.h"
#include "StoreFixture.h"
#include "backend/BackendActivityStore.h"
#include "helpers/ManualClock.h"
#include "helpers/ManualQueue.h"
#include "helpers/TempHome.h"
#include "platform/MemoryUserDefaults.h"

namespace tessivane {

/// File events that a test makes up.
struct ScriptedFileEvents {
  struct Watch {
    std::vector<std::string> paths;
    FileEvents::Handler handler;
  };
  bool isPossible = true;
  std::function<void(const std::string&)> problem = {};
  std::vector<std::weak_ptr<Watch>> watches = {};
  std::ptrdiff_t mostAtOnce = 0;

  FileEvents events() {
    FileEvents made;
    made.watch = [this](const auto& paths, Seconds, TaskQueue&, auto handler) {
      mostAtOnce = std::max(mostAtOnce, 1 + std::ranges::count_if(watches, [](const auto& before) {
                                          return !before.expired();
                                        }));
      auto watch = isPossible ? std::make_shared<Watch>(Watch{paths, std::move(handler)}) : nullptr;
      watches.push_back(watch);
      return std::shared_ptr<void>(watch);
    };
    return made;
  }
  /// Tells the change to those who watch a directory above it.
  void change(const std::string& path) const {
    for (const auto& weak : watches) {
      const auto watch = weak.lock();
      if (watch != nullptr && std::ranges::any_of(watch->paths, [&path](const auto& directory) {
            return path.starts_with(directory);
          }))
        watch->handler({path}, false);
    }
  }
  /// What is watched now.
  std::vector<std::string> watched() const {
    std::vector<std::string> all;
    for (const auto& weak : watches) {
      if (const auto watch = weak.lock())
        all.insert(all.end(), watch->paths.begin(), watch->paths.end());
    }
    return all;
  }
  void rescan() const {
    const auto copy = watches;
    for (const auto& weak : copy) {
      if (const auto watch = weak.lock())
        watch->handler({}, true);
    }
  }
};

class ActivityRun : public testing::Test {
 protected:
  struct Batch {
    std::vector<ActivityEvent> events = {};
    std::vector<EditBucket> edits = {};
  };

  BackendActivityConfig config() {
    return {.home = home_.path(),
            .dbPath = dbPath_,
            .claudeDir = home_.path(".claude/projects"),
            .codexDir = home_.path(".codex/sessions"),
            .t3DBPath = home_.path(".t3/userdata/statev2.sqlite"),
            .watch = watch_,
            .fileEvents =
                [this](auto problem) {
                  files_.problem = std::move(problem);
                  return files_.events();
                },
            .report = [this](const std::string& sentence) { reports_.push_back(sentence); },
            .defaults = &defaults_,
            .github = gitHub_,
            .clock =
                [this] {
                  if (stopAfter_ > 0 && --stopAfter_ == 0)
                    store_->stop();
                  return clock_.now();
                },
            .onSourcesChanged = [this] { ++sourceChanges_; }};
  }

  /// The store, made by the first call and started by `start`.
  BackendActivityStore& store() {
    if (!store_)
      store_ = std::make_unique<BackendActivityStore>(config(), queue_, roots_);
    return *store_;
  }
  void start() {
    store().start([this](std::vector<ActivityEvent> events, std::vector<EditBucket> edits) {
      batches_.push_back({std::move(events), std::move(edits)});
    });
    queue_.runPending();
  }
  /// As at the end of the program.
  void quit() {
    store().stop();
    queue_.runPending();
    store_.reset();
    batches_.clear();
  }
  void refresh() {
    store().sessionsDidRefresh(sessions_);
    queue_.runPending();
  }
  void startWithSessions() {
    start();
    refresh();
    queue_.advance(Seconds(2));
    batches_.clear();
  }

  /// A Claude Code session in a project below the home directory.
  AgentSession& addSession(const std::string& id, const std::string& project = "code/shed") {
    AgentSession session;
    session.nativeID = id;
    session.title = "Session " + id;
    session.projectPath = session.cwd = home_.path(project);
    session.activity = clock_.now();
    session.transcriptPath = home_.path(".claude/projects/s/" + id + ".jsonl");
    sessions_.push_back(session);
    return sessions_.back();
  }
  void addSessionWithTranscript(const std::string& id) {
    addSession(id);
    home_.write(relative(id), "", clock_.now());
  }
  static std::string relative(const std::string& id) {
    return ".claude/projects/s/" + id + ".jsonl";
  }

  /// Appends lines to the session's transcript, each dated so long ago.
  void say(const std::string& id, std::initializer_list<json> lines, Seconds age = Seconds(0)) {
    for (json line : lines) {
      line["timestamp"] = isoTextWithMilliseconds(shifted(clock_.now(), -age));
      home_.append(relative(id), line.dump() + "\n");
    }
    home_.setModified(relative(id), shifted(clock_.now(), -age));
  }
  void sayOn(const std::string& id, const std::string& branch) {
    json line = claude::message("user", "Go");
    line["gitBranch"] = branch;
    say(id, {line});
  }
  void sayEdit(const std::string& id, const std::string& path, Seconds age = Seconds(0)) {
    say(id, {claude::edit("e" + std::to_string(++calls_), home_.path(path))}, age);
  }
  void openPullRequest(const std::string& id, int number, Seconds age = Seconds(0)) {
    const std::string call = "p" + std::to_string(++calls_);
    say(id, {claude::bash(call, "gh pr create -t 'Add a door'")}, age);
    say(id, {claude::result(call, pullURL(number))}, age);
  }
  static std::string pullURL(int number) {
    return "https://github.com/Me/Shed/pull/" + std::to_string(number);
  }

  /// Everything handed over so far.
  std::vector<ActivityEvent> events() const {
    std::vector<ActivityEvent> all;
    for (const Batch& batch : batches_)
      all.insert(all.end(), batch.events.begin(), batch.events.end());
    return all;
  }
  std::vector<std::string> titles() const { return titlesOf(events()); }
  /// How many edits the minutes handed over so far hold in their last states.
  std::int64_t editedFiles() const {
    std::map<std::string, std::int64_t> files;
    for (const Batch& batch : batches_) {
      for (const EditBucket& bucket : batch.edits)
        files[bucket.id()] = bucket.files;
    }
    std::int64_t sum = 0;
    for (const auto& [id, count] : files)
      sum += count;
    return sum;
  }
  /// What the database holds, seen through a connection of its own.
  BackendEventStore::History stored() const {
    return BackendEventStore::open(dbPath_)->history(distantPast);
  }

  TempHome home_;
  ManualClock clock_;
  ManualQueue queue_{clock_};
  MemoryUserDefaults defaults_{queue_};
  ProjectRootResolver roots_{home_.path()};
  ScriptedFileEvents files_;
  std::string dbPath_ = home_.path("data/activity.sqlite");
  bool watch_ = true;
  std::optional<GitHubPRSource::Environment> gitHub_;
  std::vector<AgentSession> sessions_;
  std::vector<std::string> reports_;
  std::vector<Batch> batches_;
  int sourceChanges_ = 0;
  int stopAfter_ = 0;  // so many times that the store asks for the time

 private:
  int calls_ = 0;
  std::unique_ptr<BackendActivityStore> store_;
};

}  // namespace tessivane
