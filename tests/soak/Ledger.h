#pragma once

// What was made to happen, and so what the event database must hold in the end: that, each once,
// and nothing else. For one thread.
//
// When a session begins to wait or has finished depends on when it is looked at. Of these events
// the ledger knows only what holds for all of them.

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "helpers/StoredActivity.h"
#include "platform/SystemClock.h"
#include "support/Date.h"

namespace tessivane {

/// What tells that something was stored: that of an event, or the key by which an edit was counted.
using Token = std::string;

class Ledger final {
 public:
  struct Event {
    std::string kind = {};
    std::string root = {};
    std::string ref = {};
    std::optional<std::string> title = {};   ///< compared when given
    std::optional<std::string> detail = {};  ///< likewise
    std::optional<std::string> branch = {};  ///< counted when it differs: it may have moved on
    /// Whether it must be stored, or may be.
    bool isCertain = true;

    Token token() const { return kind + ":" + root + ":" + ref; }
  };
  struct Edit {
    std::string key = {};
    std::string root = {};
    std::string sessionID = {};
    Date date = {};
    std::int64_t files = 1;
  };

  /// Each returns what will tell that it was stored.
  Token add(const Event& event);
  Token add(const Edit& edit);
  /// The same edit, told in another place too: counted in one of the two.
  void addTwin(const Edit& edit);
  /// An event that was possible has become certain.
  void makeCertain(const Token& token);
  void addSession(const std::string& id, const std::string& root);

  /// What is missing, what is stored differently, and what should not be there.
  std::vector<std::string> differences(const StoredActivity& stored) const;

  std::size_t events() const { return events_.size(); }
  std::size_t edits() const { return edits_.size(); }
  /// Counts events that were possible and are stored, and commits that are filed under another
  /// branch than that on which they were made.
  void count(const StoredActivity& stored, std::map<std::string, int>& counts) const;

 private:
  using Lines = std::vector<std::string>;

  void compareEvents(const StoredActivity& stored, Lines& differences) const;
  void compareEvent(const StoredEvent& stored, Lines& differences) const;
  void compareEdits(const StoredActivity& stored, Lines& differences) const;
  void compareTransition(const StoredEvent& stored, Lines& differences) const;

  const Date begin_ = systemNow();
  std::map<Token, Event> events_;
  std::map<std::string, std::vector<Edit>> edits_;  // by key: where each may be counted
  std::map<std::string, std::string> sessions_;     // their roots
};

}  // namespace tessivane
