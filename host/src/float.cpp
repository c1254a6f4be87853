// Float: a boxed double, and its Python-style text.
#include "value_objects.h"

#include <charconv>
#include <cmath>

namespace tesk {

namespace internal {

object_value_float::object_value_float(double v) noexcept
    : object_value(Kind::Float, builtin_class(builtin::float_)), value(v) {}

// The shortest digits that read back as `v` (std::to_chars), laid out as
// Python's repr does: positional notation while the decimal exponent is in
// [-4, 16), with ".0" for whole values; otherwise d.ddde±XX.
void append_float_repr(std::string& out, double v) {
    if (std::isnan(v)) {
        out += "nan";
        return;
    }
    if (std::isinf(v)) {
        out += v < 0 ? "-inf" : "inf";
        return;
    }
    char buffer[40];
    auto end = std::to_chars(buffer, buffer + sizeof buffer, v, std::chars_format::scientific).ptr;
    std::string_view sci(buffer, static_cast<std::size_t>(end - buffer));
    std::size_t e = sci.find('e');
    int exponent = 0;
    std::string_view exponent_text = sci.substr(e + 1);
    if (exponent_text.front() == '+') exponent_text.remove_prefix(1);
    std::from_chars(exponent_text.data(), exponent_text.data() + exponent_text.size(), exponent);
    std::string_view mantissa = sci.substr(0, e);
    if (mantissa.front() == '-') {
        out += '-';
        mantissa.remove_prefix(1);
    }
    std::string digits;
    for (char c : mantissa)
        if (c != '.') digits += c;

    if (exponent >= -4 && exponent < 16) {
        if (exponent < 0) {
            out += "0.";
            out.append(static_cast<std::size_t>(-exponent - 1), '0');
            out += digits;
        } else {
            auto whole = static_cast<std::size_t>(exponent) + 1;
            if (digits.size() <= whole) {
                out += digits;
                out.append(whole - digits.size(), '0');
                out += ".0";
            } else {
                out.append(digits, 0, whole);
                out += '.';
                out.append(digits, whole);
            }
        }
        return;
    }
    out += digits[0];
    if (digits.size() > 1) {
        out += '.';
        out.append(digits, 1);
    }
    char exp_text[8];
    auto exp_end = std::to_chars(exp_text, exp_text + sizeof exp_text, exponent < 0 ? -exponent : exponent).ptr;
    out += exponent < 0 ? "e-" : "e+";
    if (exp_end - exp_text < 2) out += '0';
    out.append(exp_text, exp_end);
}

} // namespace internal

Float::Float(double v) : Any(Any::adopt(new internal::object_value_float(v))) {}

double Float::value() const noexcept {
    return get() ? static_cast<internal::object_value_float const*>(get())->value : 0.0;
}

} // namespace tesk
