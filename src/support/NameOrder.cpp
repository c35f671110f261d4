#include "support/NameOrder.h"

#include <algorithm>
#include <cstdint>
#include <memory>

#include <unicode/coll.h>
#include <unicode/locid.h>

namespace tessivane {

namespace {

constexpr std::size_t maxICULength = 0x7fffffff;

icu::StringPiece piece(std::string_view text) {
  return {text.data(), static_cast<std::int32_t>(std::min(text.size(), maxICULength))};
}

// The "C" locale would compare bytes. That is for programs; a person gets the common order.
icu::Locale readersLocale() {
  const icu::Locale& locale = icu::Locale::getDefault();
  return std::string_view(locale.getVariant()) == "POSIX" ? icu::Locale::getRoot() : locale;
}

std::unique_ptr<icu::Collator> makeCollator() {
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::Collator> collator(icu::Collator::createInstance(readersLocale(), status));
  if (collator != nullptr && U_SUCCESS(status))
    collator->setAttribute(UCOL_NUMERIC_COLLATION, UCOL_ON, status);
  if (U_FAILURE(status))
    collator.reset();
  return collator;
}

// Making one takes longer than a thousand comparisons.
const icu::Collator* collator() {
  thread_local const std::unique_ptr<icu::Collator> made = makeCollator();
  return made.get();  // NOLINT(clang-analyzer-cplusplus.NewDelete)
}

}  // namespace

std::weak_ordering compareNames(std::string_view a, std::string_view b) {
  const icu::Collator* order = collator();
  UErrorCode status = U_ZERO_ERROR;
  const UCollationResult result =
      order == nullptr ? UCOL_EQUAL : order->compareUTF8(piece(a), piece(b), status);
  // Without the language's data, bytes are better than no order at all.
  if (order == nullptr || U_FAILURE(status))
    return a <=> b;
  return static_cast<int>(result) <=> 0;
}

}  // namespace tessivane
