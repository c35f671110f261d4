#pragma once

// What all who work in the home share: where it is, chance, the book in which they write what they
// did, and a look at what the program has stored so far. For one thread.

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "helpers/ProgramRun.h"
#include "helpers/Random.h"
#include "helpers/StoredActivity.h"
#include "platform/SystemClock.h"
#include "soak/Ledger.h"

namespace tessivane {

/// What is stored already, looked up a few times a second at most.
class Witness final {
 public:
  explicit Witness(std::string database) : database_(std::move(database)) {}

  bool sees(const Token& token);
  /// How far the file that is at that path now was read at least.
  std::optional<std::uint64_t> offset(const std::string& path);

 private:
  void look();

  std::string database_;
  std::set<Token> seen_;
  std::map<std::string, StoredActivity::Cursor> cursors_;
  std::chrono::steady_clock::time_point nextLook_ = {};
};

struct Workshop {
  Workshop(ProgramHome place, std::uint64_t seed)
      : home(std::move(place)),
        random(seed),
        witness(home.database()),
        seedText(std::to_string(seed)) {}

  const ProgramHome home;
  Random random;
  Ledger ledger;
  Witness witness;
  const std::string seedText;
  int generation = 0;                                    ///< counts the starts of the program
  std::chrono::steady_clock::time_point calmSince = {};  ///< nothing has troubled it since then
  std::map<std::string, int> counts;                     ///< what was done how often

  std::string path(const std::string& relative) const { return home.home() + "/" + relative; }
  /// A name that was not used before.
  std::string name(const std::string& prefix) {
    return prefix + seedText + "x" + std::to_string(++names_);
  }
  std::int64_t number() { return ++names_; }
  template <typename T>
  T& pick(std::vector<T>& list) {
    return list[random.below(list.size())];
  }
  /// Lines and logs hold no more than milliseconds.
  static Date now() { return std::chrono::floor<std::chrono::milliseconds>(systemNow()); }

 private:
  std::int64_t names_ = 0;
};

}  // namespace tessivane
