#pragma once

// A compiled regular expression in ICU's syntax, with no option set, over UTF-8 text that is not
// copied. Immutable after construction, safe on every thread; meant to be made once and kept.
//
// A search that asks for too much (a pattern with endless ways to fail, a text over 2 GiB) is
// given up and counts as no match, so no text can hold a thread up or exhaust its memory.

#include <cstddef>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace tessivane {

class RegularExpression final {
 public:
  /// What matched, as parts of the text that was searched; good as long as that is.
  struct Match {
    std::string_view whole = {};
    std::string_view rest = {};  ///< what follows the match
    std::vector<std::optional<std::string_view>> groups = {};

    /// The text of a group, counted from 1; nothing when the group took no part in the match.
    std::optional<std::string_view> group(std::size_t number) const;
  };

  /// A pattern that is none never matches.
  explicit RegularExpression(std::string_view pattern);
  RegularExpression(const RegularExpression&) = delete;
  RegularExpression& operator=(const RegularExpression&) = delete;
  ~RegularExpression();

  std::optional<Match> firstMatch(std::string_view text) const;
  std::optional<Match> lastMatch(std::string_view text) const;

 private:
  struct Pattern;
  class Search;

  std::unique_ptr<const Pattern> pattern_;
};

}  // namespace tessivane
