#include "sessions/ClaudeDesktopMetadata.h"

#include <array>
#include <utility>

namespace tessivane {

namespace {

std::optional<std::string> textOf(JSONValue& value) {
  const auto text = value.text();
  if (!text)
    return std::nullopt;
  return text->decoded();
}

std::optional<Date> millisecondsOf(JSONValue& value) {
  if (const auto number = value.number())
    return msDate(*number);
  if (const auto text = value.text())
    return msDate(text->decoded());
  return std::nullopt;
}

bool isSet(JSONValue& value) {
  const auto kind = value.kind();
  if (kind == JSONValue::Kind::null || kind == JSONValue::Kind::broken)
    return false;
  return value.boolean().value_or(true);
}

using TextField = std::optional<std::string> ClaudeDesktopMetadata::*;

constexpr std::array<std::pair<std::string_view, TextField>, 7> textFields = {{
    {"cliSessionId", &ClaudeDesktopMetadata::cliSessionID},
    {"sessionId", &ClaudeDesktopMetadata::sessionID},
    {"title", &ClaudeDesktopMetadata::title},
    {"cwd", &ClaudeDesktopMetadata::cwd},
    {"originCwd", &ClaudeDesktopMetadata::originCwd},
    {"model", &ClaudeDesktopMetadata::model},
    {"permissionMode", &ClaudeDesktopMetadata::permissionMode},
}};

void take(std::string_view key, JSONValue& value, ClaudeDesktopMetadata& metadata) {
  if (key == "lastActivityAt") {
    metadata.lastActivityAt = millisecondsOf(value);
  } else if (key == "createdAt") {
    metadata.createdAt = millisecondsOf(value);
  } else if (key == "isArchived") {
    metadata.isArchived = value.boolean().value_or(false);
  } else if (key == "interruptedAwaitingPerson") {
    metadata.awaitsPerson = isSet(value);
  } else {
    for (const auto& [name, field] : textFields) {
      if (key == name)
        metadata.*field = textOf(value);
    }
  }
}

}  // namespace

std::optional<ClaudeDesktopMetadata> parseClaudeDesktopMetadata(JSONReader& reader,
                                                                std::string_view text) {
  ClaudeDesktopMetadata metadata;
  const bool whole = reader.visit(
      text, [&metadata](std::string_view key, JSONValue& value) { take(key, value, metadata); });
  if (!whole)
    return std::nullopt;
  return metadata;
}

}  // namespace tessivane
