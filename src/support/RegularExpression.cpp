#include "support/RegularExpression.h"

#include <cstdint>
#include <limits>
#include <utility>

#include <unicode/regex.h>
#include <unicode/unistr.h>
#include <unicode/utext.h>

namespace tessivane {

namespace {

// In ICU's own unit, near a millisecond. The patterns in use need a few for a megabyte.
constexpr std::int32_t timeLimit = 2000;

}  // namespace

struct RegularExpression::Pattern {
  std::unique_ptr<icu::RegexPattern> compiled;
};

// The matches in one text, one after the other.
class RegularExpression::Search final {
 public:
  Search(const Pattern& pattern, std::string_view text) : text_(text) {
    if (!pattern.compiled || text.size() > std::numeric_limits<std::int32_t>::max())
      return;
    utext_openUTF8(&input_, text.data(), static_cast<std::int64_t>(text.size()), &status_);
    matcher_.reset(pattern.compiled->matcher(status_));
    if (U_FAILURE(status_) || !matcher_)
      return;
    matcher_->setTimeLimit(timeLimit, status_);
    matcher_->reset(&input_);
  }
  Search(const Search&) = delete;
  Search& operator=(const Search&) = delete;
  ~Search() {
    matcher_.reset();
    utext_close(&input_);
  }

  bool next() { return matcher_ && U_SUCCESS(status_) && matcher_->find(status_) != 0; }

  Match match() {
    Match match{.whole = part(0).value_or(std::string_view())};
    match.rest = text_.substr(static_cast<std::size_t>(matcher_->end64(0, status_)));
    for (std::int32_t group = 1; group <= matcher_->groupCount(); ++group)
      match.groups.push_back(part(group));
    return match;
  }

 private:
  std::optional<std::string_view> part(std::int32_t group) {
    const std::int64_t begin = matcher_->start64(group, status_);
    const std::int64_t end = matcher_->end64(group, status_);
    if (U_FAILURE(status_) || begin < 0)
      return std::nullopt;
    return text_.substr(static_cast<std::size_t>(begin), static_cast<std::size_t>(end - begin));
  }

  std::string_view text_;
  UText input_ = UTEXT_INITIALIZER;
  UErrorCode status_ = U_ZERO_ERROR;
  std::unique_ptr<icu::RegexMatcher> matcher_;
};

std::optional<std::string_view> RegularExpression::Match::group(std::size_t number) const {
  return number >= 1 && number <= groups.size() ? groups[number - 1] : std::nullopt;
}

RegularExpression::RegularExpression(std::string_view pattern) {
  UErrorCode status = U_ZERO_ERROR;
  const icu::StringPiece piece(pattern.data(), static_cast<std::int32_t>(pattern.size()));
  auto compiled = std::make_unique<Pattern>();
  compiled->compiled.reset(
      icu::RegexPattern::compile(icu::UnicodeString::fromUTF8(piece), 0, status));
  if (U_FAILURE(status))
    compiled->compiled.reset();
  pattern_ = std::move(compiled);
}

RegularExpression::~RegularExpression() = default;

std::optional<RegularExpression::Match> RegularExpression::firstMatch(std::string_view text) const {
  Search search(*pattern_, text);
  if (!search.next())
    return std::nullopt;
  return search.match();
}

std::optional<RegularExpression::Match> RegularExpression::lastMatch(std::string_view text) const {
  Search search(*pattern_, text);
  std::optional<Match> last;
  while (search.next())
    last = search.match();
  return last;
}

}  // namespace tessivane
