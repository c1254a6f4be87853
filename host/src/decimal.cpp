// Decimal: decimal numbers kept as their text, read exactly when compared.
#include "value_objects.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <vector>

namespace tesk {

namespace internal {

object_value_decimal::object_value_decimal(String t) noexcept
    : object_value(Kind::Decimal, builtin_class(builtin::decimal)), text(std::move(t)) {}

namespace {

bool equals_ignoring_case(std::string_view text, std::string_view lower) noexcept {
    if (text.size() != lower.size()) return false;
    for (std::size_t i = 0; i < text.size(); ++i)
        if ((text[i] | 0x20) != lower[i]) return false;
    return true;
}

bool is_digit(char c) noexcept { return c >= '0' && c <= '9'; }

// Exponents beyond this are clamped: such values are far outside anything a
// comparison can tell apart, and clamping keeps the arithmetic in range.
constexpr std::int64_t exponent_limit = std::int64_t{1} << 59;

void normalise(decimal_parts& parts) {
    std::size_t lead = parts.digits.find_first_not_of('0');
    if (lead == std::string::npos) {
        parts = decimal_parts{};
        return;
    }
    parts.digits.erase(0, lead);
    std::size_t last = parts.digits.find_last_not_of('0');
    parts.exponent += static_cast<std::int64_t>(parts.digits.size() - 1 - last);
    parts.digits.resize(last + 1);
}

// Unsigned big integers in base 10^9, least significant limb first: just
// enough arithmetic to write a double's exact value in decimal.
struct big_decimal {
    std::vector<std::uint32_t> limbs{0};

