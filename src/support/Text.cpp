#include "support/Text.h"

#include <algorithm>
#include <cstdint>
#include <memory>

#include <unicode/brkiter.h>
#include <unicode/locid.h>
#include <unicode/uchar.h>
#include <unicode/utext.h>
#include <unicode/utf8.h>

namespace tessivane {

namespace {

// ICU counts in 32 bits. No text here comes near that (reads have ceilings), so a longer one is
// simply cut: the functions below only ever look at its beginning.
constexpr std::size_t maxICULength = 0x7fffffff;

const std::uint8_t* bytes(std::string_view text) {
  return reinterpret_cast<const std::uint8_t*>(text.data());
}

std::int32_t icuLength(std::string_view text) {
  return static_cast<std::int32_t>(std::min(text.size(), maxICULength));
}

// True when the first `count` bytes are characters of their own: ASCII, and no "\r\n" among them.
bool isPlainPrefix(std::string_view text, std::size_t count) {
  return std::none_of(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(count), [](char c) {
    return static_cast<unsigned char>(c) >= 0x80 || c == '\r';
  });
}

// Where the code point begins that ends before `end`, at most four bytes back.
std::int32_t characterStart(std::string_view text, std::int32_t begin, std::int32_t end) {
  std::int32_t start = end - 1;
  while (start > begin && end - start < 4 && U8_IS_TRAIL(text[static_cast<std::size_t>(start)])) {
    --start;
  }
  return start;
}

std::unique_ptr<icu::BreakIterator> makeCharacterBreaks() {
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::BreakIterator> breaks(
      icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
  if (U_FAILURE(status))
    breaks.reset();
  return breaks;
}

icu::BreakIterator* characterBreaks() {
  thread_local const std::unique_ptr<icu::BreakIterator> breaks = makeCharacterBreaks();
  // The analyzer takes what is thread_local for gone at the end of the call.
  return breaks.get();  // NOLINT(clang-analyzer-cplusplus.NewDelete)
}

}  // namespace

bool isValidUTF8(std::string_view text) {
  const std::int32_t length = icuLength(text);
  std::int32_t i = 0;
  while (i < length) {
    UChar32 c = 0;
    U8_NEXT(bytes(text), i, length, c);
    if (c < 0)
      return false;
  }
  return true;
}

std::string repairedUTF8(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  const std::int32_t length = icuLength(text);
  std::int32_t i = 0;
  while (i < length) {
    const std::int32_t start = i;
    UChar32 c = 0;
    U8_NEXT(bytes(text), i, length, c);
    if (c < 0) {
      result += "\xEF\xBF\xBD";
    } else {
      result.append(text, static_cast<std::size_t>(start), static_cast<std::size_t>(i - start));
    }
  }
  return result;
}

std::string_view trimmed(std::string_view text) {
  const std::int32_t length = icuLength(text);
  std::int32_t begin = 0;
  while (begin < length) {
    std::int32_t next = begin;
    UChar32 c = 0;
    U8_NEXT(bytes(text), next, length, c);
    if (c < 0 || !u_isUWhiteSpace(c))
      break;
    begin = next;
  }
  std::int32_t end = length;
  while (end > begin) {
    const std::int32_t previous = characterStart(text, begin, end);
    std::int32_t next = previous;
    UChar32 c = 0;
    U8_NEXT(bytes(text), next, end, c);
    if (c < 0 || next != end || !u_isUWhiteSpace(c))
      break;
    end = previous;
  }
  return text.substr(static_cast<std::size_t>(begin), static_cast<std::size_t>(end - begin));
}

std::string_view prefixCharacters(std::string_view text, std::size_t count) {
  if (text.size() <= count)
    return text;
  // One byte past the cut is looked at too: a combining mark there belongs to the last character.
  if (isPlainPrefix(text, count + 1))
    return text.substr(0, count);
  icu::BreakIterator* breaks = characterBreaks();
  UErrorCode status = U_ZERO_ERROR;
  UText view = UTEXT_INITIALIZER;
  utext_openUTF8(&view, text.data(), icuLength(text), &status);
  if (breaks == nullptr || U_FAILURE(status))
    return text.substr(0, count);
  breaks->setText(&view, status);
  breaks->first();
  std::int32_t end = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const std::int32_t next = breaks->next();
    if (next == icu::BreakIterator::DONE) {
      end = icuLength(text);
      break;
    }
    end = next;
  }
  utext_close(&view);
  return text.substr(0, static_cast<std::size_t>(end));
}

std::string collapsedWhitespace(std::string_view text) {
  std::string result;
  result.reserve(std::min<std::size_t>(text.size(), 256));
  const std::int32_t length = icuLength(text);
  bool pending = false;
  std::int32_t i = 0;
  while (i < length) {
    const std::int32_t start = i;
    UChar32 c = 0;
    U8_NEXT(bytes(text), i, length, c);
    if (c >= 0 && u_isUWhiteSpace(c)) {
      pending = !result.empty();
      continue;
    }
    if (pending)
      result += ' ';
    pending = false;
    result.append(text, static_cast<std::size_t>(start), static_cast<std::size_t>(i - start));
  }
  return result;
}

std::string loweredASCII(std::string_view text) {
  std::string lowered(text);
  std::ranges::transform(lowered, lowered.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  return lowered;
}

std::string percentEncoded(std::string_view text, std::string_view kept) {
  constexpr std::string_view digits = "0123456789ABCDEF";
  constexpr std::string_view unreserved =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";
  std::string encoded;
  for (const char c : text) {
    if (unreserved.find(c) != std::string_view::npos || kept.find(c) != std::string_view::npos) {
      encoded += c;
      continue;
    }
    const auto byte = static_cast<unsigned char>(c);
    encoded += {'%', digits[byte >> 4U], digits[byte & 0xFU]};
  }
  return encoded;
}

}  // namespace tessivane
