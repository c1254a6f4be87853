// Plain values: booleans, numbers, decimals, dates and times, byte arrays;
// and the generic operations every value answers (hash, compare, display).
#pragma once

#include "tesk/string.h"

#include <atomic>
#include <cstdint>
#include <optional>

namespace tesk {

class TESK_API Boolean : public Any {
    TESK_HANDLE(Boolean, Any)
public:
    Boolean() : Boolean(false) {}
    Boolean(bool v); // one of the two canonical values; no allocation
    static bool test(Any const& v) noexcept { return v.kind() == Kind::Boolean; }
    bool value() const noexcept;
    explicit operator bool() const noexcept { return value(); }
    // Host truth: none, undefined, false, 0, 0.0, "" and empty containers are false.
    static Boolean from(Any const& v);
    // Whether this is the canonical true value.
    bool isTrue() const noexcept;
};

namespace internal {
// The record behind an Integer. Its layout is public so that boxing a small
// value and reading one are inline: both sit on every crossing of a number.
struct TESK_API object_value_integer final : object_value {
    object_value_integer(std::uint64_t bits, bool is_unsigned) noexcept;
    std::uint64_t bits;
    bool is_unsigned;
};

// The small signed integers are boxed once and shared (immortal): code boxes
// loop counters, sizes and indices all the time.
inline constexpr std::int64_t small_integer_min = -5;
inline constexpr std::int64_t small_integer_max = 1024;
// The shared boxes, indexed by value - small_integer_min; null until made.
TESK_API extern std::atomic<object_value const* const*> small_integer_boxes;
// Boxes any value (making the shared boxes on first use).
TESK_API Any box_integer_slow(std::int64_t v);

// The value of `v` when it is an Integer that fits 64 signed bits, read in
// place: no copy of the handle, no count changed.
inline bool signed_in_place(Any const& v, std::int64_t& out) noexcept {
    if (v.kind() != Kind::Integer) return false;
    auto const& record = *static_cast<object_value_integer const*>(v.get());
    if (record.is_unsigned && record.bits > static_cast<std::uint64_t>(INT64_MAX)) return false;
    out = static_cast<std::int64_t>(record.bits);
    return true;
}

inline Any box_integer(std::int64_t v) {
    if (v >= small_integer_min && v <= small_integer_max) {
        if (object_value const* const* boxes = small_integer_boxes.load(std::memory_order_acquire))
            return Any::borrow(boxes[v - small_integer_min]);
    }
    return box_integer_slow(v);
}
} // namespace internal

// A 64-bit integer that remembers whether it is signed or unsigned.
class TESK_API Integer : public Any {
    TESK_HANDLE(Integer, Any)
public:
    Integer() : Integer(std::int64_t{0}) {}
    Integer(std::int64_t v) : Any(internal::box_integer(v)) {} // small values are shared
    Integer(int v) : Integer(static_cast<std::int64_t>(v)) {}
    static Integer fromUnsigned(std::uint64_t v);
    static bool test(Any const& v) noexcept { return v.kind() == Kind::Integer; }

