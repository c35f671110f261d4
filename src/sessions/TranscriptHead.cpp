#include "sessions/TranscriptHead.h"

#include <cstddef>

#include "sessions/TranscriptEntry.h"
#include "support/ByteSearch.h"
#include "support/Text.h"

namespace tessivane {

namespace {

constexpr std::size_t maxPromptCharacters = 200;

// The name in the markup that a slash command leaves: "<command-message>name</command-message>…".
std::optional<std::string_view> commandName(std::string_view text) {
  constexpr std::string_view open = "<command-message>";
  constexpr std::string_view close = "</command-message>";
  if (!text.starts_with(open))
    return std::nullopt;
  const auto end = text.find(close, open.size());
  if (end == std::string_view::npos || end == open.size())
    return std::nullopt;
  return text.substr(open.size(), end - open.size());
}

std::optional<std::string> promptOf(const TranscriptEntry& entry) {
  if (entry.role != TranscriptEntry::Role::user || entry.isMeta)
    return std::nullopt;
  auto text = entry.contentText;
  if (!text) {
    const auto* block = entry.firstBlock(TranscriptBlock::Kind::text);
    if (block != nullptr)
      text = block->text;
  }
  if (!text)
    return std::nullopt;
  return promptTitle(text->decoded());
}

void take(const TranscriptEntry& entry, TranscriptHead& head) {
  if (!head.entrypoint && entry.entrypoint)
    head.entrypoint = entry.entrypoint->decoded();
  if (!head.cwd && entry.cwd)
    head.cwd = entry.cwd->decoded();
  if (!head.startedAt && entry.timestamp)
    head.startedAt = isoDate(entry.timestamp->escaped);
  if (!head.firstPrompt)
    head.firstPrompt = promptOf(entry);
}

bool isComplete(const TranscriptHead& head) {
  return head.entrypoint && head.cwd && head.startedAt && head.firstPrompt;
}

bool mayMatter(const TranscriptHead& head, std::string_view line) {
  static const NeedleSet prompt({"\"user\""});
  static const NeedleSet any({"\"user\"", "\"entrypoint\"", "\"cwd\"", "\"timestamp\""});
  const bool promptOnly = head.entrypoint && head.cwd && head.startedAt;
  return (promptOnly ? prompt : any).occursIn(line);
}

}  // namespace

TranscriptHead parseTranscriptHead(JSONReader& reader, HeadLines& lines) {
  TranscriptHead head;
  TranscriptEntry entry;
  while (!isComplete(head)) {
    const auto line = lines.next();
    if (!line)
      break;
    if (mayMatter(head, line->text) && parseTranscriptEntry(reader, *line, entry)) {
      take(entry, head);
    }
  }
  return head;
}

std::optional<std::string> promptTitle(std::string_view text) {
  if (const auto command = commandName(text))
    return "/" + std::string(*command);
  if (text.starts_with('<'))
    return std::nullopt;
  const std::string line = collapsedWhitespace(text);
  if (line.empty())
    return std::nullopt;
  return std::string(prefixCharacters(line, maxPromptCharacters));
}

}  // namespace tessivane
