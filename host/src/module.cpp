// Modules and the module registry.
#include "builtin_classes.h"
#include "class_internal.h"
#include "class_table.h"
#include "module_changes.h"

#include "tesk/module.h"

#include <atomic>
#include <mutex>

namespace tesk {
namespace internal {

object_value_module::object_value_module(object_value_class const* cls) : object_value_instance(cls) {}

object_value* make_module_instance(object_value_class const* cls) { return new object_value_module(cls); }

// name → module, in registration order; guarded by g_modules_lock(). Both are
// made on first use and never destroyed, so that modules stay reachable while
// other static objects are torn down.
ordered_map<Module>& g_modules() {
    static auto* modules = new ordered_map<Module>();
    return *modules;
}

spinlock& g_modules_lock() {
    static auto* lock = new spinlock();
    return *lock;
}

namespace {
std::atomic<std::uint64_t> g_modules_generation{1};
}

std::uint64_t modules_generation() noexcept { return g_modules_generation.load(std::memory_order_acquire); }
void note_modules_changed() noexcept { g_modules_generation.fetch_add(1, std::memory_order_acq_rel); }

meta_property_untyped const& inlined_key() {
    static auto* key = new meta_property_untyped("$$inlined");
    return *key;
}

namespace {
object_value_module& module_record(Module const& m) {
    return const_cast<object_value_module&>(static_cast<object_value_module const&>(*m.get()));
}
// Reads a part of the module under its lock.
template <class F> auto read_module(Module const& m, F read) {
    auto& r = module_record(m);
    std::lock_guard guard(r.lock());
    return read(r);
}
template <class H>
std::vector<std::pair<String, H>> snapshot(Module const& m, ordered_map<Any> object_value_module::*table) {
    return read_module(m, [&](object_value_module& r) {
        std::vector<std::pair<String, H>> out;
        out.reserve((r.*table).size());
        for (auto const& [k, v] : (r.*table).entries()) out.emplace_back(k, H::unsafe(v));
        return out;
    });
}
} // namespace
} // namespace internal

using internal::object_value_module;

bool Module::test(Any const& v) noexcept {
    return v.kind() == Kind::Instance &&
           v.get()->class_value()->is_ancestor(internal::builtin_class(internal::builtin::module));
}

Module Module::create(String const& name, String const& doc) {
    // A class of its own, so that properties added to it belong to this module.
    auto* cls = new internal::object_value_class(String("Module"));
    auto const* base = internal::builtin_class(internal::builtin::module);
    {
        internal::unpublished_record table(cls);
        table->parents.push_back(base);
        internal::note_parent(base);
        table->traits = base->traits() & ~traits::interface;
        table->factory = internal::make_module_instance;
        table->doc = doc;
        // The module's callables answer method lookups on it, so that
        // `module.function(...)` works wherever the module is a value.
        table->method_hook = std::make_shared<internal::method_lookup_hook const>(
            [](Any const& self, String const& member) {
                return internal::read_module(Module::unsafe(self), [&](object_value_module& r) {
                    Any const* found = r.callables.find(member);
                    return found ? *found : Any();
                });
            });
    }
    Module m = Module::unsafe(internal::object_value_instance::create(cls));
    auto& r = internal::module_record(m);
    r.name = name;
    r.doc = doc;
    return m;
}

String Module::name() const { return internal::read_module(*this, [](object_value_module& r) { return r.name; }); }
String Module::doc() const { return internal::read_module(*this, [](object_value_module& r) { return r.doc; }); }
void Module::setDoc(String const& doc) const {
    internal::read_module(*this, [&](object_value_module& r) { return r.doc = doc; });
}
int Module::importance() const {
    return internal::read_module(*this, [](object_value_module& r) { return r.importance; });
}
void Module::setImportance(int importance) const {
    internal::read_module(*this, [&](object_value_module& r) { return r.importance = importance; });
    internal::note_modules_changed();
}

std::vector<std::pair<String, Class_Generic>> Module::classes() const {
    return internal::snapshot<Class_Generic>(*this, &object_value_module::classes);
}
std::vector<std::pair<String, I_Callable_Generic>> Module::callables() const {
    return internal::snapshot<I_Callable_Generic>(*this, &object_value_module::callables);
}

void Module::addClass(String const& name, Class_Generic const& cls) const {
    // The replaced entry is released after the module's lock.
    auto displaced =
        internal::read_module(*this, [&](object_value_module& r) { return r.classes.exchange(name, cls); });
    // And a read-only property of the module's own class, so that
    // `module.Class` reads it like any other member of the module.
    Property property(I_Callable_Generic::unsafe(internal::make_constant_callable(cls)), Any(), cls.doc());
    add_class_property_unsafe(Class_Generic::of(get()->class_value()), name, property);
}
void Module::addCallable(String const& name, I_Callable_Generic const& callable) const {
    auto displaced =
        internal::read_module(*this, [&](object_value_module& r) { return r.callables.exchange(name, callable); });
    internal::note_modules_changed();
}

std::vector<Module> modules() {
    std::lock_guard guard(internal::g_modules_lock());
    std::vector<Module> out;
    out.reserve(internal::g_modules().size());
    for (auto const& [name, m] : internal::g_modules().entries()) out.push_back(m);
    return out;
}

Union<Module, None> find_module(String const& name) {
    std::lock_guard guard(internal::g_modules_lock());
    if (Module const* m = internal::g_modules().find(name)) return Union<Module, None>(*m);
    return {};
}

namespace {

// Makes `child` the read-only property `name` of `parent` (of its own class).
void add_child(Module const& parent, String const& name, Module const& child) {
    Property property(I_Callable_Generic::unsafe(internal::make_constant_callable(child)), Any(), child.doc());
    add_class_property_unsafe(Class_Generic::of(parent.get()->class_value()), name, property);
}

// Links a new module with the registered modules one dot above and below
// it, so that "a.b" is reachable as the member "b" of "a", whichever of the
// two was registered first.
void link_dotted_neighbours(Module const& module, String const& name) {
    std::size_t dot = name.rfind(".");
    String const parentName = dot == String::npos ? String() : name.sliced(0, dot);
    // A copy of the registry: no host value is made or released under its lock.
    std::vector<std::pair<String, Module>> registered;
    {
        std::lock_guard guard(internal::g_modules_lock());
        registered = internal::g_modules().entries();
    }
    std::string const prefix = name.toUtf8() + ".";
    for (auto const& [other, m] : registered) {
        if (!parentName.isEmpty() && other == parentName) add_child(m, name.sliced(dot + 1), module);
        if (!other.startsWith(prefix)) continue;
        String rest = other.sliced(prefix.size());
        if (!rest.contains(".")) add_child(module, rest, m);
    }
}

// What follows the registration of a new module, outside the registry's lock.
Union<Module, Error> announce_registered(Module const& module, String const& name) {
    internal::note_modules_changed();
    link_dotted_neighbours(module, name);
    return Union<Module, Error>(module);
}

} // namespace

Union<Module, Error> get_module(String const& name) {
    if (name.isEmpty()) return Error(String("[get_module] The module name is empty."));
    Module m = Module::unsafe(Any());
    {
        std::lock_guard guard(internal::g_modules_lock());
        if (Module const* found = internal::g_modules().find(name)) return Union<Module, Error>(*found);
        // Made under the lock so that two threads asking at once get one
        // module; making it calls no host callable.
        m = Module::create(name);
        internal::g_modules().set(name, m);
    }
    return announce_registered(m, name);
}

Union<Module, Error> register_module(Module const& module) {
    String const name = module.name();
    if (name.isEmpty()) return Error(String("[register_module] The module name is empty."));
    {
        std::lock_guard guard(internal::g_modules_lock());
        if (Module const* found = internal::g_modules().find(name)) return Union<Module, Error>(*found);
        internal::g_modules().set(name, module);
    }
    return announce_registered(module, name);
}

Result<None> register_function(String const& module, String const& name, I_Callable_Generic const& callable) {
    auto m = get_module(module);
    if (m.isError()) return Result<None>(m);
    m.as<Module>().addCallable(name, callable);
    return {};
}

Result<None> register_property(String const& module, String const& name, Property const& property) {
    auto m = get_module(module);
    if (m.isError()) return Result<None>(m);
    Any inserted = insert_property(m, name, property);
    internal::note_modules_changed();
    return Result<None>(inserted);
}

} // namespace tesk
