#pragma once

// The program that owns a SQLite database, played by a process of its own: SQLite's locks and its
// shared index are what they are only between processes. Made before this process opens the
// database, as connections must not be carried through a fork.

#include <sys/types.h>

#include <string>
#include <string_view>

namespace tessivane {

class DatabaseOwner final {
 public:
  /// The database is opened, and made if need be, by the first `run`.
  explicit DatabaseOwner(const std::string& path);
  DatabaseOwner(const DatabaseOwner&) = delete;
  DatabaseOwner& operator=(const DatabaseOwner&) = delete;
  /// Closes like `close`.
  ~DatabaseOwner();

  /// Runs statements (less than 64 KiB of text) and returns when they are done. Throws when SQLite
  /// refuses one; a lock is not waited for.
  void run(std::string_view sql) const;

  /// Ends as a program does that quits, or as one that dies with its database open.
  void close();
  void kill();

 private:
  int socket_ = -1;
  pid_t process_ = -1;
};

}  // namespace tessivane
