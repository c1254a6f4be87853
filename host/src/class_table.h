// Internal: the mutable parts of a class record.
//
// A record reaches its table through one atomic pointer. While a record is
// being built (no other thread can see it yet) its table is filled in place
// through an unpublished_record. After publication a table never changes:
// every edit copies the current table under the record's lock, changes the
// copy, swaps it in and retires the old one (deferred_reclamation.h), so
// readers never take a lock; they read inside a read_section.
//
// The resolved-member snapshot of a class (its own and inherited members) is
// tagged with the class's version. An edit of a class moves the version of
// that class and of every class below it, so that exactly their snapshots
// become stale; a stale snapshot is replaced on the next lookup and retired.
// Writers swap the table before they move versions, and readers read the
// version before the tables (sequentially consistent on both sides), so a
// snapshot is never older than its tag.
#pragma once

#include "deferred_reclamation.h"

#include "tesk/class.h"

#include <memory>

namespace tesk::internal {

struct class_table {
    class_table();
    class_table(class_table const& other);
    class_table& operator=(class_table const&) = delete;
    ~class_table();

    String qualname; // "module.Name" when declared in a module, else the name
    String doc;
    std::uint64_t traits = 0;
    std::vector<object_value_class const*> parents; // declared order
    Any declaring_context;  // a Module, a class, or none
    Any generic_definition; // the generic class this one instantiates, or none
    std::vector<field_info> fields; // own fields; instances hold inherited ones first
    ordered_map<Any> methods;       // callables
    ordered_map<Property> properties;
    Any call_operator;              // callable: what calling the class does
    // Hooks are shared, not copied, when an edit copies the table: a copy of
    // a hook might copy references that need the interpreter lock.
    std::shared_ptr<coercion_function const> coercion;
    std::shared_ptr<method_lookup_hook const> method_hook;
    std::shared_ptr<property_read_hook const> property_read;
    std::shared_ptr<property_write_hook const> property_write;
    invoke_hook invoke = nullptr; // a plain function: copied with the table
    native_operations const* native = nullptr; // static: copied with the table
    Any finalizer;      // callable taking the instance
    Any setup_callback; // callable taking the class
    object_value_class const* method_owner = nullptr; // another record that owns the methods
    instance_factory factory = nullptr; // inherited from the nearest parent that has one
    std::vector<std::pair<String, String>> examples; // (code, language)
    std::int64_t option = 0;
    // The flag declared_methods_first_flag (builder.h): with a "__method__"
    // override in the chain, the methods that the chain itself declares
    // answer without asking the override. Inherited through the snapshot.
    bool declared_methods_first = false;
};

// The private parts of a record, for the class machinery.
struct class_record_access {
    static std::atomic<class_table const*>& table(object_value_class const* cls) noexcept {
        return const_cast<object_value_class*>(cls)->table_;
    }
    static std::atomic<std::uint64_t>& version(object_value_class const* cls) noexcept { return cls->version_; }
    static std::atomic<void const*>& member_cache(object_value_class const* cls) noexcept {
        return cls->member_cache_;
    }
    // Copies the words that hot paths read without a read section.
    static void refresh_cached_words(object_value_class const* cls, class_table const& t) noexcept {
        auto* c = const_cast<object_value_class*>(cls);
        c->traits_.store(t.traits, std::memory_order_seq_cst);
        c->has_finalizer_.store(t.finalizer.hasValue(), std::memory_order_seq_cst);
        c->invoke_.store(t.invoke, std::memory_order_seq_cst);
        c->native_.store(t.native, std::memory_order_seq_cst);
    }
};

// The current table of a record; only inside a read_section.
inline class_table const& table_of(object_value_class const* cls) noexcept {
    return *class_record_access::table(cls).load(std::memory_order_seq_cst);
}

// Fills the table of a record that no other thread can see yet; the words
// that hot paths read are refreshed when it goes out of scope.
class unpublished_record {
public:
    explicit unpublished_record(object_value_class const* cls) noexcept
        : cls_(cls), table_(const_cast<class_table*>(class_record_access::table(cls).load())) {}
    ~unpublished_record() { class_record_access::refresh_cached_words(cls_, *table_); }
    unpublished_record(unpublished_record const&) = delete;
    unpublished_record& operator=(unpublished_record const&) = delete;
    class_table* operator->() const noexcept { return table_; }
    class_table& operator*() const noexcept { return *table_; }

private:
    object_value_class const* cls_;
    class_table* table_;
};

} // namespace tesk::internal
