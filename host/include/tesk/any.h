// Any: the counted handle to a host value, and the result unions built on it.
#pragma once

#include "tesk/object.h"

#include <cstddef>
#include <functional>
#include <span>
#include <tuple>
#include <type_traits>
#include <utility>

namespace tesk {

class String;
class Error;
class Class_Generic;
class I_Callable_Generic;
class Property;
class meta_method_untyped;
template <class... Ts> class Union;
class None;
class Any;

namespace internal {
struct unchecked_t {
    explicit unchecked_t() = default;
};
inline constexpr unchecked_t unchecked{};
template <class T> Union<T, None> checked_cast(Any const& v);
} // namespace internal

// Every typed handle (String, Integer, List, ...) is an Any with a claim about
// what it holds. `test` checks the claim, `unsafe` makes the handle without a
// check, `cast` checks (after resolving deferred and weak values) and gives
// Union<T, None>, and `getClass` gives the host class.
#define TESK_HANDLE(Self, Base)                                                                \
public:                                                                                        \
    Self(::tesk::internal::unchecked_t, ::tesk::Any const& v) : Base(::tesk::internal::unchecked, v) {} \
    static Self unsafe(::tesk::Any const& v) { return Self(::tesk::internal::unchecked, v); }  \
    static ::tesk::Union<Self, ::tesk::None> cast(::tesk::Any const& v) {                      \
        return ::tesk::internal::checked_cast<Self>(v);                                         \
    }                                                                                          \
    static ::tesk::Class_Generic getClass();

// A counted handle to a host value; empty means none. Copies share the value.
class TESK_API Any {
public:
    Any() noexcept = default;
    Any(std::nullptr_t) noexcept {}
    Any(internal::unchecked_t, Any const& v) noexcept : Any(v) {}
    Any(Any const& other) noexcept : p_(other.p_) {
        if (p_) p_->retain();
    }
    Any(Any&& other) noexcept : p_(std::exchange(other.p_, nullptr)) {}
    Any& operator=(Any const& other) noexcept {
        Any(other).swap(*this);
        return *this;
    }
    Any& operator=(Any&& other) noexcept {
        Any(std::move(other)).swap(*this);
        return *this;
    }
    ~Any() {
        if (p_) p_->release();
    }

    // Takes over the one reference that a freshly created object carries.
    static Any adopt(internal::object_value const* p) noexcept {
        Any a;
        a.p_ = p;
        return a;
    }
    // Adds a reference to an object held elsewhere.
    static Any borrow(internal::object_value const* p) noexcept {
        if (p) p->retain();
        return adopt(p);
    }

    void swap(Any& other) noexcept { std::swap(p_, other.p_); }
    void reset() noexcept { Any().swap(*this); }

    internal::object_value const* get() const noexcept { return p_; }
    Kind kind() const noexcept { return p_ ? p_->kind() : Kind::None; }
    bool isNone() const noexcept { return p_ == nullptr || p_->kind() == Kind::None; }
    bool hasValue() const noexcept { return !isNone(); }
    bool isUndefined() const noexcept { return kind() == Kind::Undefined; }
    bool isError() const noexcept;
    bool isComputed() const noexcept { return kind() == Kind::Computed; }
    // The held error; an empty Error when the value is not one.
    Error error() const;

    template <class T> Union<T, None> cast() const;
    template <class T> bool is() const { return T::test(*this); }

    // Identity: the same object.
    bool isSame(Any const& other) const noexcept { return p_ == other.p_; }

    // Members, looked up by name as method_of/property_of do.
    Any boundMethod(String const& name) const;      // bound callable, or none
    Any propertyValue(String const& name) const;    // value, or an Error
    Any setPropertyValue(String const& name, Any const& value) const; // none or Error
    Any fieldValue(String const& name) const;       // value, or an Error
    Any setFieldValue(String const& name, Any const& value) const; // none or Error
    // Looks up the method `name` and calls it with this value as receiver.
    Any callMethod(String const& name, std::span<Any const> args = {}) const;

    // Host display text, the same as display(*this).
    String toDisplayString() const;

