// The built-in class records and the getClass() of every handle type.
//
// The records live in static storage that nothing destroys, so a pointer to
// one stays valid for the whole process (also while other static objects are
// torn down). They are made by one build on first request. Making a record
// creates Strings, and creating a String asks for the class "String": a
// request made on the building thread itself therefore gets the address of
// the (maybe not yet constructed) record at once. Nothing dereferences a
// record during the build except the build itself.
#include "builtin_classes.h"
#include "class_internal.h"

#include "tesk/builder.h"
#include "tesk/language.h"

#include <array>
#include <mutex>
#include <new>

namespace tesk::internal {
namespace {

constexpr std::size_t builtin_count = static_cast<std::size_t>(builtin::count_);
constexpr builtin no_parent = builtin::count_;

struct record_slot {
    alignas(object_value_class) unsigned char bytes[sizeof(object_value_class)];
};
// Zero-initialised storage: usable before any static constructor has run.
record_slot g_slots[builtin_count];
std::atomic<bool> g_ready{false};
std::once_flag g_once;
thread_local bool t_building = false;

object_value_class* slot(builtin id) noexcept {
    return reinterpret_cast<object_value_class*>(g_slots[static_cast<std::size_t>(id)].bytes);
}

struct builtin_description {
    builtin id;
    char const* name;
    std::uint64_t traits;
    std::array<builtin, 3> parents;
    instance_factory factory;
};

using enum builtin;
constexpr std::uint64_t iface = traits::interface;
constexpr std::uint64_t imm = traits::immutable;

// Parents come before their children, so that inherited traits can be summed
// in one pass. "Any" is the implicit root of every class and is never listed.
constexpr builtin_description g_descriptions[] = {
    {any, "Any", 0, {no_parent, no_parent, no_parent}, make_plain_instance},
    // interfaces
    {i_immutable, "I_Immutable", iface | imm, {no_parent, no_parent, no_parent}, nullptr},
    {i_has_name, "I_HasName", iface, {no_parent, no_parent, no_parent}, nullptr},
    {i_has_doc, "I_HasDoc", iface, {no_parent, no_parent, no_parent}, nullptr},
    {i_has_code, "I_HasCode", iface, {no_parent, no_parent, no_parent}, nullptr},
    {i_cloneable, "I_Cloneable", iface, {no_parent, no_parent, no_parent}, nullptr},
    {i_runtime_only, "I_RuntimeOnly", iface, {no_parent, no_parent, no_parent}, nullptr},
    {i_callable, "I_Callable", iface | traits::callable, {no_parent, no_parent, no_parent}, nullptr},
    {i_iterable, "I_Iterable", iface, {no_parent, no_parent, no_parent}, nullptr},
    {i_iterator, "I_Iterator", iface, {no_parent, no_parent, no_parent}, nullptr},
    {i_sequence, "I_Sequence", iface | traits::sequence, {i_iterable, no_parent, no_parent}, nullptr},
    {i_mutable_sequence, "I_MutableSequence", iface, {i_sequence, no_parent, no_parent}, nullptr},
    {i_map, "I_Map", iface | traits::map, {i_iterable, no_parent, no_parent}, nullptr},
    {i_mutable_map, "I_MutableMap", iface, {i_map, no_parent, no_parent}, nullptr},
    {i_set, "I_Set", iface, {i_iterable, no_parent, no_parent}, nullptr},
    {i_mutable_set, "I_MutableSet", iface, {i_set, no_parent, no_parent}, nullptr},
    {i_language, "I_Language", iface, {i_has_name, no_parent, no_parent}, nullptr},
    {python_language, "PythonLanguage", iface, {i_language, no_parent, no_parent}, nullptr},
    // values
    {none, "None", imm, {i_immutable, no_parent, no_parent}, nullptr},
    {undefined, "Undefined", imm, {i_immutable, no_parent, no_parent}, nullptr},
    {boolean, "Boolean", imm, {i_immutable, no_parent, no_parent}, nullptr},
    {integer, "Integer", imm, {i_immutable, no_parent, no_parent}, nullptr},
    {float_, "Float", imm, {i_immutable, no_parent, no_parent}, nullptr},
    {string, "String", imm, {i_immutable, no_parent, no_parent}, nullptr},
    {byte_array, "ByteArray", imm, {i_immutable, no_parent, no_parent}, nullptr},
    {decimal, "Decimal", imm, {i_immutable, no_parent, no_parent}, nullptr},
    {date, "Date", imm, {i_immutable, no_parent, no_parent}, nullptr},
    {time, "Time", imm, {i_immutable, no_parent, no_parent}, nullptr},
    {date_time, "DateTime", imm, {i_immutable, no_parent, no_parent}, nullptr},
    // containers
    {list, "List", traits::sequence, {i_mutable_sequence, no_parent, no_parent}, nullptr},
    {hash_map, "HashMap", traits::map, {i_mutable_map, no_parent, no_parent}, nullptr},
    {hash_set, "HashSet", 0, {i_mutable_set, no_parent, no_parent}, nullptr},
    {tuple, "Tuple", traits::sequence | imm, {i_sequence, i_immutable, no_parent}, nullptr},
    {list_iterator, "ListIterator", 0, {i_iterator, no_parent, no_parent}, nullptr},
    // callables and the class model
    {callable, "Callable", traits::callable, {i_callable, i_has_name, i_has_doc}, nullptr},
    {property, "Property", 0, {i_has_doc, no_parent, no_parent}, nullptr},
    {signature, "Signature", imm, {i_immutable, no_parent, no_parent}, nullptr},
    {parameter, "Parameter", imm, {i_immutable, i_has_name, no_parent}, nullptr},
    {computed, "Computed", 0, {no_parent, no_parent, no_parent}, nullptr},
    {class_, "Class", 0, {i_has_name, i_has_doc, no_parent}, nullptr},
    // errors
    {error, "Error", traits::error, {no_parent, no_parent, no_parent}, make_error_instance},
    {evaluation_error, "EvaluationError", traits::error, {error, no_parent, no_parent}, nullptr},
    {stop_iteration, "StopIteration", traits::error, {error, no_parent, no_parent}, nullptr},
    {bad_argument, "BadArgument", traits::error, {error, no_parent, no_parent}, nullptr},
    // modules and evaluation
    {module, "Module", 0, {i_has_name, i_has_doc, no_parent}, make_module_instance},
    {evaluation_scope, "EvaluationScope", 0, {no_parent, no_parent, no_parent}, nullptr},
};
static_assert(std::size(g_descriptions) == builtin_count, "every built-in class is described once");

// Traits that a class takes over from its parents (all but the interface bit).
constexpr std::uint64_t inherited_traits = ~traits::interface;

void build_all() {
    t_building = true;
    for (auto const& d : g_descriptions) new (slot(d.id)) object_value_class(String(d.name), d.traits);
    for (auto const& d : g_descriptions) {
        unpublished_record record(slot(d.id));
        for (builtin p : d.parents) {
            if (p == no_parent) continue;
            record->parents.push_back(slot(p));
            note_parent(slot(p));
            record->traits |= unpublished_record(slot(p))->traits & inherited_traits;
        }
        record->factory = d.factory;
        if (!record->factory && (record->traits & traits::interface) == 0) {
            for (auto const* p : record->parents)
                if (auto factory = unpublished_record(p)->factory) {
                    record->factory = factory;
                    break;
                }
            if (!record->factory) record->factory = make_plain_instance;
        }
    }
    install_builtin_members();
    // The names that member snapshots look for are made with the classes, so
    // that they are not counted as objects of whoever builds the first snapshot.
    (void)universal_names();
    t_building = false;
    g_ready.store(true, std::memory_order_release);
}

} // namespace

object_value_class const* builtin_class(builtin id) noexcept {
    if (!g_ready.load(std::memory_order_acquire) && !t_building) std::call_once(g_once, build_all);
    return slot(id);
}

object_value* make_plain_instance(object_value_class const* cls) { return new object_value_instance(cls); }

} // namespace tesk::internal

