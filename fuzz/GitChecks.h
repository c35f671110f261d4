#pragma once

// What must hold for any bytes that stand where a reflog or a git config file should be. Used by
// the fuzz programs and by the test that replays a small corpus.

#include <string_view>

#include "fuzz/Require.h"
#include "git/BackendBranchCreation.h"
#include "git/BackendGitConfig.h"
#include "git/BackendGitLayout.h"
#include "git/BackendReflogEntry.h"
#include "support/Text.h"

namespace tessivane::fuzz {

/// Reading in one go and line by line gives the same, valid entries.
inline void checkReflog(std::string_view bytes) {
  std::vector<BackendReflogEntry> singly;
  for (std::string_view rest = bytes; !rest.empty();) {
    const auto end = rest.find('\n');
    if (const auto entry = BackendReflogEntry::parse(rest.substr(0, end)))
      singly.push_back(*entry);
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
  }
  const auto entries = BackendReflogEntry::parseAll(bytes);
  require(entries == singly, "entries do not depend on the lines around them");
  std::vector<BackendReflogPair> pairs;
  for (const BackendReflogEntry& entry : entries) {
    require(entry.oldHash.size() == 40 || entry.oldHash.size() == 64, "the old hash is one");
    require(entry.newHash.size() == 40 || entry.newHash.size() == 64, "the new hash is one");
    require(isValidUTF8(entry.message), "the message is valid UTF-8");
    require(trimmed(entry.message) == entry.message, "the message is trimmed");
    pairs.push_back({.entry = entry, .file = {.path = "b", .branch = "b"}});
    pairs.push_back({.entry = entry, .file = {.path = "h", .worktree = "/w", .isLinked = true}});
  }
  const auto creations = BackendBranchCreation::detect(
      pairs, [](const auto&) { return std::optional<std::string>("b"); });
  require(creations.size() <= pairs.size(), "no creation without an entry");
  for (std::size_t i = 1; i < creations.size(); ++i)
    require(creations[i - 1].date <= creations[i].date, "creations are in the order of time");
}

/// A value is no longer than the text, and a slug has an owner and a name.
inline void checkGitConfig(std::string_view bytes) {
  for (const std::string_view section : {"[core]", "[remote \"origin\"]"}) {
    for (const std::string_view key : {"url", "worktree"}) {
      const auto value = BackendGitConfig::value(bytes, section, key);
      require(!value || value->size() <= bytes.size(), "the value comes of the text");
    }
  }
  const auto slug = BackendGitLayout::slug(bytes);
  const auto slash = slug ? slug->find('/') : 1;
  require(slash > 0 && slash != std::string::npos, "a slug has an owner");
  require(!slug || (slug->rfind('/') == slash && slash + 1 < slug->size()), "a slug has a name");
}

}  // namespace tessivane::fuzz
