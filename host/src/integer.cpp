// Integer: a signed or unsigned 64-bit value; small signed values are shared.
#include "value_objects.h"

#include <array>
#include <charconv>

namespace tesk {

namespace internal {

object_value_integer::object_value_integer(std::uint64_t b, bool u) noexcept
    : object_value(Kind::Integer, builtin_class(builtin::integer)), bits(b), is_unsigned(u) {}

namespace {
// The small signed integers, boxed once: code boxes loop counters, sizes and
// indices all the time, and these boxes then cost no allocation.
constexpr std::int64_t small_min = -5;
constexpr std::int64_t small_max = 1024;

constexpr std::size_t small_count = small_max - small_min + 1;
using small_table = std::array<object_value const*, small_count>;

// All of them are made together on first use, so that the number of live
// objects does not creep up as new small values appear (leak checks compare
// it). Making the first ones may build the built-in classes, which box small
// integers themselves: a nested or racing call builds its own table, the
// first table published wins and the other is dropped.
std::atomic<small_table const*> g_small{nullptr};

small_table const& small_integers() {
    small_table const* published = g_small.load(std::memory_order_acquire);
    if (published != nullptr) return *published;
    auto* fresh = new small_table();
    for (std::size_t i = 0; i < small_count; ++i)
        (*fresh)[i] = new object_value_integer(static_cast<std::uint64_t>(small_min + static_cast<std::int64_t>(i)), false);
    if (g_small.compare_exchange_strong(published, fresh, std::memory_order_acq_rel, std::memory_order_acquire)) {
        for (object_value const* record : *fresh) record->make_immortal();
        return *fresh;
    }
    for (object_value const* record : *fresh) record->release();
    delete fresh;
    return *published;
}

Any box(std::int64_t v) {
    if (v < small_min || v > small_max) return Any::adopt(new object_value_integer(static_cast<std::uint64_t>(v), false));
    return Any::borrow(small_integers()[static_cast<std::size_t>(v - small_min)]);
}

object_value_integer const* integer_of(Any const& v) noexcept {
    return static_cast<object_value_integer const*>(v.get());
}

// The value of an Integer (after unwrapping) as a signed 64-bit value, when it fits.
std::optional<std::int64_t> signed_value(Any const& value) {
    Any v = checked_cast<Integer>(value);
    if (!v.hasValue()) return std::nullopt;
    auto* record = integer_of(v);
    if (record->is_unsigned && record->bits > static_cast<std::uint64_t>(INT64_MAX)) return std::nullopt;
    return static_cast<std::int64_t>(record->bits);
}
} // namespace

void append_integer(std::string& out, object_value_integer const& v) {
    char buffer[24];
    auto end = v.is_unsigned ? std::to_chars(buffer, buffer + sizeof buffer, v.bits).ptr
                             : std::to_chars(buffer, buffer + sizeof buffer, static_cast<std::int64_t>(v.bits)).ptr;
    out.append(buffer, end);
}

} // namespace internal

Integer::Integer(std::int64_t v) : Any(internal::box(v)) {}

Integer Integer::fromUnsigned(std::uint64_t v) {
    return unsafe(Any::adopt(new internal::object_value_integer(v, true)));
}

bool Integer::isUnsigned() const noexcept { return get() != nullptr && internal::integer_of(*this)->is_unsigned; }
std::int64_t Integer::value() const noexcept {
    return get() ? static_cast<std::int64_t>(internal::integer_of(*this)->bits) : 0;
}
std::uint64_t Integer::unsignedValue() const noexcept { return get() ? internal::integer_of(*this)->bits : 0; }

std::optional<std::int32_t> Int32::from(Any const& v) {
    auto wide = internal::signed_value(v);
    if (!wide || *wide < INT32_MIN || *wide > INT32_MAX) return std::nullopt;
    return static_cast<std::int32_t>(*wide);
}

std::optional<std::int64_t> Int64::from(Any const& v) { return internal::signed_value(v); }

} // namespace tesk