    void multiply(std::uint32_t factor) {
        std::uint64_t carry = 0;
        for (auto& limb : limbs) {
            std::uint64_t product = std::uint64_t{limb} * factor + carry;
            limb = static_cast<std::uint32_t>(product % 1000000000u);
            carry = product / 1000000000u;
        }
        while (carry != 0) {
            limbs.push_back(static_cast<std::uint32_t>(carry % 1000000000u));
            carry /= 1000000000u;
        }
    }
    // Multiplies by base^count, in steps whose factor fits 32 bits.
    void multiply_power(std::uint32_t base, std::uint32_t step_factor, int step, int count) {
        for (; count >= step; count -= step) multiply(step_factor);
        std::uint32_t rest = 1;
        for (; count > 0; --count) rest *= base;
        multiply(rest);
    }
    std::string text() const {
        std::string out = std::to_string(limbs.back());
        char buffer[16];
        for (auto it = limbs.rbegin() + 1; it != limbs.rend(); ++it) {
            auto end = std::to_chars(buffer, buffer + sizeof buffer, *it).ptr;
            out.append(static_cast<std::size_t>(9 - (end - buffer)), '0');
            out.append(buffer, end);
        }
        return out;
    }
};

int sign_of(decimal_parts const& p) noexcept {
    if (p.kind == decimal_parts::form::finite && p.digits.empty()) return 0;
    return p.negative ? -1 : 1;
}

// Compares |a| and |b| for non-zero, non-NaN values.
int compare_magnitude(decimal_parts const& a, decimal_parts const& b) noexcept {
    bool a_inf = a.kind == decimal_parts::form::infinite, b_inf = b.kind == decimal_parts::form::infinite;
    if (a_inf || b_inf) return a_inf == b_inf ? 0 : a_inf ? 1 : -1;
    // The position of the leading digit decides first.
    std::int64_t a_top = a.exponent + static_cast<std::int64_t>(a.digits.size());
    std::int64_t b_top = b.exponent + static_cast<std::int64_t>(b.digits.size());
    if (a_top != b_top) return a_top < b_top ? -1 : 1;
    std::size_t common = std::min(a.digits.size(), b.digits.size());
    int c = a.digits.compare(0, common, b.digits, 0, common);
    if (c != 0) return c < 0 ? -1 : 1;
    // Normalised digits have no trailing zeros: the longer one is larger.
    return a.digits.size() == b.digits.size() ? 0 : a.digits.size() < b.digits.size() ? -1 : 1;
}

} // namespace

std::optional<decimal_parts> parse_decimal(std::string_view text) {
    decimal_parts parts;
    std::size_t i = 0, n = text.size();
    if (i < n && (text[i] == '+' || text[i] == '-')) parts.negative = text[i++] == '-';
    std::string_view rest = text.substr(i);
    if (equals_ignoring_case(rest, "infinity") || equals_ignoring_case(rest, "inf")) {
        parts.kind = decimal_parts::form::infinite;
        return parts;
    }
    if (equals_ignoring_case(rest, "nan") || equals_ignoring_case(rest, "snan")) {
        parts.kind = decimal_parts::form::nan;
        return parts;
    }
    std::size_t digit_count = 0, fraction_digits = 0;
    for (; i < n && is_digit(text[i]); ++i, ++digit_count) parts.digits += text[i];
    if (i < n && text[i] == '.') {
        for (++i; i < n && is_digit(text[i]); ++i, ++digit_count, ++fraction_digits) parts.digits += text[i];
    }
    if (digit_count == 0) return std::nullopt;
    std::int64_t exponent = 0;
    if (i < n && (text[i] == 'e' || text[i] == 'E')) {
        ++i;
        bool negative_exponent = false;
        if (i < n && (text[i] == '+' || text[i] == '-')) negative_exponent = text[i++] == '-';
        if (i == n || !is_digit(text[i])) return std::nullopt;
        for (; i < n && is_digit(text[i]); ++i)
            exponent = std::min(exponent * 10 + (text[i] - '0'), exponent_limit);
        if (negative_exponent) exponent = -exponent;
    }
    if (i != n) return std::nullopt;
    parts.exponent = exponent - static_cast<std::int64_t>(fraction_digits);
    normalise(parts);
    return parts;
}

decimal_parts decimal_of_integer(std::uint64_t magnitude, bool negative) {
    decimal_parts parts;
    parts.negative = negative;
    parts.digits = std::to_string(magnitude);
    normalise(parts);
    return parts;
}

decimal_parts decimal_of_double(double d) {
    decimal_parts parts;
    parts.negative = std::signbit(d);
    if (std::isnan(d)) {
        parts.kind = decimal_parts::form::nan;
        return parts;
    }
    if (std::isinf(d)) {
        parts.kind = decimal_parts::form::infinite;
        return parts;
    }
    // |d| = mantissa × 2^binary, with a 53-bit integer mantissa.
    int binary = 0;
    double fraction = std::frexp(std::fabs(d), &binary);
    auto mantissa = static_cast<std::uint64_t>(std::ldexp(fraction, 53));
    binary -= 53;
    big_decimal value;
    value.limbs = {static_cast<std::uint32_t>(mantissa % 1000000000u),
                   static_cast<std::uint32_t>(mantissa / 1000000000u % 1000000000u),
                   static_cast<std::uint32_t>(mantissa / 1000000000000000000u)};
    if (binary >= 0) {
        value.multiply_power(2, 1u << 29, 29, binary);
    } else {
        // m × 2^-k = m × 5^k × 10^-k
        value.multiply_power(5, 1220703125u, 13, -binary);
        parts.exponent = binary;
    }
    parts.digits = value.text();
    normalise(parts);
    return parts;
}

Ordering compare_decimal(decimal_parts const& a, decimal_parts const& b) noexcept {
    if (a.kind == decimal_parts::form::nan || b.kind == decimal_parts::form::nan) return Ordering::notComparable();
    int sa = sign_of(a), sb = sign_of(b);
    if (sa != sb) return Ordering::fromSign(sa - sb);
    if (sa == 0) return Ordering::equal();
    return Ordering::fromSign(sa * compare_magnitude(a, b));
}

} // namespace internal

Union<Decimal, Error> Decimal::fromString(String const& text) {
    if (!internal::parse_decimal(text.asChars())) return Error(String("Invalid decimal text: {}.").arg(text));
    return Decimal::unsafe(Any::adopt(new internal::object_value_decimal(text.get() ? text : String())));
}

String Decimal::toString() const {
    return get() ? static_cast<internal::object_value_decimal const*>(get())->text : String();
}

} // namespace tesk
