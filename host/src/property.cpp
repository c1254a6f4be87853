// Property: a getter, an optional setter and a doc.
#include "class_internal.h"

namespace tesk {
namespace internal {
namespace {

// Immutable once made, so it is read without a lock.
struct object_value_property final : object_value {
    object_value_property(I_Callable_Generic g, Any s, String d)
        : object_value(Kind::Property, builtin_class(builtin::property)), getter(std::move(g)), setter(std::move(s)),
          doc(std::move(d)) {}
    I_Callable_Generic getter;
    Any setter;
    String doc;
};

// Property::get reads a value; the record is behind Any::get.
object_value_property const& record_of(Property const& p) {
    return static_cast<object_value_property const&>(*p.Any::get());
}

} // namespace
} // namespace internal

Property::Property(I_Callable_Generic const& getter, Any const& setter, String const& doc)
    : Any(Any::adopt(new internal::object_value_property(getter, setter, doc))) {}

I_Callable_Generic Property::getter() const { return internal::record_of(*this).getter; }
Any Property::setter() const { return internal::record_of(*this).setter; }
String Property::doc() const { return internal::record_of(*this).doc; }

Any Property::get(Any const& object) const {
    auto const& g = internal::record_of(*this).getter;
    if (!g.hasValue()) return Error(String("The property has no getter."));
    if (g.isIndependent()) return g.invoke({});
    Any const args[] = {object};
    return g.invoke(args);
}

Any Property::set(Any const& object, Any const& value) const {
    Any const& s = internal::record_of(*this).setter;
    if (!s.hasValue()) return Error(String("The property is read-only for '{}'.").arg(object));
    return internal::call_member(s, object, std::span<Any const>(&value, 1));
}

} // namespace tesk
