#include "sessions/TranscriptEntry.h"

#include <algorithm>
#include <string_view>

namespace tessivane {

namespace {

// The "text" of the first text block in a tool result's own content list.
std::optional<JSONText> firstTextIn(JSONValue& list) {
  std::optional<JSONText> found;
  bool done = false;
  list.visitElements([&](JSONValue& element) {
    if (done)
      return;
    bool isText = false;
    std::optional<JSONText> text;
    element.visitFields([&](std::string_view key, JSONValue& value) {
      if (key == "type") {
        const auto type = value.text();
        isText = type && type->is("text");
      } else if (key == "text") {
        text = value.text();
      }
    });
    if (!isText)
      return;
    found = text;
    done = true;
  });
  return found;
}

TranscriptBlock::Kind blockKind(const std::optional<JSONText>& type) {
  if (!type)
    return TranscriptBlock::Kind::other;
  if (type->is("text"))
    return TranscriptBlock::Kind::text;
  if (type->is("tool_use"))
    return TranscriptBlock::Kind::toolUse;
  if (type->is("tool_result"))
    return TranscriptBlock::Kind::toolResult;
  return TranscriptBlock::Kind::other;
}

TranscriptBlock parseBlock(JSONValue& element) {
  std::optional<JSONText> type;
  std::optional<JSONText> text;
  std::optional<JSONText> content;
  TranscriptBlock block;
  element.visitFields([&](std::string_view key, JSONValue& value) {
    if (key == "type") {
      type = value.text();
    } else if (key == "text") {
      text = value.text();
    } else if (key == "name") {
      block.name = value.text();
    } else if (key == "content") {
      content = value.kind() == JSONValue::Kind::array ? firstTextIn(value) : value.text();
    }
  });
  block.kind = blockKind(type);
  if (block.kind == TranscriptBlock::Kind::text)
    block.text = text;
  if (block.kind == TranscriptBlock::Kind::toolResult)
    block.text = content;
  return block;
}

void parseMessage(JSONValue& message, TranscriptEntry& entry) {
  message.visitFields([&entry](std::string_view key, JSONValue& value) {
    if (key == "model") {
      entry.model = value.text();
    } else if (key == "content") {
      entry.contentText = value.text();
      value.visitElements(
          [&entry](JSONValue& element) { entry.blocks.push_back(parseBlock(element)); });
    }
  });
}

TranscriptEntry::Role roleNamed(const std::optional<JSONText>& type) {
  if (type && type->is("user"))
    return TranscriptEntry::Role::user;
  if (type && type->is("assistant"))
    return TranscriptEntry::Role::assistant;
  return TranscriptEntry::Role::other;
}

void clear(TranscriptEntry& entry) {
  std::vector<TranscriptBlock> blocks = std::move(entry.blocks);
  blocks.clear();
  entry = TranscriptEntry{};
  entry.blocks = std::move(blocks);
}

}  // namespace

bool TranscriptEntry::isInterruptMarker() const {
  if (role != Role::user)
    return false;
  const auto isMarker = [](const JSONText& text) {
    return text.startsWith("[Request interrupted by user") ||
           text.startsWith("Tool permission request failed");
  };
  if (contentText)
    return isMarker(*contentText);
  bool any = false;
  for (const TranscriptBlock& block : blocks) {
    if (!block.text)
      continue;
    if (!isMarker(*block.text))
      return false;
    any = true;
  }
  return any;
}

const TranscriptBlock* TranscriptEntry::firstBlock(TranscriptBlock::Kind kind) const {
  const auto found = std::find_if(
      blocks.begin(), blocks.end(), [kind](const auto& block) { return block.kind == kind; });
  return found == blocks.end() ? nullptr : &*found;
}

bool parseTranscriptEntry(JSONReader& reader, PaddedLine line, TranscriptEntry& entry) {
  clear(entry);
  return reader.visitPadded(line, [&entry](std::string_view key, JSONValue& value) {
    if (key == "type") {
      entry.role = roleNamed(value.text());
    } else if (key == "message") {
      parseMessage(value, entry);
    } else if (key == "timestamp") {
      entry.timestamp = value.text();
    } else if (key == "entrypoint") {
      entry.entrypoint = value.text();
    } else if (key == "cwd") {
      entry.cwd = value.text();
    } else if (key == "isMeta") {
      entry.isMeta = value.boolean().value_or(false);
    } else if (key == "customTitle") {
      entry.customTitle = value.text();
    } else if (key == "aiTitle") {
      entry.aiTitle = value.text();
    } else if (key == "permissionMode") {
      entry.permissionMode = value.text();
    }
  });
}

}  // namespace tessivane
