#include "backend/BackendClaudeScanner.h"

#include <algorithm>
#include <array>
#include <utility>

#include "backend/BackendBytes.h"
#include "support/ByteSearch.h"
#include "support/Files.h"
#include "support/RegularExpression.h"
#include "support/Text.h"

namespace tessivane {

namespace {

constexpr std::size_t typeWindow = 64;
constexpr std::string_view toolUseID = "\"tool_use_id\":\"";
constexpr std::string_view taskNotification = "<task-notification>";
constexpr std::string_view gitBranch = "\"gitBranch\":\"";
constexpr std::array<std::string_view, 3> editTools = {"Edit", "Write", "MultiEdit"};

// A line that begins with one of these is a copy of what was sent to the model. It may hold any of
// the texts below and be megabytes long.
bool isRequestCopy(std::string_view line) {
  static const NeedleSet apiRequest{"\"type\":\"api-request-blob\"",
                                    "\"type\":\"api-request-shape\""};
  return apiRequest.occursIn(line.substr(0, typeWindow));
}

bool isEdit(const BackendClaudeBlock& block) {
  return block.filePath && std::ranges::any_of(editTools, [&block](std::string_view name) {
           return block.name->is(name);
         });
}

// The branch that the line itself names. Lines may carry other messages, which name theirs.
std::optional<std::string> branchNamedBy(JSONReader& reader, std::string_view line) {
  std::optional<JSONText> named;
  const bool whole = reader.visit(line, [&named](std::string_view key, JSONValue& value) {
    if (key == "gitBranch")
      named = value.text();
  });
  if (!whole || !named || named->escaped.empty())
    return std::nullopt;
  return named->decoded();
}

// The branch that was named last. Bookkeeping, which often stands behind the last message, names
// none.
std::optional<std::string> lastBranch(JSONReader& reader, std::string_view lines) {
  std::optional<std::string> named;
  while (!named && !lines.empty()) {
    const std::string_view line = BackendBytes::lastLine(lines);
    if (BackendBytes::contains(gitBranch, line))
      named = branchNamedBy(reader, line);
    lines =
        lines.substr(0, line.empty() ? 0 : static_cast<std::size_t>(line.data() - lines.data()));
  }
  return named;
}

std::string readOutput(const std::string& path) {
  const auto file = RegularFile::open(path);
  if (!file || file->stamp().size <= 0)
    return {};
  std::string text(static_cast<std::size_t>(
                       std::min<std::int64_t>(file->stamp().size, BackendClaudeScanner::maxOutput)),
                   '\0');
  text.resize(file->read(text.data(), text.size(), 0).value_or(0));
  return repairedUTF8(text);
}

template <typename Command>
void remember(std::map<std::string, Command>& commands, std::string id, Command command) {
  if (commands.size() >= BackendClaudeScanner::maxWaiting)
    commands.clear();
  commands.insert_or_assign(std::move(id), std::move(command));
}

}  // namespace

std::vector<BackendFinding> BackendClaudeScanner::scan(std::string_view lines, Date now) {
  JSONReader reader;
  std::string_view rest = lines;
  while (const auto at = findCandidate(rest)) {
    const std::string_view line = BackendBytes::lineAround(rest, *at);
    if (isInteresting(line)) {
      if (const auto parsed = BackendClaudeLine::parse(reader, line))
        handle(*parsed, now);
    }
    const auto end = static_cast<std::size_t>(line.data() - rest.data()) + line.size();
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  if (auto named = lastBranch(reader, lines))
    branch_ = std::move(named);
  return std::exchange(findings_, {});
}

// Where the next line may be that is of interest. Each text that makes a line so holds one of the
// few that are searched for here: every one less is seen in the speed.
std::optional<std::size_t> BackendClaudeScanner::findCandidate(std::string_view lines) const {
  static const NeedleSet always{"gh pr ", "Edit\"", "Write\""};
  static const NeedleSet waiting{"gh pr ", "Edit\"", "Write\"", toolUseID, taskNotification};
  return (pending_.empty() && background_.empty() ? always : waiting).find(lines);
}

// Which lines are depends on what is waited for.
bool BackendClaudeScanner::isInteresting(std::string_view line) const {
  static const NeedleSet needles{"gh pr create",
                                 "gh pr merge",
                                 "\"name\":\"Edit\"",
                                 "\"name\":\"Write\"",
                                 "\"name\":\"MultiEdit\""};
  if (isRequestCopy(line))
    return false;
  if (needles.occursIn(line))
    return true;
  const bool isWaiting = !pending_.empty() || !background_.empty();
  return (isWaiting && BackendBytes::contains(toolUseID, line)) ||
         (!background_.empty() && BackendBytes::contains(taskNotification, line));
}

void BackendClaudeScanner::handle(const BackendClaudeLine& line, Date now) {
  const Date date =
      (line.timestamp ? isoDate(line.timestamp->decoded()) : std::nullopt).value_or(now);
  if (line.type == BackendClaudeLine::Type::assistant) {
    for (const BackendClaudeBlock& block : line.blocks) {
      if (block.kind == BackendClaudeBlock::Kind::toolUse && block.id && block.name)
        handleToolUse(block, date);
    }
  }
  if (line.type != BackendClaudeLine::Type::user)
    return;
  if (!background_.empty() && line.contentText)
    handleNotification(line.contentText->decoded(), date);
  for (const BackendClaudeBlock& block : line.blocks) {
    if (block.kind == BackendClaudeBlock::Kind::toolResult && block.toolUseID)
      handleResult(block, line, date);
  }
}

void BackendClaudeScanner::handleToolUse(const BackendClaudeBlock& block, Date date) {
  if (isEdit(block)) {
    findings_.emplace_back(BackendEditFinding{.key = "native:" + block.id->decoded(),
                                              .paths = {block.filePath->decoded()},
                                              .date = date});
    return;
  }
  // Whatever the tool is called: clients have had several that run a command.
  if (!block.command)
    return;
  if (auto command = BackendGHCommand::parse(block.command->decoded()))
    remember(pending_, block.id->decoded(), std::move(*command));
}

void BackendClaudeScanner::handleResult(const BackendClaudeBlock& block,
                                        const BackendClaudeLine& line,
                                        Date date) {
  static const RegularExpression outputPath(R"re(Output is being written to: (\S+\.output))re");
  std::string id = block.toolUseID->decoded();
  const auto waiting = pending_.extract(id);
  if (waiting.empty()) {
    handleReadOfOutput(line, date);
    return;
  }
  if (block.isError)
    return;
  const std::string text = block.text();
  if (!line.backgroundTaskID) {
    tell(waiting.mapped().finding(text, line.gitOperation(), date));
    return;
  }
  BackgroundCommand command{.gh = waiting.mapped()};
  if (const auto match = outputPath.firstMatch(text))
    command.output = *match->group(1);
  remember(background_, std::move(id), std::move(command));
}

void BackendClaudeScanner::handleNotification(std::string_view text, Date date) {
  static const RegularExpression toolUse("<tool-use-id>([^<]+)</tool-use-id>");
  static const RegularExpression outputFile("<output-file>([^<]+)</output-file>");
  if (!BackendBytes::contains(taskNotification, text))
    return;
  const auto id = toolUse.firstMatch(text);
  const auto found = id ? background_.find(std::string(*id->group(1))) : background_.end();
  if (found == background_.end())
    return;
  const auto named = outputFile.firstMatch(text);
  const auto path = named ? std::optional(std::string(*named->group(1))) : found->second.output;
  if (!path)
    return;
  const BackendGHCommand gh = found->second.gh;
  background_.erase(found);
  tell(gh.finding(readOutput(*path), {}, date));
}

// An agent may read the output file itself, which brings the output into the transcript.
void BackendClaudeScanner::handleReadOfOutput(const BackendClaudeLine& line, Date date) {
  if (background_.empty() || !line.readPath || !line.readContent)
    return;
  const auto found = std::ranges::find_if(background_, [&line](const auto& entry) {
    return entry.second.output && line.readPath->is(*entry.second.output);
  });
  if (found == background_.end())
    return;
  const BackendGHCommand gh = found->second.gh;
  background_.erase(found);
  tell(gh.finding(line.readContent->decoded(), {}, date));
}

void BackendClaudeScanner::tell(std::optional<BackendPRFinding> finding) {
  if (finding)
    findings_.emplace_back(std::move(*finding));
}

}  // namespace tessivane
