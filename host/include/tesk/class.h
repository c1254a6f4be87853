// Classes, types, properties and member lookup.
#pragma once

#include "tesk/callable.h"
#include "tesk/ordered_map.h"

#include <functional>
#include <vector>

namespace tesk {

class Module;

// A property: a getter, an optional setter and a doc. A getter that is
// independent is called without the object; otherwise with it.
class TESK_API Property : public Any {
    TESK_HANDLE(Property, Any)
public:
    Property(I_Callable_Generic const& getter, Any const& setter = Any(), String const& doc = String());
    static bool test(Any const& v) noexcept { return v.kind() == Kind::Property; }
    I_Callable_Generic getter() const;
    Any setter() const; // a callable, or none when read-only
    String doc() const;
    // Reads the value for `object` (or without it for an independent getter).
    Any get(Any const& object) const;
    // Writes through the setter; an Error when read-only.
    Any set(Any const& object, Any const& value) const;
};

namespace internal {

// A field: name, type, doc; instances keep one value per field.
struct field_info {
    String name;
    Any type; // a Type
    String doc;
};

// The object's own members, created on first insertion.
struct own_members {
    ordered_map<Property> properties;
    ordered_map<Any> methods; // callables
};

using method_lookup_hook = std::function<Any(Any const& self, String const& name)>;       // callable or none
using property_read_hook = std::function<Any(Any const& self, String const& name)>;       // value or Error
using property_write_hook = std::function<Any(Any const& self, String const& name, Any const& value)>;
using coercion_function = std::function<Any(Any const& value)>; // value → instance of the class, or Error
// What calling an instance does: the result or an Error. A plain function, so
// that a call reads it from the class table without copying anything.
using invoke_hook = Any (*)(Any const& self, std::span<Any const> args);
using instance_factory = object_value* (*)(object_value_class const* cls);

// What a class answers natively to the generic interface operations, called
// with the instance and the raw arguments instead of through the member of
// the same name (no lookup, no boxed arguments). Each entry must give exactly
// what that member gives; a null entry leaves the operation to the member.
// Used only for instances of the class itself that have no members of their
// own (see set_native_operations_unsafe).
struct native_operations {
    Any (*at)(Any const& self, std::int64_t index) = nullptr;                        // I_Sequence_Generic::at
    Any (*at_or)(Any const& self, std::int64_t index, Any const& fallback) = nullptr; // I_Sequence_Generic::atOr
    Any (*get)(Any const& self, Any const& key) = nullptr;                           // I_Map_Generic::get
    Any (*next)(Any const& self) = nullptr;                                          // I_Iterator_Generic::next
};

struct class_table;         // the mutable parts of a record (internal)
struct class_record_access; // the class machinery's access to them

// A class record. Classes live for the whole process: nothing frees them, so
// raw pointers to them stay valid. Everything but the name lives in a table
// that the record publishes through one atomic pointer: a published table is
// never changed, an edit (the `_unsafe` editors) swaps in a changed copy, and
// readers never take a lock. The accessors give copies.
class TESK_API object_value_class : public object_value {
public:
    explicit object_value_class(String name, std::uint64_t traits = 0);
    ~object_value_class() override;

    String const& name() const noexcept { return name_; }
    String qualname() const;
    String doc() const;
    std::uint64_t traits() const noexcept { return traits_.load(std::memory_order_acquire); }
    bool is_interface() const noexcept { return (traits() & tesk::traits::interface) != 0; }
    std::vector<object_value_class const*> parents() const; // declared order
    Any declaring_context_value() const;                     // a Module, a class, or none
    Any generic_definition() const;                          // the generic class this one instantiates, or none
    Any call_operator() const;                               // callable: what calling the class does, or none
    Any finalizer() const;                                   // callable taking the instance, or none
    bool has_finalizer() const noexcept { return has_finalizer_.load(std::memory_order_acquire); }
    // The hooks of this class itself (never of a parent), read without a read section.
    invoke_hook invoke() const noexcept { return invoke_.load(std::memory_order_acquire); }
    native_operations const* native() const noexcept { return native_.load(std::memory_order_acquire); }
    Any setup_callback() const;                              // callable taking the class, or none
    std::vector<std::pair<String, String>> examples() const; // (code, language)
    std::int64_t option() const;

    bool is_ancestor(object_value_class const* other) const noexcept; // other == this or an ancestor
    // All fields, inherited ones first; `find_field` gives an index into it or -1.
    std::vector<field_info> all_fields() const;
    int find_field(String const& name) const;
    Any find_property_getter(String const& name) const; // callable or none
    Any find_property_setter(String const& name) const; // callable or none
    // Method/property resolution through this class and its parents (depth first).
    Any resolve_method(String const& name) const;
    Union<Property, None> resolve_property(String const& name) const;

private:
    friend struct class_record_access;

