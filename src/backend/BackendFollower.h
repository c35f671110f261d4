#pragma once

// How the activity store learns that files have changed: by file events for all that is below the
// tools' directories and for the repositories' logs, by a stat poll for the files that matter most,
// and, where there are no events, by a look at everything now and then. On the activity queue,
// owned by the activity store.

#include <memory>
#include <set>
#include <string>

#include "backend/BackendActivityConfig.h"
#include "backend/BackendFSWatcher.h"
#include "backend/BackendStatPoll.h"
#include "platform/FileEvents.h"
#include "platform/TaskQueue.h"

namespace tessivane {

class BackendFollower final : public std::enable_shared_from_this<BackendFollower> {
 public:
  using Paths = std::set<std::string>;

  /// Only in a shared pointer. `handler` is called as a task of `queue`, which outlives it; it may
  /// be called once more while the follower is being let go of.
  BackendFollower(BackendActivityConfig config, TaskQueue& queue, FileEvents::Handler handler);

  /// Follows the tools' own directories and these, from now on. With other repositories than before
  /// all of them are to be scanned afterwards: what happened last in one may be told by no event.
  void follow(const Paths& transcripts, const Paths& gitDirs);

  /// The file is about to be read: what has changed in it need not be told any more.
  void note(const std::string& path) { poll_.note(path); }

 private:
  void startPoll();
  void watchSources();
  void watchRepositories(const Paths& gitDirs);
  void startSweep();

  const BackendActivityConfig config_;
  TaskQueue& queue_;
  const FileEvents::Handler handler_;
  BackendStatPoll poll_;
  TaskHandle statTimer_;
  TaskHandle sweepTimer_;  // filled where events do not tell of everything
  FileEvents events_;
  // Two, as the directories of the tools stay what they are while repositories come and go.
  BackendFSWatcher sources_;
  BackendFSWatcher repositories_;
  Paths watchedDirs_;
  bool following_ = false;
};

}  // namespace tessivane
