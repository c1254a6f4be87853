// compare_objects: one ordering for every pair of values.
#include "class_internal.h"
#include "container_objects.h"

#include <cmath>

namespace tesk {

namespace internal {
namespace {

template <class T> Ordering order(T const& a, T const& b) { return Ordering::fromSign((a > b) - (a < b)); }

Ordering reversed(Ordering o) { return o.isComparable() ? Ordering::fromSign(-o.value()) : o; }

bool is_number(Kind k) noexcept { return k == Kind::Integer || k == Kind::Float || k == Kind::Decimal; }

// Kinds whose comparison is fixed here; the others (instances, classes,
// callables...) may override it.
bool has_fixed_comparison(Kind k) noexcept {
    return is_scalar_kind(k) || k == Kind::List || k == Kind::HashMap || k == Kind::HashSet || k == Kind::Tuple;
}

object_value_integer const& integer_of(Any const& v) noexcept {
    return *static_cast<object_value_integer const*>(v.get());
}
double float_of(Any const& v) noexcept { return static_cast<object_value_float const*>(v.get())->value; }

bool is_negative(object_value_integer const& i) noexcept {
    return !i.is_unsigned && static_cast<std::int64_t>(i.bits) < 0;
}

// Exact across signed and unsigned: a negative value is below every
// non-negative one, and non-negative values compare by their bits.
Ordering compare_integers(object_value_integer const& a, object_value_integer const& b) noexcept {
    bool an = is_negative(a), bn = is_negative(b);
    if (an != bn) return an ? Ordering::less() : Ordering::greater();
    if (an) return order(static_cast<std::int64_t>(a.bits), static_cast<std::int64_t>(b.bits));
    return order(a.bits, b.bits);
}

// Exact: the double's whole part is compared as an integer of the same range
// (it is exactly representable there), then its fraction breaks the tie.
Ordering compare_integer_float(object_value_integer const& i, double d) noexcept {
    if (std::isnan(d)) return Ordering::notComparable();
    double whole = std::trunc(d);
    Ordering by_whole = Ordering::equal();
    if (is_negative(i)) {
        if (d < -0x1p63) return Ordering::greater();
        if (d >= 0x1p63) return Ordering::less();
        by_whole = order(static_cast<std::int64_t>(i.bits), static_cast<std::int64_t>(whole));
    } else {
        if (d < 0) return Ordering::greater();
        if (d >= 0x1p64) return Ordering::less();
        by_whole = order(i.bits, static_cast<std::uint64_t>(whole));
    }
    if (by_whole != Ordering::equal()) return by_whole;
    return order(0.0, d - whole);
}

decimal_parts decimal_of_number(Any const& v) {
    switch (v.kind()) {
    case Kind::Integer: {
        auto const& i = integer_of(v);
        bool negative = is_negative(i);
        return decimal_of_integer(negative ? ~i.bits + 1 : i.bits, negative);
    }
    case Kind::Float: return decimal_of_double(float_of(v));
    default: return *parse_decimal(static_cast<object_value_decimal const*>(v.get())->text.asChars());
    }
}

Ordering compare_numbers(Any const& a, Any const& b) {
    Kind ka = a.kind(), kb = b.kind();
    if (ka == Kind::Decimal || kb == Kind::Decimal) return compare_decimal(decimal_of_number(a), decimal_of_number(b));
    if (ka == Kind::Integer && kb == Kind::Integer) return compare_integers(integer_of(a), integer_of(b));
    if (ka == Kind::Integer) return compare_integer_float(integer_of(a), float_of(b));
    if (kb == Kind::Integer) return reversed(compare_integer_float(integer_of(b), float_of(a)));
    double x = float_of(a), y = float_of(b);
    if (std::isnan(x) || std::isnan(y)) return Ordering::notComparable();
    return order(x, y);
}

Ordering compare_clocks(clock_key const& a, clock_key const& b) {
    if (a.aware != b.aware) return Ordering::notComparable();
    if (a.seconds != b.seconds) return order(a.seconds, b.seconds);
    return order(a.nanoseconds, b.nanoseconds);
}

Ordering compare_sequences(std::span<Any const> a, std::span<Any const> b) {
    std::size_t common = std::min(a.size(), b.size());
    for (std::size_t i = 0; i < common; ++i) {
        Ordering o = compare_objects(a[i], b[i]);
        if (o != Ordering::equal()) return o;
    }
    return order(a.size(), b.size());
}

// Maps and sets are equal or not comparable: they have no order.
Ordering compare_maps(HashMap const& a, HashMap const& b) {
    if (a.size() != b.size()) return Ordering::notComparable();
    for (auto const& [key, value] : a.items()) {
        if (!b.contains(key) || !equals(value, b.find(key))) return Ordering::notComparable();
    }
    return Ordering::equal();
}

Ordering compare_sets(HashSet const& a, HashSet const& b) {
    if (a.size() != b.size()) return Ordering::notComparable();
    for (Any const& item : a.items())
        if (!b.contains(item)) return Ordering::notComparable();
    return Ordering::equal();
}

// The "__compare__" override of x's class, called with (x, y): an Integer
// gives the sign; Undefined means "ask the other side"; anything else (an
// error, say) means not comparable.
std::optional<Ordering> compare_override(Any const& x, Any const& y) {
    if (has_fixed_comparison(x.kind())) return std::nullopt;
    Any method = class_override(x, Any::$__compare__);
    if (!method.hasValue()) return std::nullopt;
    Any const args[] = {y};
    Any result = call_member(method, x, args);
    if (Integer::test(result)) return Ordering::fromSign(Integer::unsafe(result).value());
    if (result.isUndefined()) return std::nullopt;
    return Ordering::notComparable();
}

bool is_indirect(Kind k) noexcept { return k == Kind::Computed || k == Kind::Weak || k == Kind::External; }

} // namespace
} // namespace internal

Ordering compare_objects(Any const& a, Any const& b) {
    using namespace internal;
    if (a.get() == b.get()) return Ordering::equal();
    Kind ka = a.kind(), kb = b.kind();
    if (is_indirect(ka) || is_indirect(kb)) return compare_objects(unwrap(a), unwrap(b));
    if (a.isNone() && b.isNone()) return Ordering::equal();
    if (auto o = compare_override(a, b)) return *o;
    if (auto o = compare_override(b, a)) return reversed(*o);
    if (is_number(ka) && is_number(kb)) return compare_numbers(a, b);
    if (ka != kb) return Ordering::notComparable();

    nesting_guard guard;
    if (!guard.ok()) return Ordering::notComparable();
    switch (ka) {
    case Kind::Boolean: return order(Boolean::unsafe(a).value(), Boolean::unsafe(b).value());
    case Kind::String:
    case Kind::ByteArray: return Ordering::fromSign(bytes_of(a)->view().compare(bytes_of(b)->view()));
    case Kind::Date: {
        auto const& x = *static_cast<object_value_date const*>(a.get());
        auto const& y = *static_cast<object_value_date const*>(b.get());
        if (x.year != y.year) return order(x.year, y.year);
        if (x.month != y.month) return order(x.month, y.month);
        return order(x.day, y.day);
    }
    case Kind::Time:
        return compare_clocks(clock_key_of(*static_cast<object_value_time const*>(a.get())),
                              clock_key_of(*static_cast<object_value_time const*>(b.get())));
    case Kind::DateTime:
        return compare_clocks(clock_key_of(*static_cast<object_value_date_time const*>(a.get())),
                              clock_key_of(*static_cast<object_value_date_time const*>(b.get())));
    case Kind::List: return compare_sequences(List::unsafe(a).copyItems(), List::unsafe(b).copyItems());
    case Kind::Tuple: return compare_sequences(Tuple::unsafe(a).items(), Tuple::unsafe(b).items());
    case Kind::HashMap: return compare_maps(HashMap::unsafe(a), HashMap::unsafe(b));
    case Kind::HashSet: return compare_sets(HashSet::unsafe(a), HashSet::unsafe(b));
    default: return Ordering::notComparable();
    }
}

} // namespace tesk
