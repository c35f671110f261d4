#include "sessions/TranscriptTail.h"

#include <cstddef>
#include <vector>

#include "sessions/AgentSession.h"
#include "support/ByteSearch.h"
#include "support/Text.h"

namespace tessivane {

namespace {

std::optional<Date> dateOf(const TranscriptEntry& entry) {
  if (!entry.timestamp)
    return std::nullopt;
  return isoDate(entry.timestamp->escaped);
}

std::optional<std::string> decoded(const std::optional<JSONText>& text) {
  if (!text)
    return std::nullopt;
  return text->decoded();
}

// What a line must hold somewhere to be worth parsing, for each combination of needs.
constexpr std::size_t needMessage = 1;
constexpr std::size_t needAssistant = 2;
constexpr std::size_t needTitle = 4;
constexpr std::size_t needMode = 8;

constexpr std::size_t needCombinations = 16;

NeedleSet makeNeedles(std::size_t needs) {
  // A set ignores the empty needle.
  const auto wanted = [needs](std::size_t need, std::string_view needle) {
    return (needs & need) != 0 ? needle : std::string_view();
  };
  return NeedleSet({wanted(needMessage, "\"user\""),
                    wanted(needMessage | needAssistant, "\"assistant\""),
                    wanted(needTitle, "Title\""),
                    wanted(needMode, "\"permissionMode\"")});
}

const NeedleSet& needlesFor(std::size_t needs) {
  static const auto sets = [] {
    std::vector<NeedleSet> made;
    for (std::size_t i = 0; i < needCombinations; ++i)
      made.push_back(makeNeedles(i));
    return made;
  }();
  return sets[needs];
}

}  // namespace

bool TranscriptTailParser::isComplete() const {
  return !needsMessage() && !needsAssistant() && tail_.title && tail_.permissionMode;
}

bool TranscriptTailParser::mayMatter(std::string_view line) const {
  std::size_t needs = 0;
  if (needsMessage())
    needs |= needMessage;
  if (needsAssistant())
    needs |= needAssistant;
  if (!tail_.title)
    needs |= needTitle;
  if (!tail_.permissionMode)
    needs |= needMode;
  return needlesFor(needs).occursIn(line);
}

void TranscriptTailParser::add(JSONReader& reader, PaddedLine line) {
  if (mayMatter(line.text) && parseTranscriptEntry(reader, line, entry_))
    take(entry_);
}

void TranscriptTailParser::take(const TranscriptEntry& entry) {
  if (entry.isMessage())
    takeMessage(entry);
  if (entry.role == TranscriptEntry::Role::assistant)
    takeAssistant(entry);
  if (!tail_.title)
    tail_.title = decoded(entry.customTitle ? entry.customTitle : entry.aiTitle);
  if (!tail_.permissionMode)
    tail_.permissionMode = decoded(entry.permissionMode);
}

void TranscriptTailParser::takeMessage(const TranscriptEntry& entry) {
  if (!hasLast_) {
    hasLast_ = true;
    tail_.lastMessageDate = dateOf(entry);
    tail_.interrupted = entry.isInterruptMarker();
    needsDate_ = tail_.interrupted;
    tail_.lastIsAssistant = entry.role == TranscriptEntry::Role::assistant;
    const auto* call = entry.firstBlock(TranscriptBlock::Kind::toolUse);
    if (tail_.lastIsAssistant && call != nullptr) {
      tail_.pendingTool = decoded(call->name).value_or("tool");
    }
  } else if (needsDate_ && !entry.isInterruptMarker()) {
    needsDate_ = false;
    tail_.lastMessageDate = dateOf(entry);
  }
}

void TranscriptTailParser::takeAssistant(const TranscriptEntry& entry) {
  if (!hasModel_) {
    hasModel_ = true;
    tail_.model = decoded(entry.model);
  }
  if (!tail_.lastText.empty())
    return;
  const auto* block = entry.firstBlock(TranscriptBlock::Kind::text);
  if (block == nullptr || !block->text)
    return;
  const std::string text = block->text->decoded();
  tail_.lastText = prefixCharacters(trimmed(text), AgentSession::maxMessageCharacters);
}

TranscriptTail parseTranscriptTail(JSONReader& reader, TailLines& lines) {
  TranscriptTailParser parser;
  while (!parser.isComplete()) {
    const auto line = lines.next();
    if (!line)
      break;
    parser.add(reader, *line);
  }
  return parser.tail();
}

}  // namespace tessivane
