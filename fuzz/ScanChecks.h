#pragma once

// What must hold for any bytes that stand where a shell command, a transcript or a rollout should
// be. Used by the fuzz programs and by the test that replays a small corpus.

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "backend/BackendClaudeScanner.h"
#include "backend/BackendCodexScanner.h"
#include "backend/BackendGHCommand.h"
#include "fuzz/Require.h"
#include "support/Text.h"

namespace tessivane::fuzz {

inline void checkSlug(const std::optional<std::string>& slug) {
  require(!slug || std::ranges::count(*slug, '/') == 1, "a slug is an owner and a name");
  require(!slug || std::ranges::none_of(*slug, [](char c) { return c >= 'A' && c <= 'Z'; }),
          "a slug is in lower case");
}

inline void checkTitle(const std::optional<std::string>& title) {
  require(!title || (!title->empty() && title->front() != '$'), "a title is known text");
  require(!title || prefixCharacters(*title, 200) == *title, "a title has 200 characters at most");
}

inline void checkFinding(const BackendFinding& finding) {
  if (const auto* edit = std::get_if<BackendEditFinding>(&finding)) {
    require(edit->key.starts_with("native:") && !edit->paths.empty(),
            "an edit has a key and a path");
    for (const std::string& path : edit->paths)
      require(isValidUTF8(path), "a path is valid UTF-8");
    return;
  }
  const auto& pr = std::get<BackendPRFinding>(finding);
  require(pr.kind == ActivityKind::prMerged || pr.slug, "what was opened has a repository");
  checkSlug(pr.slug);
  checkTitle(pr.title);
}

/// Words, titles and numbers come of the text.
inline void checkGHCommand(std::string_view bytes) {
  std::size_t length = 0;
  for (const std::string& word : BackendGHCommand::shellWords(bytes))
    length += word.size();
  require(length <= bytes.size(), "words come of the text");
  checkTitle(BackendGHCommand::titleIn(bytes));
  for (const char* beginning : {"", "gh pr merge ", "gh pr create "}) {
    const auto command = BackendGHCommand::parse(beginning + std::string(bytes));
    if (!command)
      continue;
    require(!command->number || *command->number >= 0, "a number is not negative");
    checkSlug(command->slug);
    checkTitle(command->title);
    const auto finding = command->finding(bytes, {.url = std::string(bytes)}, distantPast);
    if (finding)
      checkFinding(*finding);
  }
}

/// What lines tell does not depend on the pieces in which they come.
template <typename Scanner>
void checkScanner(std::string_view bytes) {
  Scanner whole;
  const std::vector<BackendFinding> findings = whole.scan(bytes, distantPast);
  Scanner pieces;
  std::vector<BackendFinding> singly;
  for (std::string_view rest = bytes; !rest.empty();) {
    const auto line = rest.substr(0, std::min(rest.find('\n'), rest.size() - 1) + 1);
    for (BackendFinding& finding : pieces.scan(line, distantPast))
      singly.push_back(std::move(finding));
    rest.remove_prefix(line.size());
  }
  require(findings == singly, "findings do not depend on the lines around them");
  if constexpr (requires { whole.branch(); })
    require(whole.branch() == pieces.branch(), "nor does the branch");
  std::ranges::for_each(findings, checkFinding);
}

inline void checkTranscript(std::string_view bytes) {
  checkScanner<BackendClaudeScanner>(bytes);
  checkScanner<BackendCodexScanner>(bytes);
}

}  // namespace tessivane::fuzz
