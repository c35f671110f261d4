#pragma once

// Keeps a second start of the program from running beside the first: the first holds a lock and
// listens on a local socket, the second asks it to come forward and ends. One instance per
// directory, so that another configuration directory means another program.
//
// Made and destroyed on the main thread. A small thread accepts the calls.

#include <functional>
#include <memory>
#include <string>

#include "platform/TaskQueue.h"

namespace tessivane {

class SingleInstance final {
 public:
  enum class Role {
    first,        ///< this process is the program, for as long as the value lives
    handedOver,   ///< another one runs and has been asked to come forward
    behindOther,  ///< another one runs that has no window to bring forward, or does not answer
  };

  /// Claims `directory`, which is made if need be. `reopen`, when given, runs as a task of `queue`
  /// for every later start; an empty one means that there is no window. Where no lock or socket
  /// can be made, this process counts as the first: better two than none.
  SingleInstance(const std::string& directory, TaskQueue& queue, std::function<void()> reopen);
  SingleInstance(const SingleInstance&) = delete;
  SingleInstance& operator=(const SingleInstance&) = delete;
  ~SingleInstance();

  /// The process is about to end: one that is started from now on waits for that, a second at the
  /// most, and is the first then.
  void stopListening();

  Role role() const { return role_; }

 private:
  struct Listener;

  Role claim(const std::string& directory);

  Role role_ = Role::first;
  int lock_ = -1;
  std::unique_ptr<Listener> listener_;
};

}  // namespace tessivane
