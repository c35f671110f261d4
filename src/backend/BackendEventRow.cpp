#include "backend/BackendEventRow.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "support/Paths.h"

namespace tessivane {

namespace {

std::optional<std::string> textOf(const StatementRow& row, std::string_view column) {
  const auto text = row.text(column);
  if (!text)
    return std::nullopt;
  return std::string(*text);
}

std::optional<Agent> agentOf(const StatementRow& row, std::string_view column) {
  const auto text = row.text(column);
  for (const Agent agent : allAgents) {
    if (text == rawValue(agent))
      return agent;
  }
  return std::nullopt;
}

// A session has moments of its own, which have no ref but the one made for their row.
bool hasRef(ActivityKind kind) {
  return kind != ActivityKind::needsYou && kind != ActivityKind::finished;
}

}  // namespace

std::string BackendEventRow::projectName(std::string_view root) {
  const auto name = lastPathComponent(root);
  return std::string(name.empty() ? "~" : name);
}

std::string BackendEventRow::id(ActivityKind kind, std::string_view root, std::string_view ref) {
  std::string id(rawValue(kind));
  id += ':';
  id += root;
  id += ':';
  id += ref;
  return id;
}

std::string BackendEventRow::refColumn(const ActivityEvent& event) {
  if (event.ref)
    return *event.ref;
  const auto age = event.date.time_since_epoch();
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(age).count();
  return event.sessionID.value_or("-") + "@" + std::to_string(seconds);
}

std::int64_t BackendEventRow::minute(Date date) {
  return std::chrono::floor<std::chrono::minutes>(date.time_since_epoch()).count();
}

std::vector<std::string> BackendEventRow::paths(std::string_view column) {
  std::vector<std::string> paths;
  while (!column.empty() && paths.size() < maxPaths) {
    const auto line = column.substr(0, column.find('\n'));
    if (!line.empty())
      paths.emplace_back(line);
    column.remove_prefix(std::min(line.size() + 1, column.size()));
  }
  return paths;
}

std::optional<ActivityEvent> BackendEventRow::event(const StatementRow& row) {
  const auto kindName = row.text("kind");
  const auto root = row.text("root");
  const auto ref = row.text("ref");
  const auto seconds = row.real("ts");
  if (!kindName || !root || !ref || !seconds)
    return std::nullopt;
  const auto kind = activityKind(*kindName);
  const auto date = dateFromSeconds(*seconds);
  if (!kind || !date)
    return std::nullopt;
  return ActivityEvent{.id = id(*kind, *root, *ref),
                       .kind = *kind,
                       .date = *date,
                       .projectRoot = std::string(*root),
                       .projectName = projectName(*root),
                       .sessionID = textOf(row, "session_id"),
                       .sessionTitle = textOf(row, "session_title"),
                       .owner = agentOf(row, "owner"),
                       .engine = agentOf(row, "engine"),
                       .ref = hasRef(*kind) ? std::optional<std::string>(*ref) : std::nullopt,
                       .title = textOf(row, "title").value_or(""),
                       .detail = textOf(row, "detail"),
                       .branch = textOf(row, "branch")};
}

std::optional<EditBucket> BackendEventRow::bucket(const StatementRow& row) {
  const auto root = row.text("root");
  const auto minute = row.integer("minute");
  const auto files = row.integer("files");
  const auto start = minute ? dateFromSeconds(static_cast<double>(*minute) * 60) : std::nullopt;
  if (!root || !start || !files)
    return std::nullopt;
  auto sessionID = textOf(row, "session_id");
  if (sessionID && sessionID->empty())
    sessionID.reset();
  return EditBucket{.projectRoot = std::string(*root),
                    .projectName = projectName(*root),
                    .sessionID = std::move(sessionID),
                    .start = *start,
                    .files = *files,
                    .paths = paths(row.text("paths").value_or(""))};
}

}  // namespace tessivane