    String const name_;
    std::atomic<class_table const*> table_;
    // Copies of table words that hot paths read without a read section,
    // refreshed at every swap.
    std::atomic<std::uint64_t> traits_;
    std::atomic<bool> has_finalizer_{false};
    std::atomic<invoke_hook> invoke_{nullptr};
    std::atomic<native_operations const*> native_{nullptr};
    // Moves on every edit of this class or of one of its ancestors.
    mutable std::atomic<std::uint64_t> version_{1};
    // The resolved members of the whole chain, an immutable snapshot tagged
    // with the version it was built for.
    mutable std::atomic<void const*> member_cache_{nullptr};
};

// Moves whenever any class's members may have changed (an edit that moves a
// class version) and whenever a class record is destroyed, so that a cache
// keyed by record address and tagged with it never answers for a record
// that was edited, or freed and its address reused.
TESK_API std::uint64_t class_epoch() noexcept;

// What a cache of member lookups may keep for `name` on instances of `cls`
// that have no members of their own, valid while class_epoch() equals
// `epoch`: the field index, the property, or the method that the class alone
// resolves, in the order an attribute read tries them. `none` when the class
// takes lookups over (an override of "__method__" or "__property__", a
// lookup hook) or resolves none of the three.
struct cached_member {
    enum class kind_t : std::uint8_t { none, field, property, method };
    kind_t kind = kind_t::none;
    int field = -1;
    Any member; // the Property or the callable
    std::uint64_t epoch = 0;
};
TESK_API cached_member member_for_cache(object_value_class const* cls, String const& name);

// A class instance: one value per field (inherited fields first).
class TESK_API object_value_instance : public object_value {
public:
    explicit object_value_instance(object_value_class const* cls);
    // Allocates an instance of `cls` through the class's instance factory.
    static Any create(object_value_class const* cls);
    std::vector<Any> fields; // guarded by lock()
};

// The built-in classes, reachable without a lookup.
enum class builtin : std::uint8_t {
    any,            // "Any": root of every class, holds the universal methods
    none,           // "None"
    undefined,      // "Undefined"
    boolean, integer, float_, string, byte_array, decimal, date, time, date_time,
    list, hash_map, hash_set, tuple,
    list_iterator,  // iterators over the built-in containers
    callable,       // native callables
    property, signature, parameter, computed, class_, // "Class": the class of classes
    error, evaluation_error, stop_iteration, bad_argument,
    module,         // "Module"
    evaluation_scope,
    // interfaces
    i_immutable, i_has_name, i_has_doc, i_has_code, i_cloneable, i_runtime_only,
    i_callable, i_iterable, i_iterator, i_sequence, i_mutable_sequence,
    i_map, i_mutable_map, i_set, i_mutable_set, i_language, python_language,
    count_
};
TESK_API object_value_class const* builtin_class(builtin id) noexcept;

// The callable that overrides the universal method `name` in the class chain
// of `v` (a class method of that name declared below "Any"), or none.
TESK_API Any class_override(Any const& v, String const& name);

} // namespace internal

// Handle to a class.
class TESK_API Class_Generic : public Any {
    TESK_HANDLE(Class_Generic, Any)
public:
    static bool test(Any const& v) noexcept { return v.kind() == Kind::Class; }
    static Class_Generic of(internal::object_value_class const* record) {
        return unsafe(Any::borrow(record));
    }
    internal::object_value_class const* record() const noexcept {
        return static_cast<internal::object_value_class const*>(get());
    }

    String name() const;
    String qualname() const;
    String doc() const;
    std::uint64_t traits() const;
    Any declaringContext() const;
    std::vector<Class_Generic> parents() const;
    bool is_ancestor(Class_Generic const& other) const; // other is this class or an ancestor

    // Members this class declares or inherits.
    Union<Property, None> definedProperty(String const& name) const;
    Union<I_Callable_Generic, None> definedMethod(String const& name) const;
    bool definedField(String const& name) const;
    std::vector<std::pair<String, Property>> definedProperties() const;
    std::vector<std::pair<String, I_Callable_Generic>> definedMethods() const;
    // Members this class itself declares (not inherited), in declared order.
    std::vector<std::pair<String, Property>> declaredProperties() const;
    std::vector<std::pair<String, I_Callable_Generic>> declaredMethods() const;
    std::vector<String> fieldNames() const;

