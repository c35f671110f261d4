#pragma once

// Which sessions exist and in what state: asks the three providers and folds T3 Code's threads
// together with the native sessions that they drive. Safe on every thread: one lock covers a whole
// pass, so passes never overlap and the providers need no locks. Owned by whoever refreshes (the
// session store, a dump mode); its caches live as long as it does.

#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "sessions/AgentSession.h"
#include "sessions/ClaudeProvider.h"
#include "sessions/CodexProvider.h"
#include "sessions/ProjectRootResolver.h"
#include "sessions/T3Provider.h"
#include "support/Date.h"
#include "support/Mutex.h"

namespace tessivane {

class SessionDiscovery final {
 public:
  /// T3 thread ids by the session key "{agent}:{native id}" that they drive.
  using Owners = T3Provider::Owners;

  struct Options {
    std::string home = {};             ///< below it lie the tools' own directories
    std::string configDirectory = {};  ///< $XDG_CONFIG_HOME
    Clock now = {};
    /// Takes one line of trouble, without its line end; meant for standard error.
    std::function<void(std::string_view)> report = {};
  };

  explicit SessionDiscovery(Options options);

  /// One full pass: native sessions in their providers' order, then T3 threads. Not sorted.
  std::vector<AgentSession> sessions(Date since);

  /// The present trouble of each source, in words; empty when all is well. Waits for a running
  /// pass, so not for the main thread.
  std::map<Agent, std::string> problems();

  /// The project roots found so far, shared with whoever else needs them.
  ProjectRootResolver& roots() { return roots_; }

  /// Folds native sessions into the T3 threads that drive them. A native session with one owner
  /// leaves the list, and the thread takes over its transcript; with several owners it stays and
  /// says so; with none, but started by T3 Code, it is shown as T3 Code's.
  static std::vector<AgentSession> reconcile(std::vector<AgentSession> native,
                                             std::vector<AgentSession> t3,
                                             const Owners& owners);

 private:
  Mutex lock_;
  const std::function<void(std::string_view)> report_;
  ProjectRootResolver roots_;
  T3Provider t3_ GUARDED_BY(lock_);
  ClaudeProvider claude_ GUARDED_BY(lock_);
  CodexProvider codex_ GUARDED_BY(lock_);
};

}  // namespace tessivane
