#pragma once

// What is new and waits to be handed to the feed in one batch. On the activity queue, owned by the
// activity store.

#include <cstddef>
#include <string>
#include <unordered_map>
#include <vector>

#include "activity/ActivityEvent.h"

namespace tessivane {

class BackendOutbox final {
 public:
  struct Batch {
    std::vector<ActivityEvent> events = {};  ///< by date, those of one date as they came
    std::vector<EditBucket> edits = {};      ///< by start, likewise
  };

  void add(ActivityEvent event);
  /// In place of an earlier state of the same minute.
  void add(EditBucket bucket);
  /// Adds an event that takes the place of those with its id and, where it is a pull request under
  /// a real root, of those that told of it under a stand-in for the repository.
  void correct(ActivityEvent event);

  bool isEmpty() const { return events_.empty() && edits_.empty(); }
  Batch take();
  void clear();

 private:
  std::vector<ActivityEvent> events_;
  std::vector<EditBucket> edits_;
  std::unordered_map<std::string, std::size_t> editsByID_;  // where in `edits_`
};

}  // namespace tessivane
