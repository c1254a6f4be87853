// Declaring classes, methods, properties and fields.
//
// A class is declared by a list of entries: the class name first, then lists
// whose first item is an integer tag (see entry_tag). defclass_impl turns the
// list into a class record and registers it (find_type, its module).
#pragma once

#include "tesk/module.h"
#include "tesk/typed.h"

#include <mutex>
#include <stdexcept>
#include <vector>

namespace tesk {

namespace entry_tag {
inline constexpr int flag = 1;                 // flag names (Strings); unknown ones are ignored
inline constexpr int doc = 4;                  // doc String
inline constexpr int example = 8;              // code String, language name String
inline constexpr int bases = 9;                // classes (parents and interfaces)
inline constexpr int fields = 10;              // field_entry items
inline constexpr int instance_callback = 15;   // callable taking the instance: the finaliser
inline constexpr int option = 16;              // an Integer option
inline constexpr int method = 18;              // one decorated callable
inline constexpr int interface_methods = 23;   // interface class, then decorated callables
inline constexpr int module = 25;              // module_entry(name)
inline constexpr int property = 27;            // one property_entry
inline constexpr int interface_properties = 31; // interface class, then property_entry items
inline constexpr int class_callback = 33;      // callable taking the class, run once it is built; each one runs, in order
} // namespace entry_tag

// The flag (entry_tag::flag) of a class that overrides "__method__" but lets
// the methods its chain declares answer without the override, as a proxy
// class whose override searches that chain first anyway. Inherited.
inline constexpr char const* declared_methods_first_flag = "declared_methods_first";

// Entry items.
TESK_API Any module_entry(String const& moduleName);
TESK_API Any property_entry(String const& name, Property const& property);
TESK_API Any field_entry(String const& name, Type const& type, String const& doc = String(), int flags = 0);

// Builds and registers a class from its entries.
TESK_API Result<Class_Generic> defclass_impl(List const& entries);

// The names of the example languages (tag 8).
TESK_API String language_name_cpp();
TESK_API String language_name_js();
TESK_API String language_name_python();

class TESK_API method_builder_base {
public:
    explicit method_builder_base(String const& name);
    method_builder_base& assign_func(I_Callable_Generic const& function);
    method_builder_base& signature(String const& parameterNames); // "code, scope"
    method_builder_base& assign_doc(String const& doc);
    method_builder_base& assign_defaults(std::vector<Any> defaults);
    method_builder_base& set_static(bool isStatic);
    // The decorated callable (an abstract function when none was assigned).
    I_Callable_Generic build() const;

private:
    String name_;
    Any function_;
    String signature_;
    String doc_;
    std::vector<Any> defaults_;
    bool static_ = false;
};

class TESK_API property_builder_base {
public:
    explicit property_builder_base(meta_property_untyped const& key);
    explicit property_builder_base(String const& name);
    // A getter with more than one required parameter is reported to the
    // assertion log; one without parameters is marked independent.
    property_builder_base& getter(I_Callable_Generic const& getter);
    property_builder_base& assign_getter_value(Any const& value);
    // A setter with more than two parameters is reported; one with exactly one is independent.
    property_builder_base& setter(I_Callable_Generic const& setter);
    property_builder_base& assign_doc(String const& doc);
    String const& name() const { return name_; }
    Property build() const;
    Any entry() const { return property_entry(name_, build()); }

private:
    String name_;
    Any getter_;
    Any setter_;
    String doc_;
};

class TESK_API field_builder_base {
public:
    explicit field_builder_base(meta_field_untyped const& key);
    field_builder_base& type(Type const& type);
    field_builder_base& assign_doc(String const& doc);
    Any entry() const;

private:
    String name_;
    Any type_;
    String doc_;
};

// Collects the entries of one class.
class TESK_API class_builder_base {
public:
    explicit class_builder_base(String const& name);
    class_builder_base& entry(int tag, std::initializer_list<Any> items);
    class_builder_base& entry(int tag, std::vector<Any> const& items);
    class_builder_base& bases(std::initializer_list<Any> classes) { return entry(entry_tag::bases, classes); }
    class_builder_base& doc(String const& doc) { return entry(entry_tag::doc, {doc}); }
    class_builder_base& module(String const& name) { return entry(entry_tag::module, {module_entry(name)}); }
    class_builder_base& method(I_Callable_Generic const& callable) { return entry(entry_tag::method, {callable}); }
    class_builder_base& property(property_builder_base const& p) { return entry(entry_tag::property, {p.entry()}); }
    List const& entries() const { return entries_; }
    Result<Class_Generic> build() const { return defclass_impl(entries_); }

private:
    List entries_;
};

// One class, built on first use. A use of the accessor while the class is
// being built on the same thread throws std::runtime_error
// ("Recursive call detected while initializing class: NAME").
class TESK_API class_accessor {
public:
    using filler = void (*)(class_builder_base& builder);
    class_accessor(char const* name, filler fill) : name_(name), fill_(fill) {}
    Class_Generic operator()() const;
    char const* name() const { return name_; }

private:
    char const* name_;
    filler fill_;
    mutable std::once_flag once_;
    mutable Any class_;
};

} // namespace tesk
