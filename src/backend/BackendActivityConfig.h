#pragma once

// What the activity store needs of the rest: where things are, how often it looks, and whom it
// tells. A plain record; the closures are called on the activity queue unless they say otherwise,
// and must be good for as long as the store lives.

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "backend/BackendEventStore.h"
#include "github/GitHubPRSource.h"
#include "platform/FileEvents.h"
#include "platform/UserDefaults.h"
#include "support/Date.h"
#include "support/Paths.h"

namespace tessivane {

struct BackendActivityConfig {
  std::string home = Paths::home();
  std::string dbPath = BackendEventStore::defaultPath();
  std::string claudeDir = joinedPath(home, ".claude/projects");
  std::string codexDir = joinedPath(home, ".codex/sessions");
  std::optional<std::string> t3DBPath = joinedPath(home, ".t3/userdata/statev2.sqlite");

  /// How far back a file counts that was not read before.
  std::chrono::seconds backfill = std::chrono::hours(6);
  /// The least time between two batches, between two reads of T3's database, and between two looks
  /// at the files that are followed.
  Seconds publishInterval{1};
  Seconds t3Interval{5};
  Seconds pollInterval{1};

  /// Whether file events are asked for. Without them, and where they cannot tell of everything,
  /// everything is looked at every `sweepInterval`.
  bool watch = true;
  /// Makes the file events. `problem` may be called on any thread, with sentences that tell of
  /// changes which cannot be noticed.
  std::function<FileEvents(std::function<void(const std::string& sentence)> problem)> fileEvents =
      [](const auto& /*problem*/) { return FileEvents(); };
  Seconds sweepInterval{30};
  /// Takes such a sentence; called on any thread.
  std::function<void(const std::string& sentence)> report = [](const std::string&) {};

  UserDefaults* defaults = nullptr;  ///< outlives the store; without one GitHub is not asked
  std::optional<GitHubPRSource::Environment> github = {};
  /// The roots that the person's own settings know of, in addition to those of sessions and events.
  std::function<std::vector<std::string>()> savedProjects = [] {
    return std::vector<std::string>();
  };

  /// Called on any thread.
  Clock clock = {};
  /// Runs what hands a batch over. The feed hops to its own thread by itself.
  std::function<void(std::function<void()>)> deliver = [](const std::function<void()>& task) {
    task();
  };
  /// Something changed from which sessions are made.
  std::function<void()> onSourcesChanged = [] {};
};

}  // namespace tessivane
