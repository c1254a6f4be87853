// What the typed wrappers need from the runtime: argument failures, arity
// errors, the types of C++ scalars and the scalar casts.
#include "class_internal.h"
#include "value_objects.h"

#include "tesk/typed.h"

#include <limits>

namespace tesk::internal {

Any argument_failure(Any const& argument, Class_Generic const& parameterClass) {
    if (argument.isError()) return argument;
    return BadArgument(parameterClass.name(), argument);
}

Any arity_error(std::size_t expected, std::size_t given) {
    return Error(String("Wrong number of arguments: expected {}, got {}.")
                     .arg(static_cast<std::int64_t>(expected), static_cast<std::int64_t>(given)));
}

Type type_of_integer() { return Integer::getClass(); }
Type type_of_float() { return Float::getClass(); }
Type type_of_boolean() { return Boolean::getClass(); }
Type type_of_string() { return String::getClass(); }

namespace {

// The argument as a value of handle type T, in the order every parameter
// cast follows: the value itself, its prototype, then the coercion of T's
// class. An error argument stops at once (it becomes the call's result).
template <class T> bool scalar_source(Any const& in, Any& out) {
    if (T::test(in)) {
        out = in;
        return true;
    }
    Kind k = in.kind();
    if (k == Kind::Computed || k == Kind::Weak || k == Kind::External) {
        out = unwrap(in);
        if (T::test(out)) return true;
    }
    if (in.isError()) return false;
    out = T::getClass().coerce(in);
    return T::test(out);
}

// Whether an integer record's value fits I, and the value.
template <class I> bool integer_fits(object_value_integer const& r, I& out) noexcept {
    bool fits = r.is_unsigned ? r.bits <= static_cast<std::uint64_t>(std::numeric_limits<I>::max())
                              : static_cast<std::int64_t>(r.bits) >= std::numeric_limits<I>::min() &&
                                    static_cast<std::int64_t>(r.bits) <= std::numeric_limits<I>::max();
    if (fits) out = static_cast<I>(static_cast<std::int64_t>(r.bits));
    return fits;
}

template <class I> bool cast_integer(Any const& in, I& out, Any& failure, char const* typeName) {
    // The common case reads the record in place: no reference is taken.
    Any v;
    Any const* source = &in;
    if (!Integer::test(in)) {
        if (!scalar_source<Integer>(in, v)) {
            failure = argument_failure(in, Integer::getClass());
            return false;
        }
        source = &v;
    }
    if (integer_fits(static_cast<object_value_integer const&>(*source->get()), out)) return true;
    failure = BadArgument(String(typeName), in);
    return false;
}

} // namespace

bool cast_int32(Any const& in, std::int32_t& out, Any& failure) { return cast_integer(in, out, failure, "Int32"); }
bool cast_int64(Any const& in, std::int64_t& out, Any& failure) { return cast_integer(in, out, failure, "Int64"); }

bool cast_double(Any const& in, double& out, Any& failure) {
    if (Float::test(in)) {
        out = static_cast<object_value_float const&>(*in.get()).value;
        return true;
    }
    // An integer (or an integer prototype) is a number too: it widens.
    Kind k = in.kind();
    Any number = k == Kind::Computed || k == Kind::Weak || k == Kind::External ? unwrap(in) : in;
    if (Integer::test(number)) {
        auto const& r = static_cast<object_value_integer const&>(*number.get());
        out = r.is_unsigned ? static_cast<double>(r.bits) : static_cast<double>(static_cast<std::int64_t>(r.bits));
        return true;
    }
    Any v;
    if (!scalar_source<Float>(in, v)) {
        failure = argument_failure(in, Float::getClass());
        return false;
    }
    out = Float::unsafe(v).value();
    return true;
}

bool cast_bool(Any const& in, bool& out, Any& failure) {
    if (Boolean::test(in)) {
        out = static_cast<object_value_boolean const&>(*in.get()).value;
        return true;
    }
    Any v;
    if (!scalar_source<Boolean>(in, v)) {
        failure = argument_failure(in, Boolean::getClass());
        return false;
    }
    out = Boolean::unsafe(v).value();
    return true;
}

} // namespace tesk::internal
