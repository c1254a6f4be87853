// List: a growable, locked vector of values.
#include "container_objects.h"

namespace tesk {

namespace internal {
object_value_list::object_value_list(Any type) noexcept
    : object_value(Kind::List, builtin_class(builtin::list)), element_type(std::move(type)) {}
} // namespace internal

using list_record = internal::object_value_list;

List::List() : List(Type::unsafe(Any())) {}

List::List(Type const& elementType) : I_MutableSequence_Generic(internal::unchecked, Any::adopt(new list_record(elementType))) {}

List::List(std::initializer_list<Any> items) : List() {
    internal::record_of<list_record>(*this).items.assign(items.begin(), items.end());
}

void List::append(Any const& value) const {
    auto& list = internal::record_of<list_record>(*this);
    std::lock_guard guard(list.lock());
    list.items.push_back(value);
}

std::size_t List::size() const {
    auto& list = internal::record_of<list_record>(*this);
    std::lock_guard guard(list.lock());
    return list.items.size();
}

Any List::at(std::int64_t index) const {
    auto& list = internal::record_of<list_record>(*this);
    {
        std::lock_guard guard(list.lock());
        if (index >= 0 && static_cast<std::uint64_t>(index) < list.items.size())
            return list.items[static_cast<std::size_t>(index)];
    }
    return Error(String("Index out of range: {}.").arg(index));
}

// Out of range does nothing: callers check the index against size() first.
void List::set(std::size_t index, Any const& value) const {
    auto& list = internal::record_of<list_record>(*this);
    Any replaced = value; // receives the old item, released once unlocked
    std::lock_guard guard(list.lock());
    if (index < list.items.size()) list.items[index].swap(replaced);
}

std::vector<Any> List::copyItems() const {
    auto& list = internal::record_of<list_record>(*this);
    std::lock_guard guard(list.lock());
    return list.items;
}

Type List::elementType() const {
    Any const& type = internal::record_of<list_record>(*this).element_type;
    return type.hasValue() ? Type::unsafe(type) : Type::untyped();
}

} // namespace tesk
