#include "backend/BackendGHCommand.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

#include "support/RegularExpression.h"
#include "support/Text.h"

namespace tessivane {

namespace {

constexpr std::size_t maxTitle = 200;  // characters

std::optional<std::int64_t> decimal(std::string_view text) {
  std::int64_t number = 0;
  const char* end = text.data() + text.size();
  const auto [parsed, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || parsed != end || number < 0)
    return std::nullopt;
  return number;
}

std::optional<std::string> repositoryFlag(std::string_view tail) {
  static const RegularExpression pattern(
      R"re((?:--repo|-R)(?:\s+|=)["']?(?:https://github\.com/)?([A-Za-z0-9_.-]+/[A-Za-z0-9_.-]+))re");
  const auto match = pattern.firstMatch(tail);
  if (!match)
    return std::nullopt;
  std::string slug = loweredASCII(*match->group(1));
  if (slug.ends_with(".git"))
    slug.resize(slug.size() - 4);
  return slug;
}

bool takesValue(std::string_view word) {
  static constexpr std::array<std::string_view, 6> flags = {
      "--repo", "-R", "--body", "-b", "--subject", "-t"};
  return std::ranges::find(flags, word) != flags.end();
}

// The words without the values of flags, the last word first.
std::vector<std::string> withoutValues(std::vector<std::string> words) {
  std::ranges::reverse(words);
  std::vector<std::string> kept;
  for (std::string& word : words) {
    if (takesValue(word) && !kept.empty())
      kept.pop_back();
    kept.push_back(std::move(word));
  }
  return kept;
}

// What the command names, without the marks that people put around it.
std::string_view withoutMarks(std::string_view target) {
  constexpr std::string_view marks = "\"'#";
  const auto begin = std::min(target.find_first_not_of(marks), target.size());
  const auto end = target.find_last_not_of(marks) + 1;
  return target.substr(begin, std::max(begin, end) - begin);
}

std::optional<BackendGHCommand> parseMerge(std::string_view tail) {
  tail = tail.substr(0, tail.find_first_of("\n;&|"));
  const auto words = withoutValues(BackendGHCommand::shellWords(tail));
  if (std::ranges::any_of(
          words, [](const auto& word) { return word == "--auto" || word == "--disable-auto"; }))
    return std::nullopt;
  BackendGHCommand command{.kind = ActivityKind::prMerged, .slug = repositoryFlag(tail)};
  const auto target = std::find_if(
      words.rbegin(), words.rend(), [](const auto& word) { return !word.starts_with("-"); });
  if (target == words.rend())
    return command;
  command.number = decimal(withoutMarks(*target));
  if (command.number)
    return command;
  if (auto url = BackendGHCommand::lastPullURL(*target)) {
    command.number = url->number;
    command.slug = std::move(url->slug);
  }
  return command;
}

std::size_t characterLength(std::string_view text) {
  std::size_t length = 1;
  while (length < text.size() && (static_cast<unsigned char>(text[length]) & 0xC0U) == 0x80U)
    ++length;
  return length;
}

bool isWhitespace(std::string_view character) {
  const auto first = static_cast<unsigned char>(character.front());
  return (first <= ' ' || first >= 0x80) && trimmed(character).empty();
}

// Builds the words of a text, one character after the other.
class WordBuilder final {
 public:
  void add(std::string_view character) {
    if (escaped_) {
      escaped_ = false;
      append(character);
    } else if (character == "\\" && quote_ != '\'') {
      escaped_ = true;
    } else if (quote_ != '\0') {
      literalUntilQuote(character);
    } else if (character == "\"" || character == "'") {
      quote_ = character.front();
      begun_ = true;
    } else if (isWhitespace(character)) {
      end();
    } else {
      append(character);
    }
  }

  std::vector<std::string> take() {
    end();
    return std::move(words_);
  }

 private:
  void literalUntilQuote(std::string_view character) {
    if (character.front() == quote_)
      quote_ = '\0';
    else
      append(character);
  }
  void append(std::string_view character) {
    word_ += character;
    begun_ = true;
  }
  void end() {
    if (begun_)
      words_.push_back(std::exchange(word_, {}));
    begun_ = false;
  }

  std::vector<std::string> words_;
  std::string word_;
  char quote_ = '\0';
  bool escaped_ = false;
  bool begun_ = false;
};

}  // namespace

std::optional<BackendGHCommand> BackendGHCommand::parse(std::string_view command) {
  static const RegularExpression invocation(R"re((?:^|[\s;&|(])gh\s+pr\s+(create|merge)\b)re");
  const auto match = invocation.firstMatch(command);
  if (!match)
    return std::nullopt;
  if (match->group(1) == "merge")
    return parseMerge(match->rest);
  return BackendGHCommand{.kind = ActivityKind::prOpened,
                          .slug = repositoryFlag(match->rest),
                          .title = titleIn(match->rest)};
}

std::optional<BackendPRFinding> BackendGHCommand::finding(std::string_view output,
                                                          const GitOperation& gitOperation,
                                                          Date date) const {
  auto url = lastPullURL(output);
  auto noted = gitOperation.url ? lastPullURL(*gitOperation.url) : std::nullopt;
  const auto& proof = url ? url : noted;
  BackendPRFinding finding{.kind = kind, .date = date};
  if (kind == ActivityKind::prOpened) {
    if (!proof)
      return std::nullopt;
    finding.number = proof->number;
    finding.slug = proof->slug;
    finding.title = title;
    return finding;
  }
  const auto known = number ? number : url ? std::optional(url->number) : gitOperation.number;
  if (!known)
    return std::nullopt;
  finding.number = *known;
  finding.slug = slug ? slug : proof ? std::optional(proof->slug) : std::nullopt;
  return finding;
}

std::optional<std::string> BackendGHCommand::titleIn(std::string_view tail) {
  // Possessive: nothing that was taken can be given back to any use, and on a long text trying so
  // would cost much.
  static const RegularExpression flag(
      R"re((?:--title|-t)(?:\s+|=)(?:"((?:[^"\\]++|\\.)*+)"|'([^']*)'|([^\s"']+)))re");
  const auto match = flag.firstMatch(tail);
  if (!match)
    return std::nullopt;
  std::string value;
  std::string_view rest = match->group(1).value_or(
      match->group(2).value_or(match->group(3).value_or(std::string_view())));
  while (!rest.empty()) {
    const auto quote = rest.find("\\\"");
    value += rest.substr(0, quote);
    if (quote == std::string_view::npos)
      break;
    value += '"';
    rest.remove_prefix(quote + 2);
  }
  value = collapsedWhitespace(value);
  if (value.empty() || value.front() == '$')
    return std::nullopt;
  return std::string(prefixCharacters(value, maxTitle));
}

std::optional<BackendGHCommand::PullURL> BackendGHCommand::lastPullURL(std::string_view text) {
  static const RegularExpression pattern(
      R"re(https://github\.com/([A-Za-z0-9_.-]+/[A-Za-z0-9_.-]+)/pull/(\d+))re");
  const auto match = pattern.lastMatch(text);
  const auto number = match ? decimal(*match->group(2)) : std::nullopt;
  if (!number)
    return std::nullopt;
  return PullURL{.slug = loweredASCII(*match->group(1)), .number = *number};
}

std::vector<std::string> BackendGHCommand::shellWords(std::string_view text) {
  WordBuilder builder;
  while (!text.empty()) {
    const std::size_t length = characterLength(text);
    builder.add(text.substr(0, length));
    text.remove_prefix(length);
  }
  return builder.take();
}

}  // namespace tessivane