    bool isUnsigned() const noexcept { return get() != nullptr && record()->is_unsigned; }
    // The bits as signed.
    std::int64_t value() const noexcept { return get() ? static_cast<std::int64_t>(record()->bits) : 0; }
    // The bits as unsigned.
    std::uint64_t unsignedValue() const noexcept { return get() ? record()->bits : 0; }
    // Whether the value fits the signed 64-bit range (every signed value does).
    bool fitsSigned() const noexcept { return !isUnsigned() || unsignedValue() <= INT64_MAX; }

private:
    internal::object_value_integer const* record() const noexcept {
        return static_cast<internal::object_value_integer const*>(get());
    }
};

// Integer parameters of typed wrappers: `int` casts through Int32 (range
// checked), `long long` through Int64.
struct TESK_API Int32 {
    static std::optional<std::int32_t> from(Any const& v);
};
struct TESK_API Int64 {
    static std::optional<std::int64_t> from(Any const& v);
};

class TESK_API Float : public Any {
    TESK_HANDLE(Float, Any)
public:
    Float(double v);
    static bool test(Any const& v) noexcept { return v.kind() == Kind::Float; }
    double value() const noexcept;
};

// A decimal number kept as its canonical decimal text, so "1.10" stays "1.10".
class TESK_API Decimal : public Any {
    TESK_HANDLE(Decimal, Any)
public:
    static bool test(Any const& v) noexcept { return v.kind() == Kind::Decimal; }
    // Accepts [sign] digits [. digits] [e|E [sign] digits], or [sign] "Infinity"/"Inf"/"NaN".
    static Union<Decimal, Error> fromString(String const& text);
    String toString() const;
};

class TESK_API Date : public Any {
    TESK_HANDLE(Date, Any)
public:
    Date(std::int32_t year, std::uint8_t month, std::uint8_t day);
    static bool test(Any const& v) noexcept { return v.kind() == Kind::Date; }
    std::int32_t year() const noexcept;
    std::uint8_t month() const noexcept;
    std::uint8_t day() const noexcept;
};

// A time of day, naive or with a non-negative UTC offset in seconds.
class TESK_API Time : public Any {
    TESK_HANDLE(Time, Any)
public:
    // Naive.
    Time(std::uint8_t hour, std::uint8_t minute, std::uint8_t second, std::uint32_t nanoseconds = 0);
    // With an offset and zone name.
    Time(std::uint8_t hour, std::uint8_t minute, std::uint8_t second, std::uint32_t nanoseconds,
         std::uint32_t utcOffsetSeconds, String zoneName, std::uint8_t fold = 0);
    static bool test(Any const& v) noexcept { return v.kind() == Kind::Time; }
    std::uint8_t hour() const noexcept;
    std::uint8_t minute() const noexcept;
    std::uint8_t second() const noexcept;
    std::uint32_t nanoseconds() const noexcept;
    bool hasOffset() const noexcept;
    std::uint32_t utcOffsetSeconds() const noexcept; // 0 when naive
    String zoneName() const;
    std::uint8_t fold() const noexcept;
};

class TESK_API DateTime : public Any {
    TESK_HANDLE(DateTime, Any)
public:
    DateTime(Date const& date, Time const& time);
    static bool test(Any const& v) noexcept { return v.kind() == Kind::DateTime; }
    Date date() const;
    Time time() const;
};

// An immutable run of bytes.
class TESK_API ByteArray : public Any {
    TESK_HANDLE(ByteArray, Any)
public:
    ByteArray() : ByteArray(nullptr, 0) {}
    ByteArray(void const* data, std::size_t size); // copies
    static bool test(Any const& v) noexcept { return v.kind() == Kind::ByteArray; }
    std::uint8_t const* data() const noexcept;
    std::size_t size() const noexcept;
    std::string_view asChars() const noexcept {
        return {reinterpret_cast<char const*>(data()), size()};
    }
};

// The result of a comparison: negative, zero, positive, or not comparable (2).
class Ordering {
public:
    static constexpr int not_comparable_value = 2;
    static constexpr Ordering less() { return Ordering(-1); }
    static constexpr Ordering equal() { return Ordering(0); }
    static constexpr Ordering greater() { return Ordering(1); }
    static constexpr Ordering notComparable() { return Ordering(not_comparable_value); }
    template <class N> static constexpr Ordering fromSign(N n) { return Ordering(n < 0 ? -1 : n > 0 ? 1 : 0); }

    constexpr int value() const { return value_; }
    constexpr bool isComparable() const { return value_ != not_comparable_value; }
    constexpr bool operator==(Ordering const&) const = default;

private:
    constexpr explicit Ordering(int v) : value_(v) {}
    int value_;
};

// Hash of a value: equal values hash alike (numbers across kinds, strings by
// text, containers by items); other objects by identity. A class may override
// it with a method "__hash__".
TESK_API std::uint64_t hash_of(Any const& v);
// Orders two values: numbers with numbers, text with text, dates with dates,
// containers item by item; anything else is equal when identical and otherwise
// not comparable. A class may override it with the method "__compare__".
TESK_API Ordering compare_objects(Any const& a, Any const& b);
// Equality as compare_objects sees it.
inline bool equals(Any const& a, Any const& b) { return compare_objects(a, b) == Ordering::equal(); }
// Display text (none → "None", strings as they are, numbers in decimal, lists
// as "[1, 2]"...). A class may override it with the method "__display__".
TESK_API String display(Any const& v);
// A number that identifies the object while it lives (0 for none).
TESK_API std::uint64_t object_id(Any const& v) noexcept;

} // namespace tesk
