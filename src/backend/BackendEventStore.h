#pragma once

// What the program knows of the last two days: events, runs of edits, how far each file has been
// read, and a few small named values, in one SQLite file of its own. The store gives the tables
// their meaning; it is their only writer. For one thread at a time, the activity queue, on which
// the activity store makes and keeps it.
//
// Nothing is reported: a statement that fails gives the neutral result of its operation and counts
// in `db().failures()`. Everything may be told twice, so a scan that was cut short is repeated from
// where it began. See `BackendTransaction` for how a scan is bracketed.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "activity/ActivityEvent.h"
#include "backend/BackendDatabase.h"
#include "support/Date.h"

namespace tessivane {

/// How far a file has been read, and which file that was.
struct BackendFileCursor {
  std::uint64_t inode = 0;
  std::uint64_t offset = 0;  ///< in bytes from the file's start
  double mtime = 0;          ///< seconds since 1970

  friend bool operator==(const BackendFileCursor&, const BackendFileCursor&) = default;
};

class BackendEventStore final {
 public:
  /// How far back the store remembers.
  static constexpr std::chrono::seconds window = std::chrono::hours(48);

  struct History {
    std::vector<ActivityEvent> events = {};
    std::vector<EditBucket> edits = {};
  };

  /// Edits that one step of a session made.
  struct Edit {
    std::string key = {};  ///< by which the same step is known when it is read again
    std::string root = {};
    std::optional<std::string> sessionID = {};
    Date date = distantPast;
    std::vector<std::string> paths = {};  ///< as they are shown
  };

  /// A pull request's event as GitHub tells it.
  struct PullRequest {
    ActivityKind kind = ActivityKind::prOpened;
    std::string number = {};  ///< in decimal
    std::string slug = {};    ///< "owner/repo" in lower case
    std::string root = {};    ///< the project it was attributed to, or "github:..."
    Date date = distantPast;
    std::string title = {};
    std::optional<std::string> branch = {};
  };

  struct PRReconcile {
    enum class Kind { updated, missing, unchanged };

    Kind kind = Kind::unchanged;
    std::optional<ActivityEvent> event = {};  ///< of an update, as it is stored now

    friend bool operator==(const PRReconcile&, const PRReconcile&) = default;
  };

  /// "Tessivane/activity.sqlite" in the user's data directory.
  static std::string defaultPath();

  /// Opens the database and makes what is missing of its tables. Nothing when it cannot be opened.
  static std::unique_ptr<BackendEventStore> open(const std::string& path);

  explicit BackendEventStore(std::unique_ptr<BackendDatabase> db);

  /// Makes good what a fault prevented when the store was opened: runs the schema script unless it
  /// has gone through, and opens a file anew that could not be written. For the beginning of a
  /// scan.
  void makeReady();

  /// False when its file was deleted, moved away, replaced or emptied, or is damaged: another store
  /// is needed then. Costs two stats.
  bool isUsable() const;

  BackendDatabase& db() { return *db_; }

  /// True when the event is new. One with the kind, root and ref of a stored one is dropped.
  bool insert(const ActivityEvent& event);

  /// Events and edits since then, in the order of time. Rows that cannot be read are left out.
  History history(Date since);

  /// How far the file was read; nothing when that is not known.
  std::optional<BackendFileCursor> cursor(std::string_view path);
  void setCursor(const BackendFileCursor& cursor, std::string_view path, Date now);

  /// Counts the edits into their minute, all or nothing, and returns what the minute holds then.
  /// Nothing when the key was counted before or the edit could not be stored.
  std::optional<EditBucket> addEdit(const Edit& edit);

  /// The title under which a pull request was opened.
  std::optional<std::string> prTitle(std::int64_t number,
                                     const std::optional<std::string>& slug,
                                     std::string_view root);

  /// True when the pull request's event is stored, under this root or for this repository.
  bool hasPullRequest(ActivityKind kind,
                      std::string_view number,
                      std::string_view root,
                      const std::optional<std::string>& slug);

  /// Brings the stored event of a pull request in line with what GitHub says. A row under a real
  /// root wins over one under a "github:" root, GitHub's date and title win over the transcript's.
  /// A row moves to the real root unless another repository's pull request stands there.
  PRReconcile reconcilePR(const PullRequest& pr);

  /// Keys of items that are handled once.
  bool isSeen(std::string_view key);
  /// True when the key was not there before.
  bool markSeen(std::string_view key, Date date);

  /// Small named values; never pruned.
  std::optional<std::string> value(std::string_view key);
  void setValue(std::string_view key, std::string_view value);

  /// The roots of all events but those that no local project claims.
  std::vector<std::string> localRoots();

  /// Forgets what is older than the window.
  void prune(Date now);

 private:
  bool countEdit(const Edit& edit, EditBucket& bucket);
  bool isTaken(const PullRequest& pr);

  std::unique_ptr<BackendDatabase> db_;
  bool schemaIsComplete_ = false;
};

}  // namespace tessivane
