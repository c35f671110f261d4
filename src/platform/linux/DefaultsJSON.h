#pragma once

// The settings as text. Truth values, numbers, texts, arrays and dictionaries are what JSON has for
// them; data is {"$data": "<base64>"}. A "$" at the beginning of a real key within a dictionary is
// doubled, so that nothing else looks like data. Pure functions, safe on every thread.

#include <optional>
#include <string>
#include <string_view>

#include "platform/DefaultsValue.h"

namespace tessivane {

/// Text that people can read and edit, with a line end. Ill-formed UTF-8 is repaired; a number that
/// is not finite cannot be stored and reads back as absent.
std::string defaultsJSON(const DefaultsDictionary& values);

/// Nothing when the text is not one JSON object. A value that is of no kind of ours (null, an array
/// or a dictionary with such a value in it, more than a hundred levels deep) is left out.
std::optional<DefaultsDictionary> defaultsFromJSON(std::string_view text);

}  // namespace tessivane