    // Universal methods: every value answers them; a class overrides one by
    // declaring a method of the same name.
    static const meta_method_untyped $__init__;
    static const meta_method_untyped $__isSame__;
    static const meta_method_untyped $__add__;
    static const meta_method_untyped $__mul__;
    static const meta_method_untyped $__imul__;
    static const meta_method_untyped $__iadd__;
    static const meta_method_untyped $__sub__;
    static const meta_method_untyped $__isub__;
    static const meta_method_untyped $__div__;
    static const meta_method_untyped $__idiv__;
    static const meta_method_untyped $__and__;
    static const meta_method_untyped $__or__;
    static const meta_method_untyped $__xor__;
    static const meta_method_untyped $__not__;
    static const meta_method_untyped $__hash__;
    static const meta_method_untyped $__property__;
    static const meta_method_untyped $__propertyValue__;
    static const meta_method_untyped $__setPropertyValue__;
    static const meta_method_untyped $__removeProperty__;
    static const meta_method_untyped $__removeMethod__;
    static const meta_method_untyped $__ownProperty__;
    static const meta_method_untyped $__ownProperties__;
    static const meta_method_untyped $__ownMethods__;
    static const meta_method_untyped $__ownMethod__;
    static const meta_method_untyped $__method__;
    static const meta_method_untyped $__insertProperty__;
    static const meta_method_untyped $__insertMethod__;
    static const meta_method_untyped $__display__;
    static const meta_method_untyped $__compare__;

private:
    internal::object_value const* p_ = nullptr;
};

// A union of typed handles over one Any. Union<T, None> is what every cast
// gives; Union<T, Computed<T>, Error> is what every host operation returns.
template <class... Ts> class Union : public Any {
public:
    Union() noexcept = default;
    Union(Any const& v) noexcept : Any(v) {}
    Union(Any&& v) noexcept : Any(std::move(v)) {}

    template <class T> bool is() const { return T::test(*this); }
    // The value as T without a check; use after is<T>().
    template <class T> T as() const { return T::unsafe(*this); }
    template <class T> Union<T, None> get() const { return T::cast(*this); }

    // For Union<T, None>: whether a T is held.
    bool has_value() const { return first_type::test(*this); }
    explicit operator bool() const { return has_value(); }
    auto value() const { return first_type::unsafe(*this); }

private:
    using first_type = std::tuple_element_t<0, std::tuple<Ts...>>;
};

// The none type: a handle that never holds a value.
class TESK_API None : public Any {
    TESK_HANDLE(None, Any)
public:
    None() noexcept = default;
    static bool test(Any const& v) noexcept { return v.isNone(); }
};

// The undefined value (Python's NotImplemented).
class TESK_API Undefined : public Any {
    TESK_HANDLE(Undefined, Any)
public:
    Undefined(); // the one undefined value
    static bool test(Any const& v) noexcept { return v.isUndefined(); }
};

// Untyped values are plain Any values; `Type::untyped()` names their type.
using Untyped = Any;

// A deferred value: computed on first resolution, then kept.
class TESK_API Computed_Generic : public Any {
    TESK_HANDLE(Computed_Generic, Any)
public:
    static bool test(Any const& v) noexcept { return v.kind() == Kind::Computed; }
    // A deferred value whose producer runs once, on first resolution.
    static Computed_Generic make(std::function<Any()> producer);
    // Runs the producer (once) and gives its result, resolving nested deferred values.
    Any resolve() const;
};

template <class T> class Computed : public Computed_Generic {
    TESK_HANDLE(Computed, Computed_Generic)
public:
    static bool test(Any const& v) noexcept { return Computed_Generic::test(v); }
};

// What every host operation returns: a value, a deferred value or an error.
template <class T> using Result = Union<T, Computed<T>, Error>;

namespace internal {
// Resolves deferred values (chains of them) into their final value or error.
TESK_API Any result_unwrap_lazy(Any const& v);
// Resolves deferred values, weak references and lazily loaded values.
TESK_API Any unwrap(Any const& v);
} // namespace internal

template <class T> Union<T, None> Any::cast() const { return T::cast(*this); }

namespace internal {
template <class T> Union<T, None> checked_cast(Any const& v) {
    if (T::test(v)) return Union<T, None>(v);
    Kind k = v.kind();
    if (k == Kind::Computed || k == Kind::Weak || k == Kind::External) {
        Any u = unwrap(v);
        if (T::test(u)) return Union<T, None>(u);
    }
    return {};
}
} // namespace internal

} // namespace tesk
