#include "backend/BackendClaudeSubagents.h"

#include <array>
#include <string_view>
#include <utility>

#include "backend/BackendEventStore.h"
#include "backend/BackendSessionEvent.h"
#include "support/Paths.h"

namespace tessivane {

namespace {

constexpr std::string_view transcriptSuffix = ".jsonl";
constexpr std::string_view agentPrefix = "agent-";

// File clocks tick in milliseconds. A name that comes within the tick of our look leaves the
// directory's date as it is, so a young date proves nothing.
constexpr std::chrono::seconds settlingTime{1};

std::string withoutSuffix(std::string_view path) {
  path.remove_suffix(transcriptSuffix.size());
  return std::string(path);
}

std::string readHead(const std::string& path, std::size_t maxBytes) {
  const auto file = RegularFile::open(path);
  std::string head(file ? maxBytes : 0, '\0');
  head.resize(file ? file->read(head.data(), head.size(), 0).value_or(0) : 0);
  return head;
}

// In a line that is cut off or is no JSON, and in the lines behind a first one without a date.
std::optional<Date> spelledTimestamp(std::string_view text) {
  constexpr std::string_view key = R"("timestamp":")";
  const auto begin = text.find(key);
  if (begin == std::string_view::npos)
    return std::nullopt;
  text.remove_prefix(begin + key.size());
  return isoDate(text.substr(0, text.find('"')));
}

}  // namespace

std::vector<ActivityEvent> BackendClaudeSubagents::events(const std::vector<AgentSession>& sessions,
                                                          Date now) {
  std::vector<ActivityEvent> events;
  for (const AgentSession& session : sessions) {
    if (session.agent != Agent::claude || !session.transcriptPath ||
        !session.transcriptPath->ends_with(transcriptSuffix)) {
      continue;
    }
    const std::string folder = joinedPath(withoutSuffix(*session.transcriptPath), "subagents");
    const auto stamp = directoryStamp(folder);
    const auto known = folderStamps_.find(folder);
    if (!stamp || (known != folderStamps_.end() && known->second == *stamp))
      continue;
    const auto files = filesInDirectory(folder, transcriptSuffix);
    addEvents(session, folder, files, now, events);
    // A directory that seems empty may be one that could not be listed.
    if (!files.empty() && now - stamp->modificationDate() >= settlingTime)
      folderStamps_[folder] = *stamp;
  }
  return events;
}

void BackendClaudeSubagents::addEvents(const AgentSession& parent,
                                       const std::string& folder,
                                       const std::vector<NamedStamp>& files,
                                       Date now,
                                       std::vector<ActivityEvent>& events) {
  const Date since = now - BackendEventStore::window;
  for (const NamedStamp& file : files) {
    const std::string path = joinedPath(folder, file.name);
    const Date modified = file.stamp.modificationDate();
    if (!file.name.starts_with(agentPrefix) || modified < since || handled_.contains(path))
      continue;
    const Date start = firstTimestamp(path).value_or(modified);
    if (start < since)
      continue;
    handled_.insert(path);
    auto event = BackendSessionEvent::started(
        parent, parent.id() + "/" + withoutSuffix(file.name), start, now);
    event.title = title(withoutSuffix(path) + ".meta.json");
    event.detail = rawValue(SessionKind::subagent);
    events.push_back(std::move(event));
  }
}

std::optional<Date> BackendClaudeSubagents::firstTimestamp(const std::string& path) {
  const std::string head = readHead(path, maxHeadBytes);
  const auto firstLine = std::string_view(head).substr(0, head.find('\n'));
  std::optional<Date> date;
  const bool whole = reader_.visit(firstLine, [&date](std::string_view key, JSONValue& value) {
    const auto text = key == "timestamp" ? value.text() : std::nullopt;
    if (text)
      date = isoDate(text->decoded());
  });
  return whole && date ? date : spelledTimestamp(head);
}

std::string BackendClaudeSubagents::title(const std::string& meta) {
  std::string description;
  std::string type;
  const auto text = readWholeFile(meta, maxMetaBytes);
  const bool whole = text && reader_.visit(*text, [&](std::string_view key, JSONValue& value) {
    if (key != "description" && key != "agentType")
      return;
    if (const auto found = value.text())
      (key == "description" ? description : type) = found->decoded();
  });
  if (whole && !description.empty())
    return description;
  return whole && !type.empty() ? type : "Subagent";
}

}  // namespace tessivane
