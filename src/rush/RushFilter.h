#pragma once

// Which waiting sessions Rush deals. A plain value, safe on every thread. The person sets it in
// the filter panel; its text form outlives a run.

#include <array>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "sessions/AgentSession.h"
#include "support/Calendar.h"
#include "support/Date.h"

namespace tessivane {

struct RushFilter {
  /// How long ago a session may have been active last.
  enum class Window { hour, fourHours, today, all };
  /// What `projects` means: nothing, the only ones to deal, or those to leave out.
  enum class ProjectMode { all, only, except };

  static constexpr std::array windows = {
      Window::hour, Window::fourHours, Window::today, Window::all};
  static constexpr std::array projectModes = {
      ProjectMode::all, ProjectMode::only, ProjectMode::except};

  Window window = Window::fourHours;
  ProjectMode projectMode = ProjectMode::all;
  std::set<std::string> projects = {};      ///< project paths
  std::set<std::string> hiddenAgents = {};  ///< raw values such as "codex"
  bool needsYouOnly = false;

  /// True when nothing has been changed.
  bool isDefault() const { return *this == RushFilter{}; }

  /// True when the session may be dealt. The ages of one and of four hours still pass, and so does
  /// an activity in the future.
  bool matches(const AgentSession& session, Date now, const Calendar& calendar) const;

  /// `matches` in two steps, for long lists: asking the calendar costs more than everything else.
  /// The first gives the earliest activity that `window` lets through, the second takes it.
  Date earliestActivity(Date now, const Calendar& calendar) const;
  bool matchesSince(Date earliestActivity, const AgentSession& session) const;

  /// A JSON object of the five fields; nothing if a path is not valid UTF-8.
  std::optional<std::string> encoded() const;

  /// The filter that `encoded` wrote. Nothing at all unless each of the five keys is there with
  /// the right type and a known word; keys beyond the five are passed over.
  static std::optional<RushFilter> decoded(std::string_view json);

  friend bool operator==(const RushFilter&, const RushFilter&) = default;
};

/// "1 hour", "4 hours", "Today", "All".
std::string_view label(RushFilter::Window window);
/// "hour", "fourHours", "today", "all": the stored words.
std::string_view rawValue(RushFilter::Window window);

/// "All", "Only", "Except".
std::string_view label(RushFilter::ProjectMode mode);
/// "all", "only", "except": the stored words.
std::string_view rawValue(RushFilter::ProjectMode mode);

}  // namespace tessivane
