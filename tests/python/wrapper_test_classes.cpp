#include "wrapper_test_classes.h"

namespace tesk::cpython::testing {
namespace {

char const module_name[] = "wrappertest";

I_Callable_Generic method(char const* name, I_Callable_Generic function, char const* parameters = "",
                          bool isStatic = false) {
    return method_builder_base(String(name))
        .assign_func(function)
        .signature(String(parameters))
        .assign_doc(String(std::string("The method ") + name + "."))
        .set_static(isStatic)
        .build();
}

// ---- Gauge --------------------------------------------------------------------

std::int64_t count_of(Any const& self) {
    auto count = Integer::cast(self.fieldValue(String("count")));
    return count ? count.value().value() : 0;
}

std::int64_t gauge_size(Any const&) { return 42; }
std::int64_t gauge_level(Any const& self) { return count_of(self); }
void gauge_set_level(Any const& self, std::int64_t level) { (void)self.setFieldValue(String("count"), Integer(level)); }
std::int64_t gauge_add(Any const&, std::int64_t a, std::int64_t b) { return a * 10 + b; }
Any gauge_fail(Any const&) { return Error(String("the gauge failed")); }
Any gauge_make(String const& label) { return make_gauge(label.c_str(), 0); }

// The meta-methods tell which of them ran and with what.
String ran(char const* name, Any const& operand) { return String(name) + String(":") + display(operand); }
String gauge_plus(Any const&, Any const& other) { return ran("__add__", other); }
String gauge_minus(Any const&, Any const& other) { return ran("__sub__", other); }
String gauge_divide(Any const&, Any const& other) { return ran("__div__", other); }
String gauge_and(Any const&, Any const& other) { return ran("__and__", other); }
String gauge_or(Any const&, Any const& other) { return ran("__or__", other); }
String gauge_xor(Any const&, Any const& other) { return ran("__xor__", other); }
String gauge_not(Any const& self) { return ran("__not__", self.fieldValue(String("label"))); }
std::int64_t gauge_inplace_add(Any const&, Any const&) { return 7; }
void gauge_inplace_subtract(Any const&, Any const&) {}

void fill_gauge(class_builder_base& b) {
    b.doc(String("A gauge for the wrapper tests."));
    b.module(String(module_name));
    b.entry(entry_tag::fields, {field_entry(String("label"), String::getClass(), String("The gauge's name.")),
                                field_entry(String("count"), Integer::getClass(), String("Its reading."))});
    b.property(property_builder_base(String("size")).getter(make_closure(gauge_size)).assign_doc(String("Fixed.")));
    b.property(property_builder_base(String("level"))
                   .getter(make_closure(gauge_level))
                   .setter(make_closure(gauge_set_level))
                   .assign_doc(String("The count, writable.")));
    b.property(property_builder_base(String("_hidden")).getter(make_closure(gauge_size)));
    b.method(method("add", make_closure(gauge_add), "a, b"));
    b.method(method("fail", make_closure(gauge_fail)));
    b.method(method("make", make_closure(gauge_make), "label", true));
    b.method(method("_private", make_closure(gauge_fail)));
    b.method(method("__add__", make_closure(gauge_plus), "other"));
    b.method(method("__sub__", make_closure(gauge_minus), "other"));
    b.method(method("__div__", make_closure(gauge_divide), "other"));
    b.method(method("__and__", make_closure(gauge_and), "other"));
    b.method(method("__or__", make_closure(gauge_or), "other"));
    b.method(method("__xor__", make_closure(gauge_xor), "other"));
    b.method(method("__not__", make_closure(gauge_not)));
    b.method(method("__iadd__", make_closure(gauge_inplace_add), "other"));
    b.method(method("__isub__", make_closure(gauge_inplace_subtract), "other"));
}
class_accessor g_gauge{"Gauge", fill_gauge};

// ---- Countdown and Launch -----------------------------------------------------

Any countdown_next(Any const& self) {
    std::int64_t left = count_of(self);
    if (left < 0) return Error(String("the countdown broke"));
    if (left == 0) return StopIteration();
    (void)self.setFieldValue(String("count"), Integer(left - 1));
    return Integer(left);
}

void fill_countdown(class_builder_base& b) {
    b.module(String(module_name));
    b.entry(entry_tag::fields, {field_entry(String("count"), Integer::getClass())});
    b.entry(entry_tag::interface_methods, {I_Iterator_Generic::getClass(), method("next", make_closure(countdown_next))});
}
class_accessor g_countdown{"Countdown", fill_countdown};

Any launch_iter(Any const& self) { return make_countdown(count_of(self)); }

void fill_launch(class_builder_base& b) {
    b.module(String(module_name));
    b.entry(entry_tag::fields, {field_entry(String("count"), Integer::getClass())});
    b.entry(entry_tag::interface_methods, {I_Iterable_Generic::getClass(), method("iter", make_closure(launch_iter))});
}
class_accessor g_launch{"Launch", fill_launch};

// ---- classes in no module -----------------------------------------------------

Any sum_arguments(Any const&, List const& args) {
    std::int64_t total = 0;
    for (Any const& a : args.copyItems())
        if (auto n = Integer::cast(a)) total += n.value().value();
    return Integer(total);
}

void fill_free_callable(class_builder_base& b) {
    b.entry(entry_tag::interface_methods, {I_Callable_Generic::getClass(), method("call", make_closure(sum_arguments), "args")});
}
class_accessor g_free_callable{"FreeCallable", fill_free_callable};
void fill_free_plain(class_builder_base&) {}
class_accessor g_free_plain{"FreePlain", fill_free_plain};

Any with_count(Class_Generic const& cls, std::int64_t count) {
    Any instance = cls.allocateInstance();
    (void)instance.setFieldValue(String("count"), Integer(count));
    return instance;
}

} // namespace

Class_Generic gauge_class() { return g_gauge(); }
Class_Generic countdown_class() { return g_countdown(); }

Any make_gauge(char const* label, std::int64_t count) {
    Any gauge = with_count(gauge_class(), count);
    (void)gauge.setFieldValue(String("label"), String(label));
    return gauge;
}
Any make_countdown(std::int64_t from) { return with_count(countdown_class(), from); }
Any make_launch(std::int64_t from) { return with_count(g_launch(), from); }
Any make_free_callable() { return g_free_callable().allocateInstance(); }
Any make_free_plain() { return g_free_plain().allocateInstance(); }

} // namespace tesk::cpython::testing
