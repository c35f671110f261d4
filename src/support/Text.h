#pragma once

// Cutting and cleaning of UTF-8 text. Pure functions, safe on every thread. A "character" is what a
// person sees as one (a grapheme cluster); ASCII takes a path without ICU.

#include <cstddef>
#include <string>
#include <string_view>

namespace tessivane {

/// True when `text` is well-formed UTF-8 (no surrogates, no overlong forms).
bool isValidUTF8(std::string_view text);

/// `text` with every ill-formed sequence replaced by U+FFFD. The result is valid UTF-8.
std::string repairedUTF8(std::string_view text);

/// `text` without white space and line ends at both ends. White space is Unicode's.
std::string_view trimmed(std::string_view text);

/// The first `count` characters of `text`, or all of it when it is shorter.
std::string_view prefixCharacters(std::string_view text, std::size_t count);

/// `text` on one line: runs of white space and line ends become one blank, none at the ends.
std::string collapsedWhitespace(std::string_view text);

/// `text` with the letters A to Z in lower case, every other byte as it is.
std::string loweredASCII(std::string_view text);

/// `text` with every byte as "%XX" but those that a URL takes anywhere (ASCII letters and digits,
/// "-._~") and those in `kept`.
std::string percentEncoded(std::string_view text, std::string_view kept = {});

}  // namespace tessivane
