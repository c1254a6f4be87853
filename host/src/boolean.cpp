// Boolean: two canonical values, and the host's notion of truth.
#include "container_objects.h"

namespace tesk {

namespace internal {

object_value_boolean::object_value_boolean(bool v) noexcept
    : object_value(Kind::Boolean, builtin_class(builtin::boolean)), value(v) {}

namespace {
// The two booleans: false, true.
std::atomic<object_value const*> g_booleans[2] = {nullptr, nullptr};

object_value const* canonical(bool v) {
    return shared_value(g_booleans[v], [v] { return new object_value_boolean(v); });
}
} // namespace
} // namespace internal

Boolean::Boolean(bool v) : Any(Any::borrow(internal::canonical(v))) {}

bool Boolean::value() const noexcept {
    return get() != nullptr && static_cast<internal::object_value_boolean const*>(get())->value;
}

// Before the canonical true exists, nothing can be it.
bool Boolean::isTrue() const noexcept {
    return get() != nullptr && get() == internal::g_booleans[1].load(std::memory_order_acquire);
}

Boolean Boolean::from(Any const& value) {
    using namespace internal;
    Any v = value;
    Kind k = v.kind();
    if (k == Kind::Computed || k == Kind::Weak || k == Kind::External) {
        v = unwrap(v);
        k = v.kind();
    }
    if (v.isNone()) return Boolean(false);
    switch (k) {
    case Kind::Undefined: return Boolean(false);
    case Kind::Boolean: return Boolean::unsafe(v);
    case Kind::Integer: return Boolean(static_cast<object_value_integer const*>(v.get())->bits != 0);
    case Kind::Float: return Boolean(static_cast<object_value_float const*>(v.get())->value != 0.0);
    case Kind::Decimal: {
        auto parts = parse_decimal(static_cast<object_value_decimal const*>(v.get())->text.asChars());
        return Boolean(!parts || parts->kind != decimal_parts::form::finite || !parts->digits.empty());
    }
    case Kind::String:
    case Kind::ByteArray: return Boolean(bytes_of(v)->size != 0);
    case Kind::List: return Boolean(List::unsafe(v).size() != 0);
    case Kind::HashMap: return Boolean(HashMap::unsafe(v).size() != 0);
    case Kind::HashSet: return Boolean(HashSet::unsafe(v).size() != 0);
    case Kind::Tuple: return Boolean(Tuple::unsafe(v).size() != 0);
    default: return Boolean(true);
    }
}

} // namespace tesk
