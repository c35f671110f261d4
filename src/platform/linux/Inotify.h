#pragma once

// The kernel's word of what happens in directories, on an Asio loop. For the sources of this folder
// only. One thread at a time: first the one that makes it, then the loop's; `add` on any.

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include <asio/io_context.hpp>
#include <asio/posix/stream_descriptor.hpp>

#include "support/FunctionRef.h"

namespace tessivane {

class Inotify final {
 public:
  struct Event {
    /// What `add` gave; -1 when events were lost.
    int watch = -1;
    std::uint32_t mask = 0;
    /// Of what is in the watched directory; empty when the event is about the directory itself.
    std::string_view name = {};
  };

  /// Opens it. The context must outlive it.
  explicit Inotify(asio::io_context& context);

  /// Zero when it is open, else the error number. Without it nothing is watched and told.
  int error() const { return error_; }
  /// Drops all watches and what they had to tell, and begins anew.
  void reopen();

  /// Watches what is at the path, in addition to what was asked before of the same directory.
  /// Returns the watch, the same for all paths of a directory, or -1 with `errno` set.
  int add(const std::string& path, std::uint32_t mask);
  void remove(int watch);

  /// Takes the events that are there, in order. What arrives meanwhile without end is left.
  void read(FunctionRef<void(const Event&)> take);
  /// Calls `readable` once, on the loop, as soon as there are events. Never when it is not open.
  void wait(std::function<void()> readable);

 private:
  int error_ = 0;
  asio::posix::stream_descriptor descriptor_;
};

}  // namespace tessivane
