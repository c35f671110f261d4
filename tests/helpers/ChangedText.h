#pragma once

// Spoils a text a little, for tests that must hold for any bytes.

#include <random>
#include <string>
#include <string_view>

namespace tessivane {

/// `text` with up to four changes: a byte of `inserts` put in, bytes cut out, a piece doubled, or a
/// byte replaced by any other.
inline std::string changedText(std::string text, std::string_view inserts, std::mt19937& random) {
  const auto upTo = [&random](std::size_t limit) { return random() % (limit + 1); };
  for (auto changes = 1 + upTo(3); changes > 0; --changes) {
    const auto at = upTo(text.size());
    const auto choice = upTo(3);
    if (choice == 0)
      text.insert(at, 1, inserts[upTo(inserts.size() - 1)]);
    else if (choice == 1)
      text.erase(at, upTo(12));
    else if (choice == 2)
      text.insert(at, text.substr(upTo(text.size()), upTo(60)));
    else if (at < text.size())
      text[at] = static_cast<char>(upTo(255));
  }
  return text;
}

}  // namespace tessivane
