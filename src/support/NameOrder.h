#pragma once

// How names stand in a list that a person reads. Safe on every thread.

#include <compare>
#include <string_view>

namespace tessivane {

/// Compares as a file list of the person's language does: case and accents matter only between
/// names that are equal without them, and runs of digits count as numbers ("v9" before "v10").
/// Ill-formed UTF-8 is compared as if repaired. Names of different bytes may be equivalent.
std::weak_ordering compareNames(std::string_view a, std::string_view b);

}  // namespace tessivane
