#include "github/GitHubJSON.h"

#include <utility>

#include <nlohmann/json.hpp>

namespace tessivane {

namespace {

using nlohmann::json;

constexpr std::ptrdiff_t deepest = 100;
constexpr std::size_t mostValues = 20'000;

// Whether a text that is JSON can be built without taking up many times its own memory, and copied
// without exhausting the stack: a copy goes as deep as the values do. A bracket or comma outside of
// strings is what makes a value. Of other texts the parser sees the fault at the latest where this
// count goes wrong.
bool isModest(std::string_view text) {
  std::ptrdiff_t depth = 0;
  std::size_t values = 0;
  bool inString = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (inString && c == '\\')
      ++i;
    else if (c == '"')
      inString = !inString;
    if (inString)
      continue;
    const bool opens = c == '[' || c == '{';
    const bool closes = c == ']' || c == '}';
    depth += std::ptrdiff_t{opens} - std::ptrdiff_t{closes};
    values += opens || c == ',' ? 1 : 0;
    if (depth > deepest || values > mostValues)
      return false;
  }
  return true;
}

const json* field(const json& value, std::string_view key) {
  const auto found = value.find(key);
  return found == value.end() ? nullptr : &*found;
}

}  // namespace

std::optional<json> jsonObject(std::string_view body) {
  if (body.size() > longestJSON || !isModest(body))
    return std::nullopt;
  json parsed = json::parse(body, nullptr, false);
  if (!parsed.is_object())
    return std::nullopt;
  return parsed;
}

std::optional<std::string> stringField(const json& value, std::string_view key) {
  const json* const found = field(value, key);
  if (found == nullptr || !found->is_string())
    return std::nullopt;
  return found->get_ref<const std::string&>();
}

const json* objectField(const json& value, std::string_view key) {
  const json* const found = field(value, key);
  return found != nullptr && found->is_object() ? found : nullptr;
}

}  // namespace tessivane
