// The builders of methods, properties, fields and classes, the entry items,
// and the class accessor.
#include "class_internal.h"

#include "tesk/builder.h"

namespace tesk {

// ---- entry items -------------------------------------------------------------
// Small tuples that defclass_impl reads back.

Any module_entry(String const& moduleName) { return Tuple{moduleName}; }

Any property_entry(String const& name, Property const& property) { return Tuple{name, property}; }

Any field_entry(String const& name, Type const& type, String const& doc, int flags) {
    return Tuple{name, type, doc, Integer(flags)};
}

String language_name_cpp() { return String("C++"); }
String language_name_js() { return String("JavaScript"); }
String language_name_python() { return String("Python"); }

// ---- method_builder_base -----------------------------------------------------

namespace {
// What a builder decorates: a clone of a native callable (the one it was
// given, which others may hold, keeps its name and flags), or a class
// instance implementing I_Callable itself (decorated through its own members).
Any private_copy(Any const& c) {
    if (c.kind() != Kind::Callable) return c;
    return static_cast<internal::object_value_callable const*>(c.get())->clone();
}
} // namespace

method_builder_base::method_builder_base(String const& name) : name_(name) {}

method_builder_base& method_builder_base::assign_func(I_Callable_Generic const& function) {
    function_ = function;
    return *this;
}
method_builder_base& method_builder_base::signature(String const& parameterNames) {
    signature_ = parameterNames;
    return *this;
}
method_builder_base& method_builder_base::assign_doc(String const& doc) {
    doc_ = doc;
    return *this;
}
method_builder_base& method_builder_base::assign_defaults(std::vector<Any> defaults) {
    defaults_ = std::move(defaults);
    return *this;
}
method_builder_base& method_builder_base::set_static(bool isStatic) {
    static_ = isStatic;
    return *this;
}

I_Callable_Generic method_builder_base::build() const {
    Any callable = function_.hasValue() ? private_copy(function_)
                                        : internal::create_abstract_function(Signature(Type::untyped(), {}));
    internal::decorate(callable, name_, signature_, doc_, defaults_);
    I_Callable_Generic c = I_Callable_Generic::unsafe(callable);
    if (static_) c.setIndependent(true);
    return c;
}

// ---- property_builder_base ---------------------------------------------------

property_builder_base::property_builder_base(meta_property_untyped const& key) : name_(key.name()) {}
property_builder_base::property_builder_base(String const& name) : name_(name) {}

namespace {
// The parameter count of a callable and how many of them have defaults.
std::pair<int, int> parameter_counts(I_Callable_Generic const& c) {
    auto sig = c.signature();
    if (!sig.is<Signature>()) return {0, 0};
    Signature s = sig.as<Signature>();
    return {s.parameterCount(), static_cast<int>(s.defaults().size())};
}
} // namespace

property_builder_base& property_builder_base::getter(I_Callable_Generic const& getter) {
    auto [count, defaults] = parameter_counts(getter);
    if (count - defaults > 1) report_assertion(String("[property_builder::getter] Too many parameters in the getter function."));
    getter_ = private_copy(getter);
    if (count == 0) I_Callable_Generic::unsafe(getter_).setIndependent(true);
    return *this;
}

property_builder_base& property_builder_base::assign_getter_value(Any const& value) {
    getter_ = internal::make_constant_callable(value);
    return *this;
}

property_builder_base& property_builder_base::setter(I_Callable_Generic const& setter) {
    auto [count, defaults] = parameter_counts(setter);
    (void)defaults;
    if (count > 2) report_assertion(String("[property_builder::setter] Too many parameters in the setter function."));
    setter_ = private_copy(setter);
    if (count == 1) I_Callable_Generic::unsafe(setter_).setIndependent(true);
    return *this;
}

property_builder_base& property_builder_base::assign_doc(String const& doc) {
    doc_ = doc;
    return *this;
}

Property property_builder_base::build() const {
    Any getter = getter_.hasValue() ? getter_ : internal::make_constant_callable(Any());
    return Property(I_Callable_Generic::unsafe(getter), setter_, doc_);
}

// ---- field_builder_base ------------------------------------------------------

field_builder_base::field_builder_base(meta_field_untyped const& key) : name_(key.name()), type_(Type::untyped()) {}

field_builder_base& field_builder_base::type(Type const& type) {
    type_ = type;
    return *this;
}
field_builder_base& field_builder_base::assign_doc(String const& doc) {
    doc_ = doc;
    return *this;
}
Any field_builder_base::entry() const { return field_entry(name_, Type::unsafe(type_), doc_); }

// ---- class_builder_base ------------------------------------------------------

class_builder_base::class_builder_base(String const& name) { entries_.append(name); }

class_builder_base& class_builder_base::entry(int tag, std::initializer_list<Any> items) {
    return entry(tag, std::vector<Any>(items));
}

class_builder_base& class_builder_base::entry(int tag, std::vector<Any> const& items) {
    List e;
    e.append(Integer(tag));
    for (Any const& item : items) e.append(item);
    entries_.append(e);
    return *this;
}

// ---- class_accessor ----------------------------------------------------------

namespace {
// The accessors whose class is being built on this thread.
thread_local std::vector<class_accessor const*> t_initializing;

struct initializing_scope {
    explicit initializing_scope(class_accessor const* a) { t_initializing.push_back(a); }
    ~initializing_scope() { t_initializing.pop_back(); }
    initializing_scope(initializing_scope const&) = delete;
    initializing_scope& operator=(initializing_scope const&) = delete;
};
} // namespace

Class_Generic class_accessor::operator()() const {
    for (auto const* a : t_initializing)
        if (a == this) throw std::runtime_error(std::string("Recursive call detected while initializing class: ") + name_);
    std::call_once(once_, [this] {
        initializing_scope scope(this);
        class_builder_base builder{String(name_)};
        fill_(builder);
        auto built = builder.build();
        if (built.isError()) {
            report_assertion(String("[class_accessor] Unable to build the class {}: {}").arg(name_, built.error().message()));
            return;
        }
        class_ = built;
    });
    return Class_Generic::unsafe(class_);
}

} // namespace tesk