namespace tesk {

#define TESK_BUILTIN_CLASS(Handle, id)                                                               \
    Class_Generic Handle::getClass() { return Class_Generic::of(internal::builtin_class(internal::builtin::id)); }

TESK_BUILTIN_CLASS(None, none)
TESK_BUILTIN_CLASS(Undefined, undefined)
TESK_BUILTIN_CLASS(Computed_Generic, computed)
TESK_BUILTIN_CLASS(String, string)
TESK_BUILTIN_CLASS(Boolean, boolean)
TESK_BUILTIN_CLASS(Integer, integer)
TESK_BUILTIN_CLASS(Float, float_)
TESK_BUILTIN_CLASS(Decimal, decimal)
TESK_BUILTIN_CLASS(Date, date)
TESK_BUILTIN_CLASS(Time, time)
TESK_BUILTIN_CLASS(DateTime, date_time)
TESK_BUILTIN_CLASS(ByteArray, byte_array)
TESK_BUILTIN_CLASS(Error, error)
TESK_BUILTIN_CLASS(EvaluationError, evaluation_error)
TESK_BUILTIN_CLASS(StopIteration, stop_iteration)
TESK_BUILTIN_CLASS(BadArgument, bad_argument)
TESK_BUILTIN_CLASS(Parameter, parameter)
TESK_BUILTIN_CLASS(Signature, signature)
TESK_BUILTIN_CLASS(I_Callable_Generic, i_callable)
TESK_BUILTIN_CLASS(Property, property)
TESK_BUILTIN_CLASS(Class_Generic, class_)
TESK_BUILTIN_CLASS(Type, class_)
TESK_BUILTIN_CLASS(I_Immutable, i_immutable)
TESK_BUILTIN_CLASS(I_HasName, i_has_name)
TESK_BUILTIN_CLASS(I_HasDoc, i_has_doc)
TESK_BUILTIN_CLASS(I_HasCode, i_has_code)
TESK_BUILTIN_CLASS(I_Cloneable, i_cloneable)
TESK_BUILTIN_CLASS(I_RuntimeOnly, i_runtime_only)
TESK_BUILTIN_CLASS(I_Iterable_Generic, i_iterable)
TESK_BUILTIN_CLASS(I_Iterator_Generic, i_iterator)
TESK_BUILTIN_CLASS(I_Sequence_Generic, i_sequence)
TESK_BUILTIN_CLASS(I_MutableSequence_Generic, i_mutable_sequence)
TESK_BUILTIN_CLASS(I_Map_Generic, i_map)
TESK_BUILTIN_CLASS(I_MutableMap_Generic, i_mutable_map)
TESK_BUILTIN_CLASS(I_Set_Generic, i_set)
TESK_BUILTIN_CLASS(I_MutableSet_Generic, i_mutable_set)
TESK_BUILTIN_CLASS(List, list)
TESK_BUILTIN_CLASS(HashMap, hash_map)
TESK_BUILTIN_CLASS(HashSet, hash_set)
TESK_BUILTIN_CLASS(Tuple, tuple)
TESK_BUILTIN_CLASS(Module, module)
TESK_BUILTIN_CLASS(EvaluationScope, evaluation_scope)
TESK_BUILTIN_CLASS(I_Language, i_language)
TESK_BUILTIN_CLASS(PythonLanguage, python_language)

#undef TESK_BUILTIN_CLASS

Class_Generic classes::any() { return Class_Generic::of(internal::builtin_class(internal::builtin::any)); }

} // namespace tesk
