// hash_of: equal values hash alike, across kinds where they compare equal.
#include "class_internal.h"
#include "container_objects.h"

#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>

namespace tesk {

namespace internal {

// The finaliser of MurmurHash3: every input bit affects every output bit.
std::uint64_t hash_word(std::uint64_t x) noexcept {
    x ^= x >> 33;
    x *= 0xFF51AFD7ED558CCDull;
    x ^= x >> 33;
    x *= 0xC4CEB9FE1A85EC53ull;
    x ^= x >> 33;
    return x;
}

// Eight bytes per step; the length is mixed in so that "a" and "a\0" differ.
std::uint64_t hash_bytes(char const* data, std::size_t size) noexcept {
    std::uint64_t h = 0x243F6A8885A308D3ull ^ (size * 0x9E3779B97F4A7C15ull);
    std::size_t n = size;
    for (; n >= 8; n -= 8, data += 8) {
        std::uint64_t w;
        std::memcpy(&w, data, 8);
        h = std::rotl(h ^ (w * 0x87C37B91114253D5ull), 31) * 0x4CF5AD432745937Full;
    }
    if (n != 0) {
        std::uint64_t w = 0;
        std::memcpy(&w, data, n);
        h ^= w * 0x87C37B91114253D5ull;
    }
    return hash_word(h);
}

std::optional<bool> builtin_immutability(Any const& v) {
    Kind k = v.kind();
    if (is_scalar_kind(k)) return true;
    switch (k) {
    case Kind::Tuple:
        for (Any const& item : Tuple::unsafe(v).items())
            if (!is_hashable(item)) return false;
        return true;
    case Kind::List:
    case Kind::HashMap:
    case Kind::HashSet: return false;
    default: return std::nullopt;
    }
}

bool is_hashable(Any const& v) {
    std::optional<bool> builtin = builtin_immutability(v);
    return builtin ? *builtin : I_Immutable::test(v);
}

namespace {

// Distinct constants for values that are not numbers or text.
constexpr std::uint64_t none_hash = 0x6E6F6E65ull;
constexpr std::uint64_t undefined_hash = 0x756E646566ull;
constexpr std::uint64_t false_hash = 0x66616C7365ull;
constexpr std::uint64_t true_hash = 0x74727565ull;
constexpr std::uint64_t nan_hash = 0x6E616Eull;

// Numbers that are equal hash alike: a whole number hashes as the integer
// with its 64 bits (signed or unsigned, whichever holds it), any other double
// by its bits, and a decimal as whichever of the two it equals exactly.
std::uint64_t integer_hash(std::uint64_t bits) noexcept { return hash_word(bits); }

std::uint64_t float_hash(double d) noexcept {
    if (std::isnan(d)) return nan_hash;
    if (d == std::trunc(d) && d >= -0x1p63 && d < 0x1p64) {
        return d < 0 ? integer_hash(static_cast<std::uint64_t>(static_cast<std::int64_t>(d)))
                     : integer_hash(static_cast<std::uint64_t>(d));
    }
    return hash_word(std::bit_cast<std::uint64_t>(d));
}

// The decimal's value as 64 integer bits, when it is whole and one of the
// two 64-bit ranges holds it.
std::optional<std::uint64_t> whole_decimal_bits(decimal_parts const& p) {
    if (p.exponent < 0 || p.digits.size() + static_cast<std::size_t>(p.exponent) > 20) return std::nullopt;
    std::string text = p.digits + std::string(static_cast<std::size_t>(p.exponent), '0');
    std::uint64_t magnitude = 0;
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), magnitude);
    if (ec != std::errc() || end != text.data() + text.size()) return std::nullopt;
    if (!p.negative) return magnitude;
    if (magnitude > (std::uint64_t{1} << 63)) return std::nullopt;
    return ~magnitude + 1; // two's complement of the magnitude
}

std::uint64_t decimal_hash(String const& text) {
    auto parts = parse_decimal(text.asChars());
    if (!parts || parts->kind == decimal_parts::form::nan) return nan_hash;
    if (parts->kind == decimal_parts::form::infinite) return float_hash(parts->negative ? -HUGE_VAL : HUGE_VAL);
    if (auto bits = whole_decimal_bits(*parts)) return integer_hash(*bits);
    std::string_view chars = text.asChars();
    if (!chars.empty() && chars.front() == '+') chars.remove_prefix(1);
    double d = 0;
    auto [end, ec] = std::from_chars(chars.data(), chars.data() + chars.size(), d);
    if (ec == std::errc() && end == chars.data() + chars.size() &&
        compare_decimal(*parts, decimal_of_double(d)) == Ordering::equal())
        return float_hash(d);
    std::uint64_t h = hash_bytes(parts->digits.data(), parts->digits.size());
    h = hash_combine(h, static_cast<std::uint64_t>(parts->exponent));
    return hash_combine(h, parts->negative);
}

std::uint64_t clock_hash(clock_key const& key) noexcept {
    return hash_combine(hash_combine(key.aware, static_cast<std::uint64_t>(key.seconds)), key.nanoseconds);
}

std::uint64_t sequence_hash(std::span<Any const> items) {
    std::uint64_t h = hash_word(items.size());
    for (Any const& item : items) h = hash_combine(h, hash_of(item));
    return h;
}

std::uint64_t identity_hash(Any const& v) noexcept { return hash_word(reinterpret_cast<std::uintptr_t>(v.get())); }

// Objects that are not built-in values: a "__hash__" override gives the hash
// itself (an Integer, taken as it is); otherwise the identity.
std::uint64_t object_hash(Any const& v) {
    if (Any method = class_override(v, Any::$__hash__); method.hasValue()) {
        Any result = call_member(method, v, {});
        if (Integer::test(result)) return Integer::unsafe(result).unsignedValue();
    }
    return identity_hash(v);
}

} // namespace
} // namespace internal

