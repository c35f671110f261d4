#include "helpers/AgentLines.h"

#include <nlohmann/json.hpp>

namespace tessivane {

namespace {

using Object = nlohmann::ordered_json;

Object list(Object one) {
  Object list = Object::array();
  list.push_back(std::move(one));
  return list;
}

std::string claudeLine(const ClaudeLines& session,
                       const char* type,
                       Object content,
                       Date date,
                       Object toolUseResult = nullptr) {
  Object message{{"role", type}};
  if (std::string_view(type) == "assistant")
    message["model"] = "claude-opus-4-8";
  message["content"] = std::move(content);
  Object line{{"parentUuid", nullptr},
              {"isSidechain", false},
              {"userType", "external"},
              {"cwd", session.cwd},
              {"sessionId", session.sessionID},
              {"version", "2.1.330"},
              {"gitBranch", session.branch},
              {"type", type},
              {"message", std::move(message)},
              {"entrypoint", "cli"},
              {"timestamp", isoTextWithMilliseconds(date)}};
  if (!toolUseResult.is_null())
    line["toolUseResult"] = std::move(toolUseResult);
  return line.dump() + "\n";
}

Object toolUse(const std::string& id, const char* name, Object input) {
  return list({{"type", "tool_use"}, {"id", id}, {"name", name}, {"input", std::move(input)}});
}

Object toolResult(const std::string& id, const std::string& output, bool isError = false) {
  Object block{{"tool_use_id", id}, {"type", "tool_result"}, {"content", output}};
  if (isError)
    block["is_error"] = true;
  return list(std::move(block));
}

std::string codexLine(const char* type, Object payload, Date date) {
  return Object{{"timestamp", isoTextWithMilliseconds(date)},
                {"type", type},
                {"payload", std::move(payload)}}
             .dump() +
         "\n";
}

std::string completed(const CodexLines& thread, Object item, Date date) {
  return codexLine("event_msg",
                   {{"type", "item_completed"},
                    {"thread_id", thread.threadID},
                    {"turn_id", "turn"},
                    {"item", std::move(item)}},
                   date);
}

}  // namespace

std::string ClaudeLines::prompt(const std::string& text, Date date) const {
  return claudeLine(*this, "user", text, date);
}

std::string ClaudeLines::answer(const std::string& text, Date date) const {
  return claudeLine(*this, "assistant", list({{"type", "text"}, {"text", text}}), date);
}

std::string ClaudeLines::edit(const std::string& id, const std::string& path, Date date) const {
  const Object input{{"file_path", path}, {"old_string", "a"}, {"new_string", "b"}};
  return claudeLine(*this, "assistant", toolUse(id, "Edit", input), date);
}

std::string ClaudeLines::command(const std::string& id,
                                 const std::string& command,
                                 Date date) const {
  return claudeLine(*this, "assistant", toolUse(id, "Bash", {{"command", command}}), date);
}

std::string ClaudeLines::result(const std::string& id, const std::string& output, Date date) const {
  return claudeLine(
      *this, "user", toolResult(id, output), date, {{"stdout", output}, {"stderr", ""}});
}

std::string ClaudeLines::failure(const std::string& id,
                                 const std::string& output,
                                 Date date) const {
  return claudeLine(*this, "user", toolResult(id, output, true), date, "Error: " + output);
}

std::string ClaudeLines::sentToBackground(const std::string& id,
                                          const std::string& path,
                                          Date date) const {
  const std::string told =
      "Command running in background with ID: b1. Output is being written to: " + path +
      ". You will be notified when it completes.";
  return claudeLine(*this, "user", toolResult(id, told), date, {{"backgroundTaskId", "b1"}});
}

std::string ClaudeLines::notification(const std::string& id,
                                      const std::string& path,
                                      Date date) const {
  return prompt("<task-notification>\n<task-id>b1</task-id>\n<tool-use-id>" + id +
                    "</tool-use-id>\n<output-file>" + path +
                    "</output-file>\n<status>completed</status>\n</task-notification>",
                date);
}

std::string CodexLines::opening(Date date) const {
  return codexLine("session_meta",
                   {{"id", threadID},
                    {"timestamp", isoTextWithMilliseconds(date)},
                    {"cwd", cwd},
                    {"originator", "codex-tui"},
                    {"cli_version", "0.169.0"},
                    {"source", "cli"},
                    {"history_mode", "paginated"}},
                   date);
}

std::string CodexLines::turnBegins(Date date) const {
  return codexLine("event_msg", {{"type", "task_started"}, {"turn_id", "turn"}}, date);
}

std::string CodexLines::turnEnds(Date date) const {
  return codexLine(
      "event_msg",
      {{"type", "task_complete"}, {"turn_id", "turn"}, {"last_agent_message", "Done."}},
      date);
}

std::string CodexLines::edit(const std::string& id,
                             const std::vector<std::string>& paths,
                             Date date) const {
  Object changes = Object::object();
  for (const std::string& path : paths)
    changes[path] = {{"type", "update"}, {"unified_diff", "@@"}};
  return completed(
      *this, {{"type", "FileChange"}, {"id", id}, {"changes", std::move(changes)}}, date);
}

std::string CodexLines::command(const std::string& command,
                                const std::string& output,
                                int exitCode,
                                Date date) const {
  Object words = Object::array();
  for (const std::string& word : {std::string("/bin/bash"), std::string("-lc"), command})
    words.push_back(word);
  return completed(*this,
                   {{"type", "CommandExecution"},
                    {"command", std::move(words)},
                    {"aggregated_output", output},
                    {"exit_code", exitCode}},
                   date);
}

std::string pullRequestURL(const std::string& slug, std::int64_t number) {
  return "https://github.com/" + slug + "/pull/" + std::to_string(number);
}

}  // namespace tessivane
