// Integer: a signed or unsigned 64-bit value; small signed values are shared.
#include "value_objects.h"

#include <charconv>

namespace tesk {

namespace internal {

object_value_integer::object_value_integer(std::uint64_t b, bool u) noexcept
    : object_value(Kind::Integer, builtin_class(builtin::integer)), bits(b), is_unsigned(u) {}

std::atomic<object_value const* const*> small_integer_boxes{nullptr};

namespace {
constexpr std::size_t small_count = small_integer_max - small_integer_min + 1;

// All of them are made together on first use, so that the number of live
// objects does not creep up as new small values appear (leak checks compare
// it). Making the first ones may build the built-in classes, which box small
// integers themselves: a nested or racing call builds its own table, the
// first table published wins and the other is dropped. Readers count what
// they take (a no-op once a box is immortal), so a box taken between the
// publication and make_immortal stays valid.
object_value const* const* make_small_integers() {
    auto* fresh = new object_value const*[small_count];
    for (std::size_t i = 0; i < small_count; ++i)
        fresh[i] = new object_value_integer(static_cast<std::uint64_t>(small_integer_min + static_cast<std::int64_t>(i)), false);
    object_value const* const* published = nullptr;
    if (small_integer_boxes.compare_exchange_strong(published, fresh, std::memory_order_acq_rel, std::memory_order_acquire)) {
        for (std::size_t i = 0; i < small_count; ++i) fresh[i]->make_immortal();
        return fresh;
    }
    for (std::size_t i = 0; i < small_count; ++i) fresh[i]->release();
    delete[] fresh;
    return published;
}
} // namespace

Any box_integer_slow(std::int64_t v) {
    if (v < small_integer_min || v > small_integer_max)
        return Any::adopt(new object_value_integer(static_cast<std::uint64_t>(v), false));
    object_value const* const* boxes = small_integer_boxes.load(std::memory_order_acquire);
    if (!boxes) boxes = make_small_integers();
    return Any::borrow(boxes[v - small_integer_min]);
}

namespace {
// The value of an Integer (after unwrapping) as a signed 64-bit value, when it fits.
std::optional<std::int64_t> signed_value(Any const& value) {
    std::int64_t out = 0;
    if (!signed_in_place(checked_cast<Integer>(value), out)) return std::nullopt;
    return out;
}
} // namespace

void append_integer(std::string& out, object_value_integer const& v) {
    char buffer[24];
    auto end = v.is_unsigned ? std::to_chars(buffer, buffer + sizeof buffer, v.bits).ptr
                             : std::to_chars(buffer, buffer + sizeof buffer, static_cast<std::int64_t>(v.bits)).ptr;
    out.append(buffer, end);
}

} // namespace internal

Integer Integer::fromUnsigned(std::uint64_t v) {
    return unsafe(Any::adopt(new internal::object_value_integer(v, true)));
}

std::optional<std::int32_t> Int32::from(Any const& v) {
    auto wide = internal::signed_value(v);
    if (!wide || *wide < INT32_MIN || *wide > INT32_MAX) return std::nullopt;
    return static_cast<std::int32_t>(*wide);
}

std::optional<std::int64_t> Int64::from(Any const& v) { return internal::signed_value(v); }

} // namespace tesk
