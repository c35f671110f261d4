#pragma once

// Light, dark, or whatever the desktop says: a setting under "appAppearance". A value.

#include <optional>
#include <string_view>

namespace tessivane {

enum class AppearanceChoice { system, light, dark };

inline constexpr std::string_view appearanceKey = "appAppearance";

/// "system", "light", "dark": the stored words.
std::string_view rawValue(AppearanceChoice choice);
/// The choice with that word; nothing for any other.
std::optional<AppearanceChoice> appearanceChoice(std::string_view rawValue);

}  // namespace tessivane
