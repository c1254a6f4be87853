// ByteArray: an immutable copy of bytes, stored like a String.
#include "value_objects.h"

namespace tesk {

ByteArray::ByteArray(void const* data, std::size_t size)
    : Any(Any::adopt(internal::object_value_bytes::make(Kind::ByteArray, static_cast<char const*>(data), size))) {}

std::uint8_t const* ByteArray::data() const noexcept {
    return get() ? reinterpret_cast<std::uint8_t const*>(internal::bytes_of(*this)->data()) : nullptr;
}

std::size_t ByteArray::size() const noexcept { return get() ? internal::bytes_of(*this)->size : 0; }

} // namespace tesk
