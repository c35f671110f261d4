#pragma once

// How wide the texts of the timeline's cards are, and how they are cut to fit. The platform
// measures, through a closure; a measure with a memory belongs to the main thread.

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>

namespace tessivane {

enum class TimelineTextStyle {
  cardTitle,
  cardMeta,
  cardMetaEmphasis,
  pillLabel,
  pillProject,
  tag,
  tagRef
};

/// What a style is measured and drawn in. The family is the system's sans serif one, or its
/// monospaced one.
struct TimelineFont {
  enum class Weight { regular, medium, semibold };

  double size = 11;  ///< points
  Weight weight = Weight::regular;
  bool monospaced = false;

  friend bool operator==(const TimelineFont&, const TimelineFont&) = default;
};

TimelineFont font(TimelineTextStyle style);

/// A text as a card shows it: on one line (control characters become blanks) and at most
/// `maxTimelineTextBytes` long. Nothing that could stand on a card is longer.
std::string timelineText(std::string_view text);
inline constexpr std::size_t maxTimelineTextBytes = 1024;

/// A text cut to a width.
struct TimelineFittedText {
  std::string text = {};
  double width = 0;
  bool isCut = false;

  friend bool operator==(const TimelineFittedText&, const TimelineFittedText&) = default;
};

struct TimelineTextMeasure {
  /// The width of one line of text in points, rounded up to a whole one. What is not there counts
  /// as a closure that answers 0.
  std::function<double(std::string_view, TimelineTextStyle)> width = {};
  /// Answers for `fit` from memory. Where it is not there, `fit` works the answer out.
  std::function<TimelineFittedText(std::string_view, TimelineTextStyle, double)> remembered = {};

  /// What `width` says, between 0 and `maxWidth`: not a number and less than nothing count as 0.
  double boundedWidth(std::string_view text, TimelineTextStyle style) const;
  static constexpr double maxWidth = 100'000;

  /// `timelineText(text)` if that is at most `limit` wide. Else as many of its characters as fit
  /// with an ellipsis behind them, but not less than four (which may be wider than the limit),
  /// without white space at the ends. Asks for about ten widths at most.
  TimelineFittedText fit(std::string_view text, TimelineTextStyle style, double limit) const;
};

/// What a measure with a memory knows. A map that has grown over the limit is emptied before the
/// next answer goes in.
struct TimelineWidthCache {
  struct KeyView {
    std::string_view text = {};
    TimelineTextStyle style = TimelineTextStyle::cardTitle;

    friend bool operator==(const KeyView&, const KeyView&) = default;
  };
  struct Key {
    std::string text = {};
    TimelineTextStyle style = TimelineTextStyle::cardTitle;

    // A stored key is compared with one that is only looked up.
    operator KeyView() const { return {text, style}; }  // NOLINT(google-explicit-constructor)
  };
  struct Hash {
    using is_transparent = void;  // NOLINT(readability-identifier-naming): std's name
    std::size_t operator()(const KeyView& key) const;
  };
  struct Equal {
    using is_transparent = void;  // NOLINT(readability-identifier-naming): std's name
    bool operator()(const KeyView& a, const KeyView& b) const { return a == b; }
  };
  template <typename Value>
  using Map = std::unordered_map<Key, Value, Hash, Equal>;

  struct Fit {
    double limit = 0;
    TimelineFittedText fitted = {};
  };

  static constexpr std::size_t maxEntries = 4000;

  Map<double> values = {};
  Map<Fit> fits = {};  ///< a style is fitted to one width, so the latest limit is the only one kept
};

/// `measure` with a memory of its own, shared by the copies of the result.
TimelineTextMeasure cached(TimelineTextMeasure measure);

}  // namespace tessivane
