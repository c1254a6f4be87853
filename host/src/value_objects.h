// The heap records behind the plain value handles (String, Integer, Decimal,
// dates, byte arrays, deferred values), and the helpers the value files share.
// Internal to teskcore: the handles in tesk/values.h are the public face.
//
// Built-in value records take their class record from builtin_class(id) when
// they are created. builtin_class must therefore answer (with the address of
// the record, even one still being built) while the built-in classes are made:
// their names are Strings.
#pragma once

#include "tesk/class.h"
#include "tesk/values.h"

#include <cstdint>
#include <functional>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <string_view>

namespace tesk::internal {

// ---------------------------------------------------------------------------
// Text and bytes: one allocation, the header followed by the bytes and a NUL.
// Used with Kind::String and Kind::ByteArray alike; the hash is computed on
// first use.
class object_value_bytes final : public object_value {
public:
    // A record for `size` bytes; the caller fills data().
    static object_value_bytes* allocate(Kind kind, std::size_t size);
    // A complete record holding a copy of the bytes.
    static object_value_bytes* make(Kind kind, char const* data, std::size_t size);

    char* data() noexcept { return reinterpret_cast<char*>(this + 1); }
    char const* data() const noexcept { return reinterpret_cast<char const*>(this + 1); }
    std::string_view view() const noexcept { return {data(), size}; }
    // Computed on first use and kept: most strings crossing the boundary are
    // never hashed, so creation does not pay for it.
    std::uint64_t hash() const noexcept;

    // The record was made by ::operator new with room for the bytes.
    static void operator delete(void* p) noexcept { ::operator delete(p); }

    std::size_t size;

private:
    // 0 until computed; a computed 0 is stored as 1. Threads that race compute
    // the same value.
    mutable std::atomic<std::uint64_t> hash_{0};

