#include "sessions/RolloutTail.h"

#include <algorithm>
#include <span>

#include "sessions/AgentSession.h"
#include "support/Text.h"

namespace tessivane {

namespace {

// The parts of one record that are read; good until the reader's next visit.
struct Record {
  std::optional<JSONText> timestamp = {};
  std::optional<JSONText> type = {};
  std::optional<JSONText> event = {};
  std::optional<JSONText> lastAgentMessage = {};
};

void readPayload(JSONValue& payload, Record& record) {
  record.event.reset();
  record.lastAgentMessage.reset();
  payload.visitFields([&record](std::string_view key, JSONValue& value) {
    if (key == "type") {
      record.event = value.text();
    } else if (key == "last_agent_message") {
      record.lastAgentMessage = value.text();
    }
  });
}

std::optional<Record> readRecord(JSONReader& reader, PaddedLine line) {
  Record record;
  const bool whole = reader.visitPadded(line, [&record](std::string_view key, JSONValue& value) {
    if (key == "timestamp") {
      record.timestamp = value.text();
    } else if (key == "type") {
      record.type = value.text();
    } else if (key == "payload") {
      readPayload(value, record);
    }
  });
  if (!whole || !record.type)
    return std::nullopt;
  if (!record.type->is("event_msg"))
    record.event.reset();
  return record;
}

bool isOneOf(std::span<const std::string_view> names, std::string_view name) {
  return std::ranges::find(names, name) != names.end();
}

std::string messageOf(const Record& record) {
  if (!record.lastAgentMessage)
    return {};
  const std::string text = record.lastAgentMessage->decoded();
  return std::string(prefixCharacters(trimmed(text), AgentSession::maxMessageCharacters));
}

}  // namespace

RolloutTail RolloutTailReader::read(const std::string& path) {
  RolloutTail tail;
  TailLines lines = tailJSONLines(path, RolloutTail::maxBytes, buffer_);
  while (!tail.lifecycle) {
    const auto line = lines.next();
    if (!line)
      break;
    if (mayMatter(line->text, tail))
      take(*line, tail);
  }
  return tail;
}

// Most of a window is the output of a long turn. Parsing it would take longer than reading it.
bool RolloutTailReader::mayMatter(std::string_view line, const RolloutTail& tail) const {
  if (!tail.lastActivity)
    return records_.occursIn(line);
  const auto type = events_.find(line);
  if (!type)
    return false;
  // The way Codex writes an event, its name comes first; any other way, parsing will tell.
  constexpr std::string_view opening = R"("event_msg","payload":{"type":")";
  std::string_view rest = line.substr(*type);
  if (!rest.starts_with(opening))
    return true;
  rest.remove_prefix(opening.size());
  return isOneOf(RolloutTail::terminal, rest.substr(0, rest.find('"')));
}

void RolloutTailReader::take(PaddedLine line, RolloutTail& tail) {
  const auto record = readRecord(reader_, line);
  if (!record)
    return;
  const std::string event = record->event ? record->event->decoded() : std::string();
  const bool isActivity =
      record->type->is("response_item") || isOneOf(RolloutTail::activityEvents, event);
  if (!tail.lastActivity && isActivity && record->timestamp)
    tail.lastActivity = isoDate(record->timestamp->decoded());
  if (!isOneOf(RolloutTail::terminal, event))
    return;
  tail.lifecycle = event;
  tail.lastMessage = messageOf(*record);
}

}  // namespace tessivane
