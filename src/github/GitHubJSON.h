#pragma once

// Reading GitHub's answers, which may be anything. Pure functions, safe on every thread; none of
// them throws.

#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json_fwd.hpp>

namespace tessivane {

/// The object that `body` holds. Nothing when it is not one whole JSON object, and when it is far
/// beyond what GitHub sends: more than 100 levels deep or of more than 20,000 values.
std::optional<nlohmann::json> jsonObject(std::string_view body);

/// The field of an object when it is a string. Nothing also when `value` is no object.
std::optional<std::string> stringField(const nlohmann::json& value, std::string_view key);

/// The field of an object when it is an object, else null. Borrowed from `value`.
const nlohmann::json* objectField(const nlohmann::json& value, std::string_view key);

}  // namespace tessivane