    object_value_bytes(Kind kind, object_value_class const* cls, std::size_t n) noexcept
        : object_value(kind, cls), size(n) {}
};

inline object_value_bytes const* bytes_of(Any const& v) noexcept {
    return static_cast<object_value_bytes const*>(v.get());
}

// A 64-bit hash of bytes; the String hash.
std::uint64_t hash_bytes(char const* data, std::size_t size) noexcept;

inline std::uint64_t object_value_bytes::hash() const noexcept {
    std::uint64_t h = hash_.load(std::memory_order_relaxed);
    if (h == 0) {
        h = hash_bytes(data(), size);
        if (h == 0) h = 1;
        hash_.store(h, std::memory_order_relaxed);
    }
    return h;
}
// Mixes one 64-bit word (integers hash through it).
std::uint64_t hash_word(std::uint64_t x) noexcept;
// Combines a running hash with the next item's hash (order matters).
inline std::uint64_t hash_combine(std::uint64_t seed, std::uint64_t h) noexcept {
    return hash_word(seed ^ (h + 0x9E3779B97F4A7C15ull + (seed << 6) + (seed >> 2)));
}

// The length of the well-formed UTF-8 sequence at `p` (1 to 4), or the
// negated length of the maximal ill-formed part there (-1 to -3), which a
// decoder replaces by one U+FFFD.
int utf8_sequence(unsigned char const* p, std::size_t available) noexcept;

// ---------------------------------------------------------------------------
// Numbers (the integer record is in tesk/values.h).
struct object_value_boolean final : object_value {
    object_value_boolean(bool v) noexcept;
    bool value;
};

struct object_value_float final : object_value {
    explicit object_value_float(double v) noexcept;
    double value;
};

// A decimal keeps the text it was made from; its value is read from the text
// when it is compared or hashed.
struct object_value_decimal final : object_value {
    explicit object_value_decimal(String text) noexcept;
    String text;
};

// A decimal value taken apart: value = (negative ? -1 : 1) × digits × 10^exponent.
// Finite values are normalised (no leading or trailing zeros in `digits`;
// zero has empty digits, exponent 0 and no sign), so equal values have equal parts.
struct decimal_parts {
    enum class form : std::uint8_t { finite, infinite, nan };
    form kind = form::finite;
    bool negative = false;
    std::string digits;
    std::int64_t exponent = 0;
};
// The parts of decimal text, or nothing when the text is not a decimal.
std::optional<decimal_parts> parse_decimal(std::string_view text);
// The exact parts of an integer and of a double (every finite double is a
// finite decimal).
decimal_parts decimal_of_integer(std::uint64_t magnitude, bool negative);
decimal_parts decimal_of_double(double d);
// Orders two decimal values exactly; NaN is not comparable.
Ordering compare_decimal(decimal_parts const& a, decimal_parts const& b) noexcept;

// ---------------------------------------------------------------------------
// Dates and times.
struct object_value_date final : object_value {
    object_value_date(std::int32_t y, std::uint8_t m, std::uint8_t d) noexcept;
    std::int32_t year;
    std::uint8_t month, day;
};

struct object_value_time final : object_value {
    object_value_time(std::uint8_t h, std::uint8_t m, std::uint8_t s, std::uint32_t ns) noexcept;
    std::uint8_t hour, minute, second;
    std::uint8_t fold = 0;
    std::uint32_t nanoseconds;
    bool has_offset = false;
    std::uint32_t utc_offset = 0;
    String zone;
};

struct object_value_date_time final : object_value {
    object_value_date_time(Date d, Time t) noexcept;
    Date date;
    Time time;
};

// A time as a count for ordering and hashing. Aware values count from UTC,
// so 12:00+01:00 and 11:00+00:00 are the same point; naive values count
// their clock fields and are never the same as aware ones.
struct clock_key {
    bool aware;
    std::int64_t seconds;
    std::uint32_t nanoseconds;
    friend bool operator==(clock_key const&, clock_key const&) = default;
};
clock_key clock_key_of(object_value_time const& t) noexcept;      // seconds of the day
clock_key clock_key_of(object_value_date_time const& dt) noexcept; // seconds since 1970-01-01

// ---------------------------------------------------------------------------
// Values that stand for another value: deferred (Computed), weak and lazily
// loaded (External) ones. unwrap() follows target() until it reaches a value
// of another kind.
class object_value_indirect : public object_value {
public:
    using object_value::object_value;
    virtual Any target() const = 0;
};

class object_value_computed final : public object_value_indirect {
public:
    explicit object_value_computed(std::function<Any()> producer) noexcept;
    Any target() const override;

private:
    mutable std::function<Any()> producer_; // emptied once it has run
    mutable std::once_flag once_;
    mutable Any result_;
};

// A value loaded on first use (Kind::External); the loader runs once.
class object_value_external final : public object_value_indirect {
public:
    object_value_external(object_value_class const* cls, std::function<Any()> loader) noexcept;
    Any target() const override;

private:
    mutable std::function<Any()> loader_;
    mutable std::once_flag once_;
    mutable Any value_;
};

// ---------------------------------------------------------------------------
// A value made once and never destroyed (the canonical booleans, the small
// integers, the empty string, the undefined value): the slot keeps the
// reference the value was created with. No function-local static is
// involved, because making the first such value may build the built-in
// classes, which make such values themselves; if two calls race (or nest),
// the first to publish wins and the other drops its copy.
template <class Make> object_value const* shared_value(std::atomic<object_value const*>& slot, Make&& make) {
    object_value const* published = slot.load(std::memory_order_acquire);
    if (published != nullptr) return published;
    object_value const* fresh = make();
    if (slot.compare_exchange_strong(published, fresh, std::memory_order_acq_rel, std::memory_order_acquire)) {
        fresh->make_immortal();
        return fresh;
    }
    fresh->release();
    return published;
}

// Python-style text of a double: the shortest text that reads back the same,
// "2.0" for whole values, exponents as in "1e+16"; "inf", "-inf" and "nan".
void append_float_repr(std::string& out, double v);
// Decimal digits of an integer record's value.
void append_integer(std::string& out, object_value_integer const& v);
// Python literal of bytes: b'...' with \\, \', \n, \r, \t and \xNN escapes.
void append_bytes_literal(std::string& out, std::string_view bytes);

// The kinds of plain values: none, undefined, booleans, numbers, text, bytes,
// decimals, dates and times. They never change and their equality, order and
// hash are fixed here, with no class to override them.
inline bool is_scalar_kind(Kind k) noexcept {
    switch (k) {
    case Kind::None:
    case Kind::Undefined:
    case Kind::Boolean:
    case Kind::Integer:
    case Kind::Float:
    case Kind::String:
    case Kind::ByteArray:
    case Kind::Decimal:
    case Kind::Date:
    case Kind::Time:
    case Kind::DateTime: return true;
    default: return false;
    }
}

// Whether a value of a built-in kind never changes: none, booleans, numbers,
// strings, bytes, decimals, dates and times, and tuples of immutable values.
// Nothing for instances and other kinds, whose classes decide (I_Immutable).
std::optional<bool> builtin_immutability(Any const& v);
// Whether `v` may be a hash key: the rule above, else I_Immutable::test.
bool is_hashable(Any const& v);

// Keeps nested display/compare/hash calls from running away on a container
// that holds itself: each holds one level while it lives.
class nesting_guard {
public:
    nesting_guard() noexcept;
    ~nesting_guard();
    nesting_guard(nesting_guard const&) = delete;
    nesting_guard& operator=(nesting_guard const&) = delete;
    // Whether the nesting is still within bounds.
    bool ok() const noexcept;
};

} // namespace tesk::internal
