// Typed wrappers: host callables that bind a C++ function pointer.
//
// The wrapper deduces parameter and result types, casts each argument in
// order (direct cast, the cast of the argument's prototype, passing an error
// argument through as the result, the coercion of the parameter class, else
// BadArgument) and boxes the result. No heap allocation happens per call.
#pragma once

#include "tesk/class.h"

#include <cstdint>
#include <optional>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>

namespace tesk {
namespace internal {

template <class T> struct is_union : std::false_type {};
template <class... Ts> struct is_union<Union<Ts...>> : std::true_type {};
template <class T> struct union_first;
template <class T, class... Ts> struct union_first<Union<T, Ts...>> {
    using type = T;
};

// The failure of an argument cast: the error argument itself when it is one,
// else BadArgument naming the parameter class.
TESK_API Any argument_failure(Any const& argument, Class_Generic const& parameterClass);
// "Wrong number of arguments: expected {}, got {}."
TESK_API Any arity_error(std::size_t expected, std::size_t given);
TESK_API Type type_of_integer();
TESK_API Type type_of_float();
TESK_API Type type_of_boolean();
TESK_API Type type_of_string();

// Casting one argument to a handle type T: returns false and sets `failure`
// when it does not cast.
template <class T> bool cast_handle(Any const& in, std::optional<T>& out, Any& failure) {
    if (T::test(in)) {
        out.emplace(T::unsafe(in));
        return true;
    }
    Kind k = in.kind();
    if (k == Kind::Computed || k == Kind::Weak || k == Kind::External) {
        Any proto = unwrap(in);
        if (T::test(proto)) {
            out.emplace(T::unsafe(proto));
            return true;
        }
    }
    if (!in.isError()) {
        Any coerced = T::getClass().coerce(in);
        if (T::test(coerced)) {
            out.emplace(T::unsafe(coerced));
            return true;
        }
    }
    failure = argument_failure(in, T::getClass());
    return false;
}

template <class D, class = void> struct param_traits;

// Any: passed by reference, no copy.
template <> struct param_traits<Any> {
    using holder = Any const*;
    static Type type() { return Type::untyped(); }
    static bool convert(Any const& in, holder& h, Any&) {
        h = &in;
        return true;
    }
    static Any const& get(holder const& h) { return *h; }
};

// Typed handles.
template <class T>
struct param_traits<T, std::enable_if_t<std::is_base_of_v<Any, T> && !std::is_same_v<T, Any> && !is_union<T>::value>> {
    using holder = std::optional<T>;
    static Type type() { return T::getClass(); }
    static bool convert(Any const& in, holder& h, Any& failure) { return cast_handle<T>(in, h, failure); }
    static T const& get(holder const& h) { return *h; }
};

// Union<T, ...>: none passes as none, anything else casts to T.
template <class U> struct param_traits<U, std::enable_if_t<is_union<U>::value>> {
    using T = typename union_first<U>::type;
    using holder = std::optional<U>;
    static Type type() { return param_traits<T>::type(); }
    static bool convert(Any const& in, holder& h, Any& failure) {
        if (in.isNone()) {
            h.emplace();
            return true;
        }
        if constexpr (std::is_same_v<T, Any>) {
            h.emplace(in);
            return true;
        } else {
            std::optional<T> t;
            if (!cast_handle<T>(in, t, failure)) return false;
            h.emplace(*t);
            return true;
        }
    }
    static U const& get(holder const& h) { return *h; }
};

TESK_API bool cast_int32(Any const& in, std::int32_t& out, Any& failure);
TESK_API bool cast_int64(Any const& in, std::int64_t& out, Any& failure);
TESK_API bool cast_double(Any const& in, double& out, Any& failure);
TESK_API bool cast_bool(Any const& in, bool& out, Any& failure);

template <class I> struct param_traits<I, std::enable_if_t<std::is_integral_v<I> && !std::is_same_v<I, bool>>> {
    using holder = I;
    static Type type() { return type_of_integer(); }
    static bool convert(Any const& in, holder& h, Any& failure) {
        if constexpr (sizeof(I) <= 4) {
            std::int32_t v;
            if (!cast_int32(in, v, failure)) return false;
            h = static_cast<I>(v);
        } else {
            std::int64_t v;
            if (!cast_int64(in, v, failure)) return false;
            h = static_cast<I>(v);
        }
        return true;
    }
    static I get(holder h) { return h; }
};
template <> struct param_traits<bool> {
    using holder = bool;
    static Type type() { return type_of_boolean(); }
    static bool convert(Any const& in, holder& h, Any& failure) { return cast_bool(in, h, failure); }
    static bool get(holder h) { return h; }
};
template <> struct param_traits<double> {
    using holder = double;
    static Type type() { return type_of_float(); }
    static bool convert(Any const& in, holder& h, Any& failure) { return cast_double(in, h, failure); }
    static double get(holder h) { return h; }
};
template <> struct param_traits<std::string> {
    using holder = std::string;
    static Type type() { return type_of_string(); }
    static bool convert(Any const& in, holder& h, Any& failure) {
        std::optional<String> s;
        if (!cast_handle<String>(in, s, failure)) return false;
        h = s->toUtf8();
        return true;
    }
    static std::string const& get(holder const& h) { return h; }
};

// The host type of a C++ result type.
template <class R> Type result_type() {
    if constexpr (std::is_void_v<R>) return Type::none();
    else if constexpr (is_union<R>::value) {
        using T = typename union_first<R>::type;
        if constexpr (std::is_same_v<T, Any>) return Type::untyped();
        else return T::getClass();
    } else if constexpr (std::is_same_v<R, Any>) return Type::untyped();
    else if constexpr (std::is_base_of_v<Any, R>) return R::getClass();
    else if constexpr (std::is_same_v<R, bool>) return type_of_boolean();
    else if constexpr (std::is_integral_v<R>) return type_of_integer();
    else if constexpr (std::is_floating_point_v<R>) return type_of_float();
    else return type_of_string();
}

template <class R> Any box_result(R&& r) {
    using D = std::decay_t<R>;
    if constexpr (std::is_base_of_v<Any, D>) return Any(std::forward<R>(r));
    else if constexpr (std::is_same_v<D, bool>) return Boolean(r);
    else if constexpr (std::is_integral_v<D> && std::is_unsigned_v<D> && sizeof(D) == 8) return Integer::fromUnsigned(r);
    else if constexpr (std::is_integral_v<D>) return Integer(static_cast<std::int64_t>(r));
    else if constexpr (std::is_floating_point_v<D>) return Float(static_cast<double>(r));
    else return String(std::string(r));
}

TESK_API Signature make_signature(Type const& result, std::vector<Type> const& parameters);

// The bound function's shape: for a member function of a handle class, the
// handle is the first parameter.
template <class F> struct function_shape;
template <class R, class... A> struct function_shape<R (*)(A...)> {
    using result = R;
    using params = std::tuple<std::decay_t<A>...>;
    template <class... V> static R call(R (*f)(A...), V&&... v) { return f(std::forward<V>(v)...); }
};
template <class R, class C, class... A> struct function_shape<R (C::*)(A...) const> {
    using result = R;
    using params = std::tuple<C, std::decay_t<A>...>;
    template <class S, class... V> static R call(R (C::*f)(A...) const, S&& self, V&&... v) {
        return (self.*f)(std::forward<V>(v)...);
    }
};

template <class F> class object_value_closure final : public object_value_callable {
    using shape = function_shape<F>;
    using params = typename shape::params;
    static constexpr std::size_t arity = std::tuple_size_v<params>;
    template <std::size_t I> using param = param_traits<std::tuple_element_t<I, params>>;

public:
    explicit object_value_closure(F f) : object_value_callable(signature_of()), function_(f) {}

    Any invoke(std::span<Any const> args) const override {
        if (args.size() != arity) return arity_error(arity, args.size());
        return call(args, std::make_index_sequence<arity>{});
    }
    bool same_as(object_value_callable const& other) const override {
        auto* o = dynamic_cast<object_value_closure const*>(&other);
        return o != nullptr && o->function_ == function_;
    }
    Any clone() const override { return decorated(new object_value_closure(function_)); }

private:
    static Signature signature_of() {
        return sig(std::make_index_sequence<arity>{});
    }
    template <std::size_t... I> static Signature sig(std::index_sequence<I...>) {
        return make_signature(result_type<typename shape::result>(), {param<I>::type()...});
    }
    template <std::size_t... I> Any call(std::span<Any const> args, std::index_sequence<I...>) const {
        (void)args;
        std::tuple<typename param<I>::holder...> held;
        Any failure;
        bool ok = (param<I>::convert(args[I], std::get<I>(held), failure) && ...);
        if (!ok) return failure;
        if constexpr (std::is_void_v<typename shape::result>) {
            shape::call(function_, param<I>::get(std::get<I>(held))...);
            return Any();
        } else {
            return box_result(shape::call(function_, param<I>::get(std::get<I>(held))...));
        }
    }

    F function_;
};

} // namespace internal

// A host callable over a function pointer (or a member function of a handle
// class, whose handle becomes the first parameter).
template <class F> I_Callable_Generic make_closure(F f) {
    return I_Callable_Generic::unsafe(Any::adopt(new internal::object_value_closure<F>(f)));
}

} // namespace tesk
