#include "backend/BackendCodexScanner.h"

#include <algorithm>
#include <optional>
#include <string>
#include <utility>

#include "backend/BackendBytes.h"
#include "backend/BackendGHCommand.h"
#include "support/ByteSearch.h"
#include "support/JSON.h"

namespace tessivane {

namespace {

constexpr std::string_view ghPR = "gh pr ";
constexpr std::string_view fileChange = "\"FileChange\"";

// A completed item, as far as it is of use. The texts are borrowed from the line.
struct Item {
  std::optional<JSONText> timestamp = {};
  std::optional<JSONText> payloadType = {};
  std::optional<Date> completed = {};
  std::optional<JSONText> type = {};
  std::optional<JSONText> id = {};
  std::vector<JSONText> command = {};  // its words, or all of it as one
  std::optional<JSONText> output = {};
  std::optional<double> exitCode = {};
  std::vector<std::string> changedPaths = {};
};

// A line that may hold an item of use; which lines do is seen without parsing them.
bool isCandidate(std::string_view line) {
  return BackendBytes::contains("\"item_completed\"", line) &&
         (BackendBytes::contains(fileChange, line) ||
          BackendBytes::contains("\"CommandExecution\"", line));
}

std::vector<JSONText> wordsOf(JSONValue& command) {
  if (const auto text = command.text())
    return {*text};
  std::vector<JSONText> words;
  bool allTexts = true;
  command.visitElements([&](JSONValue& element) {
    const auto word = element.text();
    allTexts = allTexts && word;
    if (allTexts)
      words.push_back(*word);
  });
  return allTexts ? words : std::vector<JSONText>{};
}

std::vector<std::string> keysOf(JSONValue& changes) {
  std::vector<std::string> keys;
  changes.visitFields([&keys](std::string_view key, JSONValue& /*change*/) {
    keys.push_back(JSONText{key}.decoded());
  });
  std::ranges::sort(keys);
  keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
  return keys;
}

void parseItem(JSONValue& value, Item& item) {
  value.visitFields([&item](std::string_view key, JSONValue& field) {
    if (key == "type")
      item.type = field.text();
    else if (key == "id")
      item.id = field.text();
    else if (key == "command")
      item.command = wordsOf(field);
    else if (key == "aggregated_output")
      item.output = field.text();
    else if (key == "exit_code")
      item.exitCode = field.number();
    else if (key == "changes")
      item.changedPaths = keysOf(field);
  });
}

void parsePayload(JSONValue& payload, Item& item) {
  payload.visitFields([&item](std::string_view key, JSONValue& value) {
    if (key == "type") {
      item.payloadType = value.text();
    } else if (key == "item") {
      parseItem(value, item);
    } else if (key == "completed_at_ms") {
      const auto milliseconds = value.number();
      const auto text = value.text();
      item.completed = milliseconds ? msDate(*milliseconds)
                       : text       ? msDate(text->decoded())
                                    : std::nullopt;
    }
  });
}

bool parseLine(JSONReader& reader, std::string_view line, Item& item) {
  const bool whole = reader.visit(line, [&item](std::string_view key, JSONValue& value) {
    if (key == "timestamp")
      item.timestamp = value.text();
    else if (key == "payload")
      parsePayload(value, item);
  });
  return whole && item.payloadType && item.payloadType->is("item_completed") && item.type;
}

std::optional<BackendPRFinding> pullRequest(const Item& item, Date date) {
  if (!item.exitCode || *item.exitCode != 0)
    return std::nullopt;
  std::string line;
  for (const JSONText& word : item.command) {
    if (&word != item.command.data())
      line += ' ';
    line += word.decoded();
  }
  const auto command = BackendGHCommand::parse(line);
  if (!command)
    return std::nullopt;
  return command->finding(item.output ? item.output->decoded() : std::string(), {}, date);
}

void handle(const Item& item, Date now, std::vector<BackendFinding>& findings) {
  const auto written = item.timestamp ? isoDate(item.timestamp->decoded()) : std::nullopt;
  const Date date = written.value_or(item.completed.value_or(now));
  if (item.type->is("CommandExecution")) {
    if (auto finding = pullRequest(item, date))
      findings.emplace_back(std::move(*finding));
  } else if (item.type->is("FileChange") && item.id && !item.changedPaths.empty()) {
    // Also one that was declined or failed: an edit is what the agent set out to do, as with the
    // other tools, whose calls stand in the transcript before anyone has agreed to them.
    findings.emplace_back(BackendEditFinding{
        .key = "native:" + item.id->decoded(), .paths = item.changedPaths, .date = date});
  }
}

}  // namespace

std::vector<BackendFinding> BackendCodexScanner::scan(std::string_view lines, Date now) const {
  // The rarer of the texts that a line must hold; the others stand in every other line.
  static const NeedleSet needles{ghPR, fileChange};
  JSONReader reader;
  std::vector<BackendFinding> findings;
  std::string_view rest = lines;
  while (const auto at = needles.find(rest)) {
    const std::string_view line = BackendBytes::lineAround(rest, *at);
    Item item;
    if (isCandidate(line) && parseLine(reader, line, item))
      handle(item, now, findings);
    const auto end = static_cast<std::size_t>(line.data() - rest.data()) + line.size();
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  return findings;
}

}  // namespace tessivane
