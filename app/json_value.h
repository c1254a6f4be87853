// Structured values written on the command line as JSON.
#pragma once

#include <tesk/tesk.h>

#include <string_view>

namespace brimora {

// Whether the text of a value is meant as JSON: an array or an object.
bool looks_like_json(std::string_view text);

// Reads a JSON array or object into host values: arrays become Lists, objects
// HashMaps with String keys (a repeated key keeps its last value), and each
// leaf follows the rules of a plain value (see parse_value). Malformed JSON,
// or a number out of range, gives an Error that says where it broke.
tesk::Any parse_json_value(std::string_view text);

} // namespace brimora
