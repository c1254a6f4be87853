// Editing published class records: copy the table, change the copy, swap it
// in, mark the snapshots of the class and of the classes below it stale, and
// retire the old table (class_table.h).
//
// Locks: the record's spinlock serialises the edits of one class (the copy,
// the change and the swap; copying retains values and never releases one);
// g_hierarchy_lock, taken before it, makes the cycle check and the swap of a
// parent edit one step across classes. Neither is held while a value is
// released or while the old table is reclaimed.
#include "builtin_classes.h"
#include "class_internal.h"
#include "module_changes.h"

#include "tesk/class_draft.h"
#include "tesk/module.h"

#include <memory>
#include <mutex>
#include <unordered_set>

namespace tesk {
namespace internal {

namespace {

spinlock g_hierarchy_lock;
std::atomic<std::uint64_t> g_publications{0};

// Evaluations derive what they bind from the modules and the classes that
// belong to them (declared in a module, or a module's own class); edits of
// any other class (proxies, classes made for Python types) concern nobody
// that keeps a derived table.
bool belongs_to_module(object_value_class const* cls) {
    if (cls->is_ancestor(builtin_class(builtin::module))) return true;
    return Module::test(cls->declaring_context_value());
}

// Swaps in a copy of the table of `cls` changed by `change`, under the
// record's lock. Gives the old table, or nullptr when `change` declined (returned false).
template <class Change> class_table const* swap_table(object_value_class const* cls, Change&& change) {
    std::lock_guard guard(cls->lock());
    auto& slot = class_record_access::table(cls);
    class_table const* old = slot.load(std::memory_order_seq_cst);
    auto fresh = std::make_unique<class_table>(*old);
    if (!change(*fresh)) return nullptr;
    class_table const* published = fresh.release();
    slot.store(published, std::memory_order_seq_cst);
    class_record_access::refresh_cached_words(cls, *published);
    count_publication();
    return old;
}

// The records that some class has as a parent. Most classes made at run
// time (proxies, classes mirrored from Python, each module's own class) are
// nobody's parent, and an edit of one of those has no class below it to
// mark. A leaf lock: nothing is taken or released while it is held.
struct parent_registry {
    spinlock lock;
    std::unordered_set<object_value_class const*> parents;
};

parent_registry& known_parents() {
    static auto* const registry = new parent_registry; // never destroyed, like the records
    return *registry;
}

bool is_known_parent(object_value_class const* cls) {
    parent_registry& r = known_parents();
    std::lock_guard guard(r.lock);
    return r.parents.count(cls) != 0;
}

// Moves the version of `edited` and of every class that has it as an ancestor.
void mark_stale(object_value_class const* edited) {
    move_class_epoch();
    if (!is_known_parent(edited)) {
        class_record_access::version(edited).fetch_add(1, std::memory_order_seq_cst);
        return;
    }
    for (auto const* r : all_class_records())
        if (r->is_ancestor(edited)) class_record_access::version(r).fetch_add(1, std::memory_order_seq_cst);
}

// Whether an edit can change what the classes below the edited one resolve.
enum class reach { members, this_class_only };

// What follows a swap, outside every lock. The edited class's own snapshot
// goes stale with its table in any case; its descendants' only when the
// members could have changed (marking them walks every class record).
void finish_edit(object_value_class const* cls, class_table const* old, reach scope = reach::members) {
    if (!old) return;
    if (scope == reach::members) mark_stale(cls);
    if (belongs_to_module(cls)) note_modules_changed();
    retire(old);
    reclaim();
}

template <class Change>
void edit_table(object_value_class const* cls, Change&& change, reach scope = reach::members) {
    finish_edit(cls,
                swap_table(cls,
                           [&](class_table& t) {
                               change(t);
                               return true;
                           }),
                scope);
}

} // namespace

bool link_parent(class_table& table, object_value_class const* parent) {
    if (parent == any_record()) return false;
    for (auto const* known : table.parents)
        if (known->is_ancestor(parent)) return false;
    table.parents.push_back(parent);
    note_parent(parent);
    table.traits |= parent->traits() & ~traits::interface;
    if (!table.factory) table.factory = read_table(parent, [](class_table const& t) { return t.factory; });
    return true;
}

void give_default_factory(class_table& table) {
    if (!table.factory && (table.traits & traits::interface) == 0) table.factory = make_plain_instance;
}

// Sequentially consistent: a reader that sees the count of an edit sees its table.
void note_parent(object_value_class const* parent) {
    parent_registry& r = known_parents();
    std::lock_guard guard(r.lock);
    r.parents.insert(parent);
}

void count_publication() noexcept { g_publications.fetch_add(1, std::memory_order_seq_cst); }

std::uint64_t class_publication_count() noexcept { return g_publications.load(std::memory_order_seq_cst); }

} // namespace internal

using internal::class_table;

void add_class_method_unsafe(Class_Generic const& cls, String const& n, I_Callable_Generic const& method) {
    std::optional<Any> displaced; // released after the lock
    internal::edit_table(cls.record(), [&](class_table& t) {
        displaced = t.methods.exchange(n, method);
        t.native = nullptr; // the native answers were those of the methods replaced
    });
}

void add_class_property_unsafe(Class_Generic const& cls, String const& n, Property const& property) {
    std::optional<Property> displaced;
    internal::edit_table(cls.record(), [&](class_table& t) { displaced = t.properties.exchange(n, property); });
}

void add_parent_unsafe(Class_Generic const& cls, Class_Generic const& parent) {
    auto const* record = cls.record();
    auto const* p = parent.record();
    if (p == internal::any_record()) return; // "Any" is everyone's root
    class_table const* old;
    {
        std::lock_guard guard(internal::g_hierarchy_lock);
        old = internal::swap_table(record, [&](class_table& t) {
            if (p->is_ancestor(record)) return false; // a cycle would make lookups endless
            if (!internal::link_parent(t, p)) return false;
            internal::give_default_factory(t);
            return true;
        });
    }
    internal::finish_edit(record, old);
}

void set_doc_unsafe(Class_Generic const& cls, String const& doc) {
    String displaced;
    internal::edit_table(
        cls.record(), [&](class_table& t) { displaced = std::exchange(t.doc, doc); }, internal::reach::this_class_only);
}

void add_class_field_unsafe(Class_Generic const& cls, internal::field_info const& field) {
    internal::edit_table(cls.record(), [&](class_table& t) { t.fields.push_back(field); });
}

namespace {
// Sets one hook of the table; the displaced hook is released after the lock.
template <class Hook>
void set_hook(Class_Generic const& cls, std::shared_ptr<Hook const> class_table::*member, Hook hook) {
    std::shared_ptr<Hook const> fresh;
    if (hook) fresh = std::make_shared<Hook const>(std::move(hook));
    internal::edit_table(cls.record(), [&](class_table& t) { std::swap(t.*member, fresh); });
}
} // namespace

void set_method_hook_unsafe(Class_Generic const& cls, internal::method_lookup_hook hook) {
    set_hook(cls, &class_table::method_hook, std::move(hook));
    set_native_operations_unsafe(cls, nullptr); // the hook may answer for the members
}

void set_property_hooks_unsafe(Class_Generic const& cls, internal::property_read_hook read,
                               internal::property_write_hook write) {
    set_hook(cls, &class_table::property_read, std::move(read));
    set_hook(cls, &class_table::property_write, std::move(write));
}

void set_coercion_unsafe(Class_Generic const& cls, internal::coercion_function coercion) {
    set_hook(cls, &class_table::coercion, std::move(coercion));
}

void set_invoke_hook_unsafe(Class_Generic const& cls, internal::invoke_hook hook) {
    internal::edit_table(cls.record(), [&](class_table& t) { t.invoke = hook; });
}

void set_native_operations_unsafe(Class_Generic const& cls, internal::native_operations const* operations) {
    internal::edit_table(
        cls.record(), [&](class_table& t) { t.native = operations; }, internal::reach::this_class_only);
}

void set_finalizer_unsafe(Class_Generic const& cls, Any const& finalizer) {
    Any displaced = finalizer;
    internal::edit_table(cls.record(), [&](class_table& t) { std::swap(t.finalizer, displaced); });
}

} // namespace tesk

namespace tesk {

void set_call_operator_unsafe(Class_Generic const& cls, I_Callable_Generic const& call) {
    Any displaced = call;
    internal::edit_table(cls.record(), [&](class_table& t) { std::swap(t.call_operator, displaced); });
}

void add_traits_unsafe(Class_Generic const& cls, std::uint64_t traits) {
    internal::edit_table(cls.record(), [&](class_table& t) { t.traits |= traits; });
}

void set_instance_factory_unsafe(Class_Generic const& cls, internal::instance_factory factory) {
    internal::edit_table(cls.record(), [&](class_table& t) { t.factory = factory; });
}

void set_declaring_context_unsafe(Class_Generic const& cls, Any const& context) {
    Any displaced = context;
    internal::edit_table(
        cls.record(), [&](class_table& t) { std::swap(t.declaring_context, displaced); },
        internal::reach::this_class_only);
}

} // namespace tesk
