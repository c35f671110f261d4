#pragma once

// The file that holds the settings: reading it, replacing it as a whole, setting a spoiled one
// aside. It neither decides nor remembers values. For one thread at a time.

#include <cstddef>
#include <optional>
#include <string>
#include <utility>

#include "platform/DefaultsValue.h"

namespace tessivane {

class DefaultsFile final {
 public:
  /// A larger file is not ours.
  static constexpr std::size_t maxBytes = std::size_t{16} << 20;

  enum class State {
    read,
    absent,
    /// Something is there that cannot be understood, and never will be.
    broken,
    /// It could not be looked at this time; it may be whole.
    unavailable,
  };
  struct Reading {
    State state = State::absent;
    /// Filled for `read` only.
    DefaultsDictionary values = {};
  };

  /// Keeps other processes from changing the file for as long as it lives.
  class Lock final {
   public:
    Lock(Lock&& other) noexcept;
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;
    Lock& operator=(Lock&&) = delete;
    ~Lock();

   private:
    friend class DefaultsFile;
    explicit Lock(int descriptor) : descriptor_(descriptor) {}
    int descriptor_;
  };

  /// What a step that can fail on the disk comes to: nothing, or the reason in words.
  using Failure = std::optional<std::string>;

  explicit DefaultsFile(std::string path) : path_(std::move(path)) {}

  const std::string& path() const { return path_; }

  /// Makes the directory, for this user alone, if it is missing.
  void makeDirectory() const;

  /// Reads the file as it is now.
  Reading read() const;

  /// Waits for whoever holds the lock; writers hold it for some milliseconds. Failing that,
  /// `reason` is set.
  std::optional<Lock> lock(Failure& reason) const;

  /// Replaces the file by these values, readable by this user alone. A reader, or a machine that
  /// loses power, sees the old file or the new one. A file without write permission is left alone.
  Failure write(const DefaultsDictionary& values) const;

  /// Renames what is there to a name that nothing has yet, which is returned; else sets `reason`.
  std::optional<std::string> setAside(Failure& reason) const;

 private:
  std::string path_;
};

}  // namespace tessivane
