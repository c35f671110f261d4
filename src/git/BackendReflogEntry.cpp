#include "git/BackendReflogEntry.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>

#include "support/Text.h"

namespace tessivane {

namespace {

constexpr std::array<bool, 256> hexDigits = [] {
  std::array<bool, 256> digits{};
  for (const char c : std::string_view("0123456789abcdefABCDEF"))
    digits.at(static_cast<unsigned char>(c)) = true;
  return digits;
}();

bool isHash(std::string_view text) {
  return (text.size() == 40 || text.size() == 64) &&
         std::ranges::all_of(text, [](char c) { return hexDigits[static_cast<unsigned char>(c)]; });
}

std::optional<Date> dateOf(std::string_view digits) {
  std::int64_t seconds = 0;
  const char* end = digits.data() + digits.size();
  const auto result = std::from_chars(digits.data(), end, seconds);
  if (result.ec != std::errc() || result.ptr != end)
    return std::nullopt;
  return dateFromSeconds(static_cast<double>(seconds));
}

// Takes what stands before the first blank off the front of `text`.
std::string_view firstPiece(std::string_view& text) {
  const auto piece = text.substr(0, text.find(' '));
  text.remove_prefix(std::min(piece.size() + 1, text.size()));
  return piece;
}

// Fills `entry`, keeping the memory of its texts. False when the line is no entry.
bool parseInto(BackendReflogEntry& entry, std::string_view line) {
  const auto tab = line.find('\t');
  auto head = line.substr(0, tab);
  const auto oldHash = firstPiece(head);
  const auto newHash = firstPiece(head);
  // At the end the zone and, before it, the seconds. They and the name make five pieces of the
  // line.
  const auto zone = head.rfind(' ');
  if (zone == std::string_view::npos || zone == 0)
    return false;
  const auto seconds = head.rfind(' ', zone - 1);
  if (seconds == std::string_view::npos || !isHash(oldHash) || !isHash(newHash))
    return false;
  const auto date = dateOf(head.substr(seconds + 1, zone - seconds - 1));
  if (!date)
    return false;
  entry.oldHash = oldHash;
  entry.newHash = newHash;
  entry.date = *date;
  const auto message = tab == std::string_view::npos ? "" : trimmed(line.substr(tab + 1));
  if (isValidUTF8(message))
    entry.message = message;
  else
    entry.message = trimmed(repairedUTF8(message));
  return true;
}

}  // namespace

std::optional<BackendReflogEntry> BackendReflogEntry::parse(std::string_view line) {
  std::optional<BackendReflogEntry> entry(std::in_place);
  if (!parseInto(*entry, line))
    entry.reset();
  return entry;
}

void BackendReflogEntry::visit(std::string_view bytes,
                               FunctionRef<void(const BackendReflogEntry&)> visitor) {
  BackendReflogEntry entry;
  while (!bytes.empty()) {
    const auto line = bytes.substr(0, bytes.find('\n'));
    if (parseInto(entry, line))
      visitor(entry);
    bytes.remove_prefix(std::min(line.size() + 1, bytes.size()));
  }
}

std::vector<BackendReflogEntry> BackendReflogEntry::parseAll(std::string_view bytes) {
  std::vector<BackendReflogEntry> entries;
  visit(bytes, [&entries](const BackendReflogEntry& entry) { entries.push_back(entry); });
  return entries;
}

bool BackendReflogEntry::isFromNull() const {
  return std::ranges::all_of(oldHash, [](char c) { return c == '0'; });
}

}  // namespace tessivane
