#pragma once

// One line of a reflog: what a ref was, what it became, when and why. Plain values and pure
// functions, safe on every thread.
//
// git 2.39 writes "{old} {new} {name} <{mail}> {seconds} {zone}\t{message}", where a ref that did
// not exist before has an old hash of zeros; an entry without a message ends with the zone. The
// name may hold any number of blanks.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support/Date.h"
#include "support/FunctionRef.h"

namespace tessivane {

struct BackendReflogEntry {
  std::string oldHash = {};  ///< 40 or 64 hexadecimal digits, like `newHash`
  std::string newHash = {};
  Date date = distantPast;
  std::string message = {};  ///< trimmed; valid UTF-8

  /// The entry in one line, with or without its line feed; nothing for what is none.
  static std::optional<BackendReflogEntry> parse(std::string_view line);

  /// Calls with each entry in the bytes, in order, and leaves out the lines that are none. The
  /// entry is the visitor's for the length of the call; its memory is used for the next one.
  static void visit(std::string_view bytes, FunctionRef<void(const BackendReflogEntry&)> visitor);
  static std::vector<BackendReflogEntry> parseAll(std::string_view bytes);

  /// True when the ref did not exist before.
  bool isFromNull() const;
  /// True when the entry tells that a branch got another name.
  bool isRename() const { return message.starts_with("Branch: renamed "); }

  friend bool operator==(const BackendReflogEntry&, const BackendReflogEntry&) = default;
};

}  // namespace tessivane