std::uint64_t hash_of(Any const& v) {
    using namespace internal;
    if (v.get() == nullptr) return none_hash;
    switch (v.kind()) {
    case Kind::String: return bytes_of(v)->hash();
    case Kind::Integer: return integer_hash(static_cast<object_value_integer const*>(v.get())->bits);
    case Kind::None: return none_hash;
    case Kind::Undefined: return undefined_hash;
    case Kind::Boolean: return static_cast<object_value_boolean const*>(v.get())->value ? true_hash : false_hash;
    case Kind::Float: return float_hash(static_cast<object_value_float const*>(v.get())->value);
    case Kind::Decimal: return decimal_hash(static_cast<object_value_decimal const*>(v.get())->text);
    case Kind::ByteArray: return hash_combine(bytes_of(v)->hash(), 0x62797465ull);
    case Kind::Date: {
        auto const& d = *static_cast<object_value_date const*>(v.get());
        return hash_word((static_cast<std::uint64_t>(static_cast<std::uint32_t>(d.year)) << 16) |
                         (std::uint64_t{d.month} << 8) | d.day);
    }
    case Kind::Time: return clock_hash(clock_key_of(*static_cast<object_value_time const*>(v.get())));
    case Kind::DateTime: return clock_hash(clock_key_of(*static_cast<object_value_date_time const*>(v.get())));
    case Kind::Tuple: return sequence_hash(Tuple::unsafe(v).items());
    case Kind::List: {
        nesting_guard guard;
        if (!guard.ok()) return identity_hash(v);
        return sequence_hash(List::unsafe(v).copyItems());
    }
    // Maps and sets hash alike whatever the order of insertion.
    case Kind::HashMap: {
        nesting_guard guard;
        if (!guard.ok()) return identity_hash(v);
        std::uint64_t sum = 0;
        for (auto const& [key, value] : HashMap::unsafe(v).items()) sum += hash_combine(hash_of(key), hash_of(value));
        return hash_word(sum ^ 0x6D6170ull);
    }
    case Kind::HashSet: {
        nesting_guard guard;
        if (!guard.ok()) return identity_hash(v);
        std::uint64_t sum = 0;
        for (Any const& item : HashSet::unsafe(v).items()) sum += hash_of(item);
        return hash_word(sum ^ 0x736574ull);
    }
    case Kind::Computed:
    case Kind::Weak:
    case Kind::External: return hash_of(unwrap(v));
    default: return object_hash(v);
    }
}

std::uint64_t object_id(Any const& v) noexcept { return reinterpret_cast<std::uintptr_t>(v.get()); }

} // namespace tesk
