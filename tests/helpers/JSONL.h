#pragma once

// Builds lines of JSON for transcripts, rollouts and metadata files.

#include <initializer_list>
#include <string>

#include <nlohmann/json.hpp>

namespace tessivane {

using nlohmann::json;

/// The values as JSONL: one compact object a line, each line ended.
inline std::string jsonLines(std::initializer_list<json> lines) {
  std::string text;
  for (const json& line : lines)
    text += line.dump() + "\n";
  return text;
}

}  // namespace tessivane
