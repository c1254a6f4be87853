// The methods and properties of the built-in classes, as typed wrappers over
// the native operations. A caller that finds "at" on a List with method_of
// gets one of these; the interface handles call the same operations directly.
//
// This runs inside the built-in class build, possibly while static objects
// are still being constructed: names are made from literals here, never from
// the static key objects.
#include "builtin_classes.h"
#include "class_internal.h"
#include "container_operations.h"

#include "tesk/module.h"
#include "tesk/typed.h"

namespace tesk::internal {

namespace {

// ---- universal methods (class "Any") -----------------------------------------

Boolean any_is_same(Any const& self, Any const& other) { return Boolean(self.isSame(other)); }
String any_display(Any const& self) { return display(self); }
Integer any_compare(Any const& self, Any const& other) { return Integer(compare_objects(self, other).value()); }
Integer any_hash(Any const& self) { return Integer::fromUnsigned(hash_of(self)); }

// ---- List ----------------------------------------------------------------------

Any list_at(List const& self, std::int64_t index) { return sequence_at(self, index); }
Any list_at_or(List const& self, std::int64_t index, Any const& fallback) { return sequence_at_or(self, index, fallback); }
Any list_set_item(List const& self, std::int64_t index, Any const& value) { return list_set(self, index, value); }
void list_append(List const& self, Any const& value) { self.append(value); }
Any list_append_at(List const& self, std::int64_t index, Any const& value) { return list_insert(self, index, value); }
Any list_extend_by(List const& self, Any const& iterable) { return list_extend(self, iterable); }
Any list_remove_items(List const& self, std::int64_t index, std::int64_t count) {
    return list_remove_at(self, index, count);
}
bool list_remove_value(List const& self, Any const& value) { return list_remove_one(self, value); }
Any list_pop_last(List const& self) { return list_pop(self); }
std::int64_t sequence_index(Any const& self, Any const& value, std::int64_t from) {
    return sequence_index_of(self, value, from);
}
bool container_contains(Any const& self, Any const& value) { return native_contains(self, value); }
void list_clear_all(List const& self) { list_clear(self); }
Any container_iter(Any const& self) { return make_iterator(self); }
Any sequence_slice(Any const& self, std::int64_t start, std::int64_t stop) { return sequence_sliced(self, start, stop); }
std::int64_t sequence_len(Any const& self) { return static_cast<std::int64_t>(sequence_length(self)); }
Any tuple_at(Tuple const& self, std::int64_t index) { return sequence_at(self, index); }
Type list_elements_type(List const& self) { return self.elementType(); }

// ---- HashMap -------------------------------------------------------------------

Any map_get(HashMap const& self, Any const& key, Any const& fallback) { return map_get_or(self, key, fallback); }
Any map_set(HashMap const& self, Any const& key, Any const& value) { return self.set(key, value); }
Any map_remove_key(HashMap const& self, Any const& key) { return map_remove(self, key); }
void map_clear_all(HashMap const& self) { map_clear(self); }
List map_key_list(HashMap const& self) { return map_keys(self); }
List map_value_list(HashMap const& self) { return map_values(self); }
std::int64_t map_len(HashMap const& self) { return static_cast<std::int64_t>(self.size()); }
Type map_keys_type(HashMap const& self) { return I_Map_Generic(self).keysType(); }
Type map_values_type(HashMap const& self) { return I_Map_Generic(self).valuesType(); }

// ---- HashSet -------------------------------------------------------------------

Any set_insert(HashSet const& self, Any const& value) { return self.insert(value); }
bool set_remove(HashSet const& self, Any const& value) { return self.remove(value); }
Any set_extend_by(HashSet const& self, Any const& iterable) { return set_extend(self, iterable); }
void set_clear_all(HashSet const& self) { set_clear(self); }
std::int64_t set_len(HashSet const& self) { return static_cast<std::int64_t>(self.size()); }

// ---- iterator, errors, classes, callables, modules -----------------------------

Any iterator_next_item(Any const& self) { return iterator_next(self); }

String error_message(Error const& self) { return self.message(); }
String error_stack(Error const& self) { return self.stack(); }
Any error_value(Error const& self) { return self.value(); }
Any error_cause(Error const& self) { return self.cause(); }

String class_name(Class_Generic const& self) { return self.name(); }
String class_qualname(Class_Generic const& self) { return self.qualname(); }
String class_doc(Class_Generic const& self) { return self.doc(); }

String callable_name(Any const& self) { return I_Callable_Generic::unsafe(self).name(); }
String callable_doc(Any const& self) { return I_Callable_Generic::unsafe(self).doc(); }
Any callable_signature(Any const& self) { return I_Callable_Generic::unsafe(self).signature(); }
Type callable_result_type(Any const& self) { return I_Callable_Generic::unsafe(self).resultType(); }

String module_name(Module const& self) { return self.name(); }
String module_doc(Module const& self) { return self.doc(); }
String parameter_name(Parameter const& self) { return self.name(); }
String property_doc(Property const& self) { return self.doc(); }

// ---- installing ----------------------------------------------------------------

template <class F>
void add_method(builtin cls, char const* name, F f, char const* parameters = "", std::vector<Any> defaults = {}) {
    I_Callable_Generic c = make_closure(f);
    decorate(c, String(name), String(parameters), String(), std::move(defaults));
    unpublished_record(builtin_class(cls))->methods.set(String(name), c);
}

template <class F> void add_property(builtin cls, char const* name, F getter) {
    I_Callable_Generic g = make_closure(getter);
    decorate(g, String(name), String(), String(), {});
    unpublished_record(builtin_class(cls))->properties.set(String(name), Property(g));
}

void install_universal() {
    add_method(builtin::any, "__isSame__", any_is_same, "other");
    add_method(builtin::any, "__display__", any_display);
    add_method(builtin::any, "__compare__", any_compare, "other");
    add_method(builtin::any, "__hash__", any_hash);
}

void install_sequences() {
    using enum builtin;
    add_method(list, "at", list_at, "index");
    add_method(list, "atOr", list_at_or, "index, fallback");
    add_method(list, "set", list_set_item, "index, value");
    add_method(list, "append", list_append, "value");
    add_method(list, "appendAt", list_append_at, "index, value");
    add_method(list, "extend", list_extend_by, "iterable");
    add_method(list, "removeAt", list_remove_items, "index, count", {Integer(1)});
    add_method(list, "removeOne", list_remove_value, "value");
    add_method(list, "pop", list_pop_last);
    add_method(list, "indexOf", sequence_index, "value, from", {Integer(0)});
    add_method(list, "contains", container_contains, "value");
    add_method(list, "clear", list_clear_all);
    add_method(list, "iter", container_iter);
    add_method(list, "sliced", sequence_slice, "start, stop");
    add_property(list, "__len__", sequence_len);
    add_property(list, "length", sequence_len);
    add_property(list, "elementsType", list_elements_type);

    add_method(tuple, "at", tuple_at, "index");
    add_method(tuple, "indexOf", sequence_index, "value, from", {Integer(0)});
    add_method(tuple, "contains", container_contains, "value");
    add_method(tuple, "iter", container_iter);
    add_method(tuple, "sliced", sequence_slice, "start, stop");
    add_property(tuple, "__len__", sequence_len);
    add_property(tuple, "length", sequence_len);

    add_method(list_iterator, "next", iterator_next_item);
}

void install_maps_and_sets() {
    using enum builtin;
    add_method(hash_map, "get", map_get, "key, fallback", {Any()});
    add_method(hash_map, "set", map_set, "key, value");
    add_method(hash_map, "remove", map_remove_key, "key");
    add_method(hash_map, "contains", container_contains, "key");
    add_method(hash_map, "clear", map_clear_all);
    add_method(hash_map, "iter", container_iter);
    add_property(hash_map, "keys", map_key_list);
    add_property(hash_map, "values", map_value_list);
    add_property(hash_map, "__len__", map_len);
    add_property(hash_map, "keysType", map_keys_type);
    add_property(hash_map, "valuesType", map_values_type);

    add_method(hash_set, "insert", set_insert, "value");
    add_method(hash_set, "remove", set_remove, "value");
    add_method(hash_set, "contains", container_contains, "value");
    add_method(hash_set, "extend", set_extend_by, "iterable");
    add_method(hash_set, "clear", set_clear_all);
    add_method(hash_set, "iter", container_iter);
    add_property(hash_set, "__len__", set_len);
}

void install_model() {
    using enum builtin;
    add_property(error, "message", error_message);
    add_property(error, "stack", error_stack);
    add_property(error, "value", error_value);
    add_property(error, "cause", error_cause);
    add_property(class_, "name", class_name);
    add_property(class_, "qualname", class_qualname);
    add_property(class_, "doc", class_doc);
    add_property(callable, "name", callable_name);
    add_property(callable, "doc", callable_doc);
    add_property(callable, "signature", callable_signature);
    add_property(callable, "resultType", callable_result_type);
    add_property(module, "name", module_name);
    add_property(module, "doc", module_doc);
    add_property(parameter, "name", parameter_name);
    add_property(property, "doc", property_doc);
    // Callables that are class instances keep their "independent" flag here.
    unpublished_record(builtin_class(i_callable))->fields.push_back(field_info{String("_independent"), Boolean::getClass(), String()});
}

} // namespace

void install_builtin_members() {
    install_universal();
    install_sequences();
    install_maps_and_sets();
    install_model();
}

} // namespace tesk::internal
