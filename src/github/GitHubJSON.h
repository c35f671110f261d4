#pragma once

// Reading GitHub's answers, which may be anything. Pure functions, safe on every thread; none of
// them throws.

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json_fwd.hpp>

namespace tessivane {

/// In bytes. A page of a hundred pull requests with the longest names takes about a quarter of it,
/// and little enough that ten such pages, each held several times while it is read, do no harm.
inline constexpr std::size_t longestJSON = 1 << 20;

/// The object that `body` holds. Nothing when it is not one whole JSON object, and when it is far
/// beyond what GitHub sends: longer than `longestJSON`, more than 100 levels deep or of more than
/// 20,000 values.
std::optional<nlohmann::json> jsonObject(std::string_view body);

/// The field of an object when it is a string. Nothing also when `value` is no object.
std::optional<std::string> stringField(const nlohmann::json& value, std::string_view key);

/// The field of an object when it is an object, else null. Borrowed from `value`.
const nlohmann::json* objectField(const nlohmann::json& value, std::string_view key);

}  // namespace tessivane
