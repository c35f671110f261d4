#include "rush/RushFilter.h"

#include <nlohmann/json.hpp>

namespace tessivane {

namespace {

// The readers of one key each. They report whether the key was there with a usable value.

bool read(const nlohmann::json& object, const char* key, bool& flag) {
  const auto value = object.find(key);
  if (value == object.end() || !value->is_boolean())
    return false;
  flag = value->get<bool>();
  return true;
}

bool read(const nlohmann::json& object, const char* key, std::set<std::string>& texts) {
  const auto value = object.find(key);
  if (value == object.end() || !value->is_array())
    return false;
  for (const nlohmann::json& element : *value) {
    if (!element.is_string())
      return false;
    texts.insert(element.get<std::string>());
  }
  return true;
}

template <typename Choices, typename Choice>
bool read(const nlohmann::json& object, const char* key, const Choices& all, Choice& choice) {
  const auto value = object.find(key);
  if (value == object.end() || !value->is_string())
    return false;
  for (const Choice candidate : all) {
    if (value->get_ref<const std::string&>() != rawValue(candidate))
      continue;
    choice = candidate;
    return true;
  }
  return false;
}

}  // namespace

bool RushFilter::matches(const AgentSession& session, Date now, const Calendar& calendar) const {
  return matchesSince(earliestActivity(now, calendar), session);
}

Date RushFilter::earliestActivity(Date now, const Calendar& calendar) const {
  switch (window) {
    case Window::hour:
      return now - std::chrono::hours(1);
    case Window::fourHours:
      return now - std::chrono::hours(4);
    case Window::today:
      // A calendar that fails must not hide who waits.
      return calendar.startOfDay(now).value_or(Date::min());
    case Window::all:
      return Date::min();
  }
  return Date::min();
}

bool RushFilter::matchesSince(Date earliestActivity, const AgentSession& session) const {
  if (session.activity < earliestActivity)
    return false;
  if (!hiddenAgents.empty() && hiddenAgents.contains(std::string(rawValue(session.agent))))
    return false;
  if (needsYouOnly && session.status != SessionStatus::needsYou)
    return false;
  return projectMode == ProjectMode::all ||
         projects.contains(session.projectPath) == (projectMode == ProjectMode::only);
}

std::optional<std::string> RushFilter::encoded() const {
  const nlohmann::json object = {{"window", rawValue(window)},
                                 {"projectMode", rawValue(projectMode)},
                                 {"projects", projects},
                                 {"hiddenAgents", hiddenAgents},
                                 {"needsYouOnly", needsYouOnly}};
  try {
    return object.dump();
  } catch (const nlohmann::json::type_error&) {  // text that is not UTF-8
    return std::nullopt;
  }
}

std::optional<RushFilter> RushFilter::decoded(std::string_view json) {
  const auto object = nlohmann::json::parse(json, nullptr, /*allow_exceptions=*/false);
  RushFilter filter;
  if (object.is_object() && read(object, "window", windows, filter.window) &&
      read(object, "projectMode", projectModes, filter.projectMode) &&
      read(object, "projects", filter.projects) &&
      read(object, "hiddenAgents", filter.hiddenAgents) &&
      read(object, "needsYouOnly", filter.needsYouOnly))
    return filter;
  return std::nullopt;
}

std::string_view label(RushFilter::Window window) {
  switch (window) {
    case RushFilter::Window::hour:
      return "1 hour";
    case RushFilter::Window::fourHours:
      return "4 hours";
    case RushFilter::Window::today:
      return "Today";
    case RushFilter::Window::all:
      return "All";
  }
  return "";
}

std::string_view rawValue(RushFilter::Window window) {
  switch (window) {
    case RushFilter::Window::hour:
      return "hour";
    case RushFilter::Window::fourHours:
      return "fourHours";
    case RushFilter::Window::today:
      return "today";
    case RushFilter::Window::all:
      return "all";
  }
  return "";
}

std::string_view label(RushFilter::ProjectMode mode) {
  switch (mode) {
    case RushFilter::ProjectMode::all:
      return "All";
    case RushFilter::ProjectMode::only:
      return "Only";
    case RushFilter::ProjectMode::except:
      return "Except";
  }
  return "";
}

std::string_view rawValue(RushFilter::ProjectMode mode) {
  switch (mode) {
    case RushFilter::ProjectMode::all:
      return "all";
    case RushFilter::ProjectMode::only:
      return "only";
    case RushFilter::ProjectMode::except:
      return "except";
  }
  return "";
}

}  // namespace tessivane
