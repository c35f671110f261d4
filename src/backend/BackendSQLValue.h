#pragma once

// What a statement's parameter can be bound to: text, a whole number, a real, null. A text is
// borrowed for the length of the call that takes the value, so nothing of this is kept.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace tessivane {

using BackendSQLValue = std::variant<std::string_view, std::int64_t, double, std::monostate>;

/// The text, or null when there is none. `text` must outlive the value.
inline BackendSQLValue textOrNull(const std::optional<std::string>& text) {
  return text ? BackendSQLValue(std::string_view(*text)) : BackendSQLValue(std::monostate());
}
void textOrNull(std::optional<std::string>&& text) = delete;

}  // namespace tessivane
