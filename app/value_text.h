// Values written on the command line (NAME=VALUE options).
#pragma once

#include <tesk/tesk.h>

#include <string_view>

namespace brimora {

// Reads the text of a value: an integer gives an Integer, a decimal number a
// Float, true/false (or True/False) a Boolean, none (or None) the none value,
// a JSON array or object a List or HashMap (see parse_json_value), and
// anything else the text itself as a String. A number beyond the 64-bit
// ranges, or malformed JSON, gives an Error.
tesk::Any parse_value(std::string_view text);

// Whether `name` can name a Python variable: letters (any non-ASCII byte
// counts as one), digits and underscores, not starting with a digit.
bool is_variable_name(std::string_view name);

} // namespace brimora
