#pragma once

// Reading one JSON object at a time from text that other programs wrote, by visiting its fields in
// the order in which they stand. Nothing is built and nothing but what is asked for is decoded, so
// a line of megabytes costs little more than finding its brackets.
//
// A `JSONReader` belongs to one thread. Values are borrowed: each is good only inside the call that
// hands it out. A `JSONText` is good until the reader's next visit, as long as the line lives.

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "support/FunctionRef.h"

namespace tessivane {

/// A line of a buffer that has at least `JSONReader::padding` readable bytes after its end.
struct PaddedLine {
  std::string_view text;
};

/// A JSON string as it stands in the file, without its quotes and with its escapes.
struct JSONText {
  std::string_view escaped;

  /// The text itself. An escaped half of a surrogate pair with no partner (clients cut their
  /// output by code units, so this occurs) becomes U+FFFD; so does an escape that is none.
  std::string decoded() const;

  /// Equality with plain text, without decoding where no escape stands in the way.
  bool is(std::string_view plain) const;

  /// True when the text begins with `plain`, decoding no more than needed.
  bool startsWith(std::string_view plain) const;
};

class JSONValue final {
 public:
  using FieldVisitor = FunctionRef<void(std::string_view key, JSONValue& value)>;
  using ElementVisitor = FunctionRef<void(JSONValue& value)>;

  enum class Kind { object, array, text, number, boolean, null, broken };

  Kind kind();

  /// The value when it is of that kind, else nothing. A number out of a double's range is nothing.
  std::optional<JSONText> text();
  std::optional<double> number();
  std::optional<bool> boolean();

  /// Visits the fields of an object, or the elements of an array, in order. False, with no visit,
  /// when the value is of another kind. Once for each value, and no more than 1,000 levels down.
  bool visitFields(FieldVisitor visitor);
  bool visitElements(ElementVisitor visitor);

 private:
  friend class JSONReader;
  JSONValue(void* value, bool& broken) : value_(value), broken_(&broken) {}

  void* value_;
  bool* broken_;
};

class JSONReader final {
 public:
  static constexpr std::size_t padding = 64;

  JSONReader();
  JSONReader(const JSONReader&) = delete;
  JSONReader& operator=(const JSONReader&) = delete;
  ~JSONReader();

  /// Visits the fields of the one object that `line` holds. Keys are compared as they stand in the
  /// file: a key written with escapes is not recognised. Leading NUL bytes (a crashed client leaves
  /// runs of them) are passed over and ill-formed UTF-8 is repaired.
  ///
  /// False when the line is not one whole object: other JSON, cut off, brackets left open, text
  /// behind it, a bare control character in a string. The visitor may have been called by then, so
  /// what it gathered must be thrown away. An object or array that is not visited is passed over by
  /// counting brackets: nonsense between them goes unseen, as does a scalar that is not asked for.
  ///
  /// `visitPadded` reads in place; `visit` copies first. Not to be called from within a visit.
  bool visitPadded(PaddedLine line, JSONValue::FieldVisitor visitor);
  bool visit(std::string_view text, JSONValue::FieldVisitor visitor);

 private:
  struct Parser;
  enum class Outcome { whole, broken, illFormedText };

  Outcome visitInPlace(std::string_view text, JSONValue::FieldVisitor visitor);
  void keepCopy(std::string text);
  std::string_view copiedText() const;

  std::unique_ptr<Parser> parser_;
  std::string copy_;
  std::size_t copySize_ = 0;
};

}  // namespace tessivane
