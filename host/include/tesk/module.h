// Modules, the module registry, init handlers, global names and the
// assertion log.
#pragma once

#include "tesk/containers.h"

#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

namespace tesk {

// A host module: a name, a doc, classes and callables by name, an importance,
// and properties (those its class defines and its own). Every module made by
// get_module has a class of its own derived from the class "Module", so
// properties added to that class belong to that module alone.
class TESK_API Module : public Any {
    TESK_HANDLE(Module, Any)
public:
    static bool test(Any const& v) noexcept;
    // A new, unregistered module with its own class.
    static Module create(String const& name, String const& doc = String());

    String name() const;
    String doc() const;
    void setDoc(String const& doc) const;
    int importance() const;
    void setImportance(int importance) const;
    // Snapshots of the member tables, in insertion order.
    std::vector<std::pair<String, Class_Generic>> classes() const;
    std::vector<std::pair<String, I_Callable_Generic>> callables() const;
    void addClass(String const& name, Class_Generic const& cls) const;
    void addCallable(String const& name, I_Callable_Generic const& callable) const;
};

namespace internal {
// The module of a record made by allocateInstance of a class derived from "Module".
class TESK_API object_value_module : public object_value_instance {
public:
    explicit object_value_module(object_value_class const* cls);
    String name;
    String doc;
    int importance = 0;
    ordered_map<Any> classes;   // Class_Generic values
    ordered_map<Any> callables; // callables
};

// name → module, in registration order. Guarded by g_modules_lock; entries are
// added, never removed. Take g_modules_lock after the Python interpreter lock.
TESK_API ordered_map<Module>& g_modules();
TESK_API spinlock& g_modules_lock();

// Moves whenever a module is registered, a module's members or importance
// change, or any class is edited: what a caller derives from the modules
// (an evaluation's table of them) stays valid while it stands still.
TESK_API std::uint64_t modules_generation() noexcept;

// The property key "$$inlined": a module with this property has its classes
// and callables bound by name in evaluation scopes.
TESK_API meta_property_untyped const& inlined_key();
} // namespace internal

// The registered modules, in registration order.
TESK_API std::vector<Module> modules();
TESK_API Union<Module, None> find_module(String const& name);
// The module of that name, registered on first request; an Error for an empty name.
TESK_API Union<Module, Error> get_module(String const& name);
// Registers a module made elsewhere (Module::create, or a module of a class
// derived from "Module") under its name, linked with its dotted neighbours as
// get_module links them. A name taken already keeps its module, which is
// what is given back.
TESK_API Union<Module, Error> register_module(Module const& module);
// Registers a function or a property of a module (created on demand).
TESK_API Result<None> register_function(String const& module, String const& name, I_Callable_Generic const& callable);
TESK_API Result<None> register_property(String const& module, String const& name, Property const& property);

// Init handlers: queued at load time by libraries, run by the host by
// ascending level, in registration order within a level, each once.
using init_handler = std::function<void()>;
TESK_API void add_init_handler(int level, init_handler handler);
// The queue itself, for callers that append to it directly. Not locked.
TESK_API std::vector<std::pair<int, init_handler>>& init_handlers_unsafe();
// Runs the handlers queued so far that have not run yet; handlers queued while
// running are run too. Returns how many ran.
TESK_API int run_init_handlers();

// The host's global names, seen by every evaluation.
TESK_API HashMap globals();

// The assertion log: misuse of builders is reported here, not to the caller.
TESK_API void report_assertion(String const& message);
TESK_API std::vector<String> assertion_messages();
TESK_API void clear_assertion_messages();

} // namespace tesk
