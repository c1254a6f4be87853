// Errors: values that host operations return instead of throwing.
#include "builtin_classes.h"
#include "error_object.h"

#include <exception>
#include <mutex>

namespace tesk {
namespace internal {

object_value* make_error_instance(object_value_class const* cls) { return new object_value_error(cls); }

namespace {

object_value_error& mutable_error(Any const& e) {
    return const_cast<object_value_error&>(*error_record(e));
}

// A new error of a built-in error class.
Any new_error(builtin cls, String const& message) {
    Any e = object_value_instance::create(builtin_class(cls));
    mutable_error(e).message = message;
    return e;
}

bool is_instance_of(Any const& v, builtin cls) noexcept {
    return v.kind() == Kind::Instance && v.get()->class_value()->is_ancestor(builtin_class(cls));
}

// Reads one part of the error under its lock; none when `e` holds no error.
template <class T> T read_part(Error const& e, T object_value_error::*part) {
    auto const* r = error_record(e);
    if (!r) return T();
    std::lock_guard guard(r->lock());
    return r->*part;
}
template <class T> void write_part(Error const& e, T object_value_error::*part, T const& v) {
    auto const* r = error_record(e);
    if (!r) return;
    std::lock_guard guard(r->lock());
    const_cast<object_value_error&>(*r).*part = v;
}

Union<Integer, None> position_part(EvaluationError const& e, Any object_value_error::*part) {
    return Union<Integer, None>(read_part(e, part));
}

} // namespace
} // namespace internal

using internal::builtin;
using internal::object_value_error;

Error::Error(String const& message) : Any(internal::new_error(builtin::error, message)) {}

bool Error::test(Any const& v) noexcept {
    return v.kind() == Kind::Instance && (v.get()->class_value()->traits() & traits::error) != 0;
}

Error Error::unknown() { return Error(String("Unknown error.")); }

Error Error::fromCurrentException() {
    try {
        throw;
    } catch (std::exception const& e) {
        return Error(String(e.what()));
    } catch (...) {
        return Error(String("Unknown C++ exception."));
    }
}

Error Error::ofClass(Class_Generic const& errorClass, String const& message) {
    if (!errorClass.hasValue() || (errorClass.traits() & traits::error) == 0 || errorClass.record()->is_interface())
        return Error(String("Not an error class: {}.").arg(errorClass.hasValue() ? errorClass.name() : String("None")));
    Error e = Error::unsafe(errorClass.allocateInstance());
    internal::write_part(e, &object_value_error::message, message);
    return e;
}

String Error::message() const { return internal::read_part(*this, &object_value_error::message); }
String Error::stack() const { return internal::read_part(*this, &object_value_error::stack); }
void Error::setStack(String const& stack) const { internal::write_part(*this, &object_value_error::stack, stack); }
Any Error::value() const { return internal::read_part(*this, &object_value_error::value); }
void Error::setValue(Any const& value) const { internal::write_part(*this, &object_value_error::value, value); }
Any Error::cause() const { return internal::read_part(*this, &object_value_error::cause); }
void Error::setCause(Any const& cause) const { internal::write_part(*this, &object_value_error::cause, cause); }

EvaluationError::EvaluationError(String const& message, Union<Integer, None> const& code,
                                 Union<Integer, None> const& line, Union<Integer, None> const& column,
                                 Union<Integer, None> const& length)
    : Error(internal::unchecked, internal::new_error(builtin::evaluation_error, message)) {
    auto& r = internal::mutable_error(*this);
    r.code = code;
    r.line = line;
    r.column = column;
    r.length = length;
}

bool EvaluationError::test(Any const& v) noexcept { return internal::is_instance_of(v, builtin::evaluation_error); }
Union<Integer, None> EvaluationError::code() const { return internal::position_part(*this, &object_value_error::code); }
Union<Integer, None> EvaluationError::line() const { return internal::position_part(*this, &object_value_error::line); }
Union<Integer, None> EvaluationError::column() const {
    return internal::position_part(*this, &object_value_error::column);
}
Union<Integer, None> EvaluationError::length() const {
    return internal::position_part(*this, &object_value_error::length);
}

StopIteration::StopIteration()
    : Error(internal::unchecked, internal::new_error(builtin::stop_iteration, String("Stop iteration."))) {}
bool StopIteration::test(Any const& v) noexcept { return internal::is_instance_of(v, builtin::stop_iteration); }

BadArgument::BadArgument(String const& typeName, Any const& value)
    : Error(internal::unchecked,
            internal::new_error(builtin::bad_argument,
                                String("Bad argument: expected {}, got {}.").arg(typeName, display(value)))) {}
bool BadArgument::test(Any const& v) noexcept { return internal::is_instance_of(v, builtin::bad_argument); }

Error error_method_not_found(String const& name, Any const& value) {
    return Error(String("The method is missing: {}, target object: {}.").arg(name, value));
}

Error result_error_cast_source(Any const& value, Class_Generic const& target) {
    return Error(String("Unable to cast {} to {}.").arg(value, target.name()));
}

} // namespace tesk
