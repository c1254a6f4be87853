// Tuple: a fixed sequence of values.
#include "container_objects.h"

namespace tesk {

namespace internal {
object_value_tuple::object_value_tuple(std::vector<Any> v) noexcept
    : object_value(Kind::Tuple, builtin_class(builtin::tuple)), items(std::move(v)) {}
} // namespace internal

using tuple_record = internal::object_value_tuple;

Tuple::Tuple(std::vector<Any> items)
    : I_Sequence_Generic(internal::unchecked, Any::adopt(new tuple_record(std::move(items)))) {}

std::size_t Tuple::size() const noexcept { return get() ? internal::record_of<tuple_record>(*this).items.size() : 0; }

Any const& Tuple::operator[](std::size_t index) const noexcept {
    return internal::record_of<tuple_record>(*this).items[index];
}

std::span<Any const> Tuple::items() const noexcept {
    if (!get()) return {};
    return internal::record_of<tuple_record>(*this).items;
}

} // namespace tesk
