#include "app/value_text.h"

#include "app/json_value.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <system_error>

namespace brimora {
namespace {

bool is_digit(char c) { return c >= '0' && c <= '9'; }

// Optional minus sign, then digits only.
bool looks_integral(std::string_view text) {
    if (text.starts_with('-')) text.remove_prefix(1);
    return !text.empty() && std::ranges::all_of(text, is_digit);
}

// How from_chars read the whole text.
enum class Reading { number, out_of_range, not_a_number };

template <class N> Reading read_whole(std::string_view text, N& out) {
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), out);
    if (end != text.data() + text.size()) return Reading::not_a_number;
    if (ec == std::errc::result_out_of_range) return Reading::out_of_range;
    return ec == std::errc() ? Reading::number : Reading::not_a_number;
}

tesk::Error out_of_range(std::string_view text) {
    return tesk::Error(tesk::String("The number {} is out of range.").arg(tesk::String(text)));
}

tesk::Any parse_integer(std::string_view text) {
    if (std::int64_t value = 0; read_whole(text, value) == Reading::number) return tesk::Integer(value);
    if (std::uint64_t large = 0; read_whole(text, large) == Reading::number) return tesk::Integer::fromUnsigned(large);
    return out_of_range(text);
}

// A decimal number in the usual notation ("1.5", "-2e3", ".5"); the words
// inf and nan stay text. None when the text is no such number.
tesk::Any parse_float(std::string_view text) {
    if (!std::ranges::any_of(text, is_digit)) return {};
    double value = 0;
    switch (read_whole(text, value)) {
    case Reading::number: return tesk::Float(value);
    case Reading::out_of_range: return out_of_range(text);
    case Reading::not_a_number: break;
    }
    return {};
}

} // namespace

tesk::Any parse_value(std::string_view text) {
    if (looks_like_json(text)) return parse_json_value(text);
    if (looks_integral(text)) return parse_integer(text);
    if (tesk::Any number = parse_float(text); number.hasValue()) return number;
    if (text == "true" || text == "True") return tesk::Boolean(true);
    if (text == "false" || text == "False") return tesk::Boolean(false);
    if (text == "none" || text == "None") return tesk::Any();
    return tesk::String(text);
}

bool is_variable_name(std::string_view name) {
    if (name.empty() || is_digit(name.front())) return false;
    return std::ranges::all_of(name, [](char c) {
        auto byte = static_cast<unsigned char>(c);
        return byte >= 0x80 || c == '_' || is_digit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
    });
}

} // namespace brimora
