#include "activity/TimelineTextMeasure.h"

#include <algorithm>
#include <array>
#include <memory>
#include <utility>

#include "support/Hasher.h"
#include "support/Text.h"

namespace tessivane {

namespace {

constexpr std::string_view ellipsis = "…";
constexpr std::size_t minFittedCharacters = 4;

// The first `maxTimelineTextBytes` bytes, or up to three less, so that no code point is torn.
std::string_view beginning(std::string_view text) {
  if (text.size() <= maxTimelineTextBytes)
    return text;
  std::size_t end = maxTimelineTextBytes;
  while (end > maxTimelineTextBytes - 3 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80)
    --end;
  return text.substr(0, end);
}

// The longest beginning of `text`, which itself is too wide, that fits with an ellipsis. A longer
// beginning is taken to be no narrower, so the place to cut is found by halving.
std::string_view fittingPrefix(const TimelineTextMeasure& measure,
                               std::string_view text,
                               TimelineTextStyle style,
                               double limit) {
  std::size_t fits = minFittedCharacters;
  std::size_t tooLong = text.size();
  std::string attempt;
  while (fits + 1 < tooLong) {
    const std::size_t middle = fits + (tooLong - fits) / 2;
    attempt = prefixCharacters(text, middle);
    attempt += ellipsis;
    (measure.boundedWidth(attempt, style) <= limit ? fits : tooLong) = middle;
  }
  return prefixCharacters(text, fits);
}

TimelineFittedText workOutFit(const TimelineTextMeasure& measure,
                              std::string_view text,
                              TimelineTextStyle style,
                              double limit) {
  TimelineFittedText result{.text = timelineText(text)};
  result.width = measure.boundedWidth(result.text, style);
  if (result.width <= limit)
    return result;
  result.text = std::string(trimmed(fittingPrefix(measure, result.text, style, limit)));
  result.text += ellipsis;
  result.width = measure.boundedWidth(result.text, style);
  result.isCut = true;
  return result;
}

// The entry of a text, made by `make` if there is none or `isStale` says so.
template <typename Value, typename Make, typename IsStale>
const Value& remember(TimelineWidthCache::Map<Value>& map,
                      const TimelineWidthCache::KeyView& key,
                      const Make& make,
                      const IsStale& isStale) {
  auto found = map.find(key);
  if (found == map.end()) {
    if (map.size() > TimelineWidthCache::maxEntries)
      map.clear();
    found = map.emplace(TimelineWidthCache::Key{std::string(key.text), key.style}, make()).first;
  } else if (isStale(found->second)) {
    found->second = make();
  }
  return found->second;
}

}  // namespace

TimelineFont font(TimelineTextStyle style) {
  using enum TimelineFont::Weight;
  static constexpr std::array<TimelineFont, 7> fonts = {{
      {.size = 12, .weight = semibold},
      {.size = 11, .weight = regular},
      {.size = 11, .weight = semibold},
      {.size = 11.5, .weight = semibold},
      {.size = 11, .weight = regular},
      {.size = 11, .weight = regular},
      {.size = 10.5, .weight = medium, .monospaced = true},
  }};
  return fonts.at(static_cast<std::size_t>(style));
}

std::string timelineText(std::string_view text) {
  std::string result(beginning(text));
  std::ranges::replace_if(
      result, [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }, ' ');
  return result;
}

double TimelineTextMeasure::boundedWidth(std::string_view text, TimelineTextStyle style) const {
  const double points = width ? width(text, style) : 0;
  return points > 0 ? std::min(points, maxWidth) : 0;
}

TimelineFittedText TimelineTextMeasure::fit(std::string_view text,
                                            TimelineTextStyle style,
                                            double limit) const {
  if (remembered)
    return remembered(beginning(text), style, limit);
  return workOutFit(*this, text, style, limit);
}

std::size_t TimelineWidthCache::Hash::operator()(const KeyView& key) const {
  return Hasher().add(key.text).add(key.style).value();
}

TimelineTextMeasure cached(TimelineTextMeasure measure) {
  const auto cache = std::make_shared<TimelineWidthCache>();
  TimelineTextMeasure result;
  result.width = [cache, measure](std::string_view text, TimelineTextStyle style) {
    return remember(
        cache->values,
        {text, style},
        [&] { return measure.boundedWidth(text, style); },
        [](double) { return false; });
  };
  // The widths tried on the way are not kept: nobody asks for them again.
  result.remembered = [cache, measure = std::move(measure)](
                          std::string_view text, TimelineTextStyle style, double limit) {
    return remember(
               cache->fits,
               {text, style},
               [&] {
                 return TimelineWidthCache::Fit{limit, measure.fit(text, style, limit)};
               },
               [limit](const TimelineWidthCache::Fit& fit) { return fit.limit != limit; })
        .fitted;
  };
  return result;
}

}  // namespace tessivane
