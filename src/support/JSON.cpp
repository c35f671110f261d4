#include "support/JSON.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include <simdjson.h>

#include "support/Text.h"

namespace tessivane {

namespace {

using simdjson::SUCCESS;
namespace ondemand = simdjson::ondemand;

static_assert(JSONReader::padding >= simdjson::SIMDJSON_PADDING);

// A parser keeps four bytes of index per byte of the longest line it met. Past this a line is an
// exception, and its memory goes back.
constexpr std::size_t keptCapacity = 1 << 20;

ondemand::value& valueOf(void* pointer) {
  return *static_cast<ondemand::value*>(pointer);
}

// The key as it stands in the file. It ends at the first quote that is not escaped; the reader has
// checked that there is one.
std::string_view rawKey(const ondemand::field& field) {
  const char* begin = field.key().raw();
  const char* end = begin;
  while (*end != '"')
    end += *end == '\\' ? 2 : 1;
  return {begin, static_cast<std::size_t>(end - begin)};
}

template <typename Visit>
void visitObject(ondemand::object object, bool& broken, const Visit& visitField) {
  for (auto result : object) {
    ondemand::field field;
    if (std::move(result).get(field) != SUCCESS) {
      broken = true;
      return;
    }
    visitField(rawKey(field), field.value());
    if (broken)
      return;
  }
}

void appendUTF8(std::string& text, std::uint32_t c) {
  const auto add = [&text](std::uint32_t byte) { text += static_cast<char>(byte); };
  if (c < 0x80) {
    add(c);
  } else if (c < 0x800) {
    add(0xC0 | (c >> 6));
    add(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    add(0xE0 | (c >> 12));
    add(0x80 | ((c >> 6) & 0x3F));
    add(0x80 | (c & 0x3F));
  } else {
    add(0xF0 | (c >> 18));
    add(0x80 | ((c >> 12) & 0x3F));
    add(0x80 | ((c >> 6) & 0x3F));
    add(0x80 | (c & 0x3F));
  }
}

constexpr std::uint32_t replacementCharacter = 0xFFFD;

// Four hexadecimal digits at the front of `text`; nothing, and nothing taken, if they are not
// there.
std::optional<std::uint32_t> takeHex4(std::string_view& text) {
  if (text.size() < 4)
    return std::nullopt;
  std::uint32_t value = 0;
  for (const char c : text.substr(0, 4)) {
    const std::string_view digits = "0123456789abcdef";
    const auto digit = digits.find(static_cast<char>(c | 0x20));
    const bool isDigit = (c >= '0' && c <= '9') || ((c | 0x20) >= 'a' && (c | 0x20) <= 'f');
    if (!isDigit)
      return std::nullopt;
    value = value * 16 + static_cast<std::uint32_t>(digit);
  }
  text.remove_prefix(4);
  return value;
}

bool isHighSurrogate(std::uint32_t unit) {
  return unit >= 0xD800 && unit < 0xDC00;
}

bool isLowSurrogate(std::uint32_t unit) {
  return unit >= 0xDC00 && unit < 0xE000;
}

// The character of a "\u" escape whose two letters are already taken off `text`.
std::uint32_t takeUnicodeEscape(std::string_view& text) {
  const auto unit = takeHex4(text);
  if (!unit)
    return replacementCharacter;
  if (isLowSurrogate(*unit))
    return replacementCharacter;
  if (!isHighSurrogate(*unit))
    return *unit;
  if (!text.starts_with("\\u"))
    return replacementCharacter;
  std::string_view rest = text.substr(2);
  const auto low = takeHex4(rest);
  if (!low || !isLowSurrogate(*low))
    return replacementCharacter;
  text = rest;
  return 0x10000 + ((*unit - 0xD800) << 10) + (*low - 0xDC00);
}

std::uint32_t takeEscape(std::string_view& text) {
  const char letter = text.empty() ? '\0' : text.front();
  // The first byte of a longer character stays: taken off, it would leave the rest ill-formed.
  if (!text.empty() && static_cast<unsigned char>(letter) < 0x80)
    text.remove_prefix(1);
  switch (letter) {
    case 'n':
      return '\n';
    case 't':
      return '\t';
    case 'r':
      return '\r';
    case 'b':
      return '\b';
    case 'f':
      return '\f';
    case '"':
    case '\\':
    case '/':
      return static_cast<std::uint32_t>(letter);
    case 'u':
      return takeUnicodeEscape(text);
    default:
      return replacementCharacter;
  }
}

}  // namespace

std::string JSONText::decoded() const {
  std::string result;
  result.reserve(escaped.size());
  std::string_view rest = escaped;
  while (!rest.empty()) {
    const auto backslash = rest.find('\\');
    result += rest.substr(0, backslash);
    if (backslash == std::string_view::npos)
      break;
    rest.remove_prefix(backslash + 1);
    appendUTF8(result, takeEscape(rest));
  }
  return result;
}

bool JSONText::is(std::string_view plain) const {
  if (escaped.find('\\') == std::string_view::npos)
    return escaped == plain;
  return decoded() == plain;
}

bool JSONText::startsWith(std::string_view plain) const {
  const auto beginning = escaped.substr(0, plain.size());
  if (beginning.find('\\') == std::string_view::npos)
    return beginning == plain;
  return decoded().starts_with(plain);
}

JSONValue::Kind JSONValue::kind() {
  ondemand::json_type type{};
  if (valueOf(value_).type().get(type) != SUCCESS)
    return Kind::broken;
  switch (type) {
    case ondemand::json_type::object:
      return Kind::object;
    case ondemand::json_type::array:
      return Kind::array;
    case ondemand::json_type::string:
      return Kind::text;
    case ondemand::json_type::number:
      return Kind::number;
    case ondemand::json_type::boolean:
      return Kind::boolean;
    case ondemand::json_type::null:
      return Kind::null;
  }
  return Kind::broken;
}

std::optional<JSONText> JSONValue::text() {
  if (kind() != Kind::text)
    return std::nullopt;
  // The token runs from the quote to the next token, white space included.
  std::string_view token = valueOf(value_).raw_json_token();
  const auto close = token.rfind('"');
  if (close == std::string_view::npos || close == 0)
    return std::nullopt;
  return JSONText{token.substr(1, close - 1)};
}

std::optional<double> JSONValue::number() {
  double number = 0;
  if (kind() != Kind::number || valueOf(value_).get_double().get(number) != SUCCESS) {
    return std::nullopt;
  }
  return number;
}

std::optional<bool> JSONValue::boolean() {
  bool flag = false;
  if (kind() != Kind::boolean || valueOf(value_).get_bool().get(flag) != SUCCESS) {
    return std::nullopt;
  }
  return flag;
}

bool JSONValue::visitFields(FieldVisitor visitor) {
  ondemand::object object;
  if (kind() != Kind::object || valueOf(value_).get_object().get(object) != SUCCESS)
    return false;
  visitObject(object, *broken_, [&](std::string_view key, ondemand::value& value) {
    JSONValue borrowed(&value, *broken_);
    visitor(key, borrowed);
  });
  return true;
}

bool JSONValue::visitElements(ElementVisitor visitor) {
  ondemand::array array;
  if (kind() != Kind::array || valueOf(value_).get_array().get(array) != SUCCESS)
    return false;
  for (auto result : array) {
    ondemand::value element;
    // NOLINTNEXTLINE(performance-move-const-arg): this get() takes rvalues only
    if (std::move(result).get(element) != SUCCESS) {
      *broken_ = true;
      return true;
    }
    JSONValue borrowed(&element, *broken_);
    visitor(borrowed);
    if (*broken_)
      return true;
  }
  return true;
}

struct JSONReader::Parser {
  ondemand::parser parser;
};

JSONReader::JSONReader() : parser_(std::make_unique<Parser>()) {}

JSONReader::~JSONReader() = default;

bool JSONReader::visitPadded(PaddedLine line, JSONValue::FieldVisitor visitor) {
  std::string_view text = line.text;
  text.remove_prefix(std::min(text.find_first_not_of('\0'), text.size()));
  if (text.empty())
    return false;
  const Outcome outcome = visitInPlace(text, visitor);
  if (outcome != Outcome::illFormedText)
    return outcome == Outcome::whole;
  keepCopy(repairedUTF8(text));
  return visitInPlace(copiedText(), visitor) == Outcome::whole;
}

bool JSONReader::visit(std::string_view text, JSONValue::FieldVisitor visitor) {
  keepCopy(std::string(text));
  return visitPadded({copiedText()}, visitor);
}

JSONReader::Outcome JSONReader::visitInPlace(std::string_view text,
                                             JSONValue::FieldVisitor visitor) {
  ondemand::document document;
  const auto opened =
      parser_->parser
          .iterate(simdjson::padded_string_view(text.data(), text.size(), text.size() + padding))
          .get(document);
  if (opened == simdjson::UTF8_ERROR)
    return Outcome::illFormedText;
  ondemand::object object;
  if (opened != SUCCESS || document.get_object().get(object) != SUCCESS)
    return Outcome::broken;
  bool broken = false;
  visitObject(object, broken, [&](std::string_view key, ondemand::value& value) {
    JSONValue borrowed(&value, broken);
    visitor(key, borrowed);
  });
  const bool alone = document.current_location().error() == simdjson::OUT_OF_BOUNDS;
  if (parser_->parser.capacity() > keptCapacity)
    parser_ = std::make_unique<Parser>();
  return !broken && alone ? Outcome::whole : Outcome::broken;
}

void JSONReader::keepCopy(std::string text) {
  copySize_ = text.size();
  text.resize(copySize_ + padding);
  copy_ = std::move(text);
}

std::string_view JSONReader::copiedText() const {
  return std::string_view(copy_).substr(0, copySize_);
}

}  // namespace tessivane
