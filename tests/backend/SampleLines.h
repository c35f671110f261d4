#pragma once

// Lines as Claude Code and Codex write them, as far as the scanners read them.

#include <string>
#include <vector>

#include "backend/BackendFinding.h"
#include "helpers/JSONL.h"

namespace tessivane::claude {

inline const char* const date = "2026-10-05T12:00:00.000Z";

inline json message(const char* type, const json& content) {
  return {{"type", type},
          {"timestamp", date},
          {"message", {{"content", content}}},
          {"gitBranch", "main"}};
}
inline json toolUse(const std::string& id, const char* name, const json& input) {
  return message(
      "assistant",
      json::array({{{"type", "tool_use"}, {"id", id}, {"name", name}, {"input", input}}}));
}
inline json bash(const std::string& id, const std::string& command) {
  return toolUse(id, "Bash", {{"command", command}});
}
inline json edit(const std::string& id, const std::string& path) {
  return toolUse(id, "Edit", {{"file_path", path}});
}
inline json result(const std::string& id, const json& content, const json& toolUseResult = {}) {
  json line = message(
      "user", json::array({{{"type", "tool_result"}, {"tool_use_id", id}, {"content", content}}}));
  line["toolUseResult"] = toolUseResult;
  return line;
}
inline json sentToBackground(const std::string& id, const std::string& path) {
  return result(id,
                "Command running in background with ID: x. Output is being written to: " + path +
                    ". You will be notified when it completes.",
                {{"backgroundTaskId", "x"}});
}
inline std::string notification(const std::string& id, const std::string& path) {
  return "<task-notification>\n<task-id>x</task-id>\n<tool-use-id>" + id + "</tool-use-id>\n" +
         (path.empty() ? "" : "<output-file>" + path + "</output-file>\n") +
         "<status>completed</status>\n</task-notification>";
}
inline json notified(const std::string& id, const std::string& path) {
  return message("user", notification(id, path));
}

}  // namespace tessivane::claude

namespace tessivane::codex {

inline json completed(const json& item) {
  return {{"timestamp", "2026-10-05T12:00:00.000Z"},
          {"type", "event_msg"},
          {"payload", {{"type", "item_completed"}, {"item", item}}}};
}
inline json command(const std::string& text, const std::string& output, int exitCode = 0) {
  return completed({{"type", "CommandExecution"},
                    {"command", {"/bin/bash", "-lc", text}},
                    {"aggregated_output", output},
                    {"exit_code", exitCode}});
}
inline json change(const std::string& id, const json& changes) {
  return completed({{"type", "FileChange"}, {"id", id}, {"changes", changes}});
}

}  // namespace tessivane::codex
