#pragma once

// The bracket around one scan or ingest: what it stores becomes durable at once and for the price
// of one. On the stack of the activity queue; not nested.
//
// A scan that does not get the write lock goes on statement by statement. A failure in between may
// undo what was stored before it, or let a later statement through, so a scan must not move a
// cursor once `isWhole` says no: the next scan then begins where this one did, and what is told
// twice is stored once.

#include <cstdint>

#include "backend/BackendEventStore.h"

namespace tessivane {

class BackendTransaction final {
 public:
  explicit BackendTransaction(BackendEventStore& store);
  BackendTransaction(const BackendTransaction&) = delete;
  BackendTransaction& operator=(const BackendTransaction&) = delete;
  /// Commits, unless `commit` was called.
  ~BackendTransaction();

  /// Commits now, or undoes everything when that fails. True when all that was told since the
  /// beginning is stored in the file that is there now.
  bool commit();

  /// True while every statement since the beginning has gone through.
  bool isWhole() const { return db_.failures() == failuresBefore_; }

 private:
  BackendDatabase& db_;
  std::uint64_t failuresBefore_ = 0;
  bool begun_ = false;
};

}  // namespace tessivane