    // A new instance with empty fields (no constructor runs).
    Any allocateInstance() const;
    // Converts a value to an instance of this class: the value itself when it
    // already is one, else the class coercion, else an Error.
    Any coerce(Any const& value) const;
    // Calls the class (its call operator): usually constructs an instance.
    Any operator()(std::span<Any const> args) const;
    Any operator()(std::initializer_list<Any> args) const { return (*this)({args.begin(), args.size()}); }
};

// The element-typed handles share the class of their generic handle.
template <class T> Class_Generic Computed<T>::getClass() { return Computed_Generic::getClass(); }
template <class T> Class_Generic I_Callable<T>::getClass() { return I_Callable_Generic::getClass(); }

// A type: a class, the untyped type (anything) or the none type.
class TESK_API Type : public Any {
    TESK_HANDLE(Type, Any)
public:
    Type(Class_Generic const& cls) : Any(cls) {}
    static bool test(Any const& v) noexcept { return v.kind() == Kind::Class; }
    static Type untyped(); // the class "Any"
    static Type none();    // the class "None"
    bool isUntyped() const;
    // Whether values of this type are acceptable where `other` is expected.
    bool conformsTo(Type const& other) const;
    Union<Class_Generic, None> toClass() const;
    String name() const;
};

// Strips wrappers such as Union or Computed from a type (ours are plain classes).
TESK_API Type unwrapped_type(Type const& type);
// A registered class or type by name (qualified name or plain name).
TESK_API Union<Type, None> find_type(String const& name);
// Registers a type under its name for find_type (defclass_impl does this).
TESK_API void register_type(Class_Generic const& cls);

// The class of a value after resolving deferred and weak values; raw_class_of
// gives the class of the object itself. None gives the class "None".
TESK_API Class_Generic class_of(Any const& v);
TESK_API Class_Generic raw_class_of(Any const& v);

// Member lookup. Order: the object's own members, the class hook, the class
// and its parents (depth first, declared order), then the universal members of
// the class "Any". A class overriding "__method__"/"__property__" takes over.
TESK_API Union<I_Callable_Generic, None> method_of(Any const& v, String const& name);
TESK_API Union<Property, None> property_of(Any const& v, String const& name);
// The same without the overrides and hooks: own members, then the class chain.
TESK_API Union<I_Callable_Generic, None> raw_method_of(Any const& v, String const& name);
TESK_API Union<Property, None> raw_property_of(Any const& v, String const& name);
// The object's own members (a class may override "__ownMethods__"/"__ownProperties__").
TESK_API std::vector<std::pair<String, I_Callable_Generic>> own_methods_of(Any const& v);
TESK_API std::vector<std::pair<String, Property>> own_properties_of(Any const& v);
// Adds or replaces a constant property of the object ("__insertProperty__" overrides).
TESK_API Any insert_property_value(Any const& object, String const& name, Any const& value);
TESK_API Any insert_property(Any const& object, String const& name, Property const& property);
TESK_API Any insert_method(Any const& object, String const& name, I_Callable_Generic const& method);

// Editing class records. Each edit copies the class's table, changes the
// copy and swaps it in under the record's lock; concurrent readers see the
// old table or the new one, never a half-made one. A displaced value is
// released after the lock, once no reader can still hold it. Not to be
// called with a spinlock held.
TESK_API void add_class_method_unsafe(Class_Generic const& cls, String const& name, I_Callable_Generic const& method);
TESK_API void add_class_property_unsafe(Class_Generic const& cls, String const& name, Property const& property);
// Ignored when `parent` is "Any" or already has `cls` among its ancestors (a cycle).
TESK_API void add_parent_unsafe(Class_Generic const& cls, Class_Generic const& parent);
TESK_API void set_doc_unsafe(Class_Generic const& cls, String const& doc);
TESK_API void add_class_field_unsafe(Class_Generic const& cls, internal::field_info const& field);
// An empty function removes the hook; a none finaliser removes the finaliser.
TESK_API void set_method_hook_unsafe(Class_Generic const& cls, internal::method_lookup_hook hook);
TESK_API void set_property_hooks_unsafe(Class_Generic const& cls, internal::property_read_hook read,
                                        internal::property_write_hook write);
TESK_API void set_coercion_unsafe(Class_Generic const& cls, internal::coercion_function coercion);
// Calls of the class's instances (I_Callable_Generic::invoke) go straight to
// `hook`, with the instance and the arguments, instead of through the
// instance's method "call" and a list of the arguments. Not inherited, like
// the other hooks; nullptr gives the calls back to "call".
TESK_API void set_invoke_hook_unsafe(Class_Generic const& cls, internal::invoke_hook hook);
// The class's native answers to the interface operations (`operations` lives
// as long as the process; nullptr removes them). Not inherited: a class
// derived from it may override the members. An instance with members of its
// own goes through its members, which are searched first; an edit of the
// class's methods or of its method hook removes the native answers.
TESK_API void set_native_operations_unsafe(Class_Generic const& cls, internal::native_operations const* operations);
TESK_API void set_finalizer_unsafe(Class_Generic const& cls, Any const& finalizer);

namespace internal {
// The class tables and member snapshots alive (published, or retired and not
// yet freed): flat while classes are edited, whatever the number of edits.
TESK_API std::int64_t live_class_table_count() noexcept;
} // namespace internal

// The built-in classes.
namespace classes {
TESK_API Class_Generic any();  // "Any": root of every class; holds the universal methods
} // namespace classes

} // namespace tesk
