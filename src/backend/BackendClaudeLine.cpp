#include "backend/BackendClaudeLine.h"

#include <cmath>
#include <string_view>

namespace tessivane {

namespace {

// The integers that a JSON number holds exactly.
constexpr double maxInteger = 9007199254740992;

std::optional<std::int64_t> integer(JSONValue& value) {
  const auto number = value.number();
  if (!number || std::trunc(*number) != *number || std::abs(*number) > maxInteger)
    return std::nullopt;
  return static_cast<std::int64_t>(*number);
}

// Visits the elements of an array. False, and then nothing counts, when one is no object.
template <typename Visitor>
bool visitObjects(JSONValue& array, Visitor visitor) {
  bool allObjects = true;
  const bool isArray = array.visitElements([&](JSONValue& element) {
    allObjects = allObjects && element.kind() == JSONValue::Kind::object;
    if (allObjects)
      visitor(element);
  });
  return isArray && allObjects;
}

std::vector<JSONText> textsOf(JSONValue& content) {
  if (const auto text = content.text())
    return {*text};
  std::vector<JSONText> texts;
  const bool counts = visitObjects(content, [&texts](JSONValue& element) {
    element.visitFields([&texts](std::string_view key, JSONValue& value) {
      const auto text = key == "text" ? value.text() : std::nullopt;
      if (text)
        texts.push_back(*text);
    });
  });
  return counts ? texts : std::vector<JSONText>{};
}

BackendClaudeBlock::Kind kindNamed(const std::optional<JSONText>& type) {
  if (type && type->is("tool_use"))
    return BackendClaudeBlock::Kind::toolUse;
  if (type && type->is("tool_result"))
    return BackendClaudeBlock::Kind::toolResult;
  return BackendClaudeBlock::Kind::other;
}

void parseInput(JSONValue& input, BackendClaudeBlock& block) {
  input.visitFields([&block](std::string_view key, JSONValue& value) {
    if (key == "file_path")
      block.filePath = value.text();
    else if (key == "command")
      block.command = value.text();
  });
}

BackendClaudeBlock parseBlock(JSONValue& element) {
  BackendClaudeBlock block;
  element.visitFields([&block](std::string_view key, JSONValue& value) {
    if (key == "type")
      block.kind = kindNamed(value.text());
    else if (key == "id")
      block.id = value.text();
    else if (key == "name")
      block.name = value.text();
    else if (key == "input")
      parseInput(value, block);
    else if (key == "tool_use_id")
      block.toolUseID = value.text();
    else if (key == "is_error")
      block.isError = value.boolean().value_or(false);
    else if (key == "content")
      block.texts = textsOf(value);
  });
  return block;
}

void parseContent(JSONValue& content, BackendClaudeLine& line) {
  line.contentText = content.text();
  line.blocks.clear();
  const bool counts = visitObjects(
      content, [&line](JSONValue& element) { line.blocks.push_back(parseBlock(element)); });
  if (!counts)
    line.blocks.clear();
}

void parsePull(JSONValue& pull, BackendClaudeLine& line) {
  pull.visitFields([&line](std::string_view key, JSONValue& value) {
    if (key == "number")
      line.pullNumber = integer(value);
    else if (key == "url")
      line.pullURL = value.text();
  });
}

void parseReadFile(JSONValue& file, BackendClaudeLine& line) {
  file.visitFields([&line](std::string_view key, JSONValue& value) {
    if (key == "filePath")
      line.readPath = value.text();
    else if (key == "content")
      line.readContent = value.text();
  });
}

void parseResult(JSONValue& result, BackendClaudeLine& line) {
  result.visitFields([&line](std::string_view key, JSONValue& value) {
    if (key == "backgroundTaskId") {
      line.backgroundTaskID = value.text();
    } else if (key == "gitOperation") {
      value.visitFields([&line](std::string_view name, JSONValue& operation) {
        if (name == "pr")
          parsePull(operation, line);
      });
    } else if (key == "file") {
      parseReadFile(value, line);
    }
  });
}

BackendClaudeLine::Type typeNamed(const std::optional<JSONText>& type) {
  if (type && type->is("user"))
    return BackendClaudeLine::Type::user;
  if (type && type->is("assistant"))
    return BackendClaudeLine::Type::assistant;
  return BackendClaudeLine::Type::other;
}

}  // namespace

std::string BackendClaudeBlock::text() const {
  std::string joined;
  for (const JSONText& piece : texts) {
    if (&piece != texts.data())
      joined += '\n';
    joined += piece.decoded();
  }
  return joined;
}

BackendGHCommand::GitOperation BackendClaudeLine::gitOperation() const {
  return {.number = pullNumber, .url = pullURL ? std::optional(pullURL->decoded()) : std::nullopt};
}

std::optional<BackendClaudeLine> BackendClaudeLine::parse(JSONReader& reader,
                                                          std::string_view line) {
  BackendClaudeLine parsed;
  const bool whole = reader.visit(line, [&parsed](std::string_view key, JSONValue& value) {
    if (key == "type") {
      parsed.type = typeNamed(value.text());
    } else if (key == "timestamp") {
      parsed.timestamp = value.text();
    } else if (key == "toolUseResult") {
      parseResult(value, parsed);
    } else if (key == "message") {
      value.visitFields([&parsed](std::string_view name, JSONValue& content) {
        if (name == "content")
          parseContent(content, parsed);
      });
    }
  });
  return whole ? std::optional(std::move(parsed)) : std::nullopt;
}

}  // namespace tessivane
