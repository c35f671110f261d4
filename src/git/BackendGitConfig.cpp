#include "git/BackendGitConfig.h"

#include "support/Text.h"

namespace tessivane {

namespace {

char unescaped(char c) {
  switch (c) {
    case 'n':
      return '\n';
    case 't':
      return '\t';
    case 'b':
      return '\b';
    default:
      return c;
  }
}

// What git takes from the text behind "=".
std::string plainValue(std::string_view raw) {
  std::string value;
  std::size_t kept = 0;  // blanks count up to here: they were quoted, or something follows them
  bool quoted = false;
  for (std::size_t i = 0; i < raw.size(); ++i) {
    const char c = raw[i];
    if (c == '"') {
      quoted = !quoted;
      kept = value.size();
      continue;
    }
    if (!quoted && (c == '#' || c == ';'))
      break;
    const bool escaped = c == '\\' && i + 1 < raw.size();
    value += escaped ? unescaped(raw[++i]) : c;
    if (quoted || escaped || (c != ' ' && c != '\t'))
      kept = value.size();
  }
  value.resize(kept);
  return value;
}

}  // namespace

std::optional<std::string> BackendGitConfig::value(std::string_view text,
                                                   std::string_view section,
                                                   std::string_view key) {
  const std::string wanted = loweredASCII(key);
  bool inside = false;
  while (!text.empty()) {
    const auto end = text.find('\n');
    const auto line = trimmed(text.substr(0, end));
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    if (line.starts_with('[')) {
      inside = line == section;
      continue;
    }
    const auto equals = line.find('=');
    if (inside && equals != std::string_view::npos &&
        loweredASCII(trimmed(line.substr(0, equals))) == wanted)
      return plainValue(trimmed(line.substr(equals + 1)));
  }
  return std::nullopt;
}

}  // namespace tessivane
