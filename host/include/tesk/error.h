// Errors are values: host operations return them instead of throwing.
#pragma once

#include "tesk/values.h"

namespace tesk {

// An error: a message, a stack text, an attached value and a cause. Errors are
// class instances; classes derived from Error (StopIteration, BadArgument,
// EvaluationError, ones made at run time) make instances of themselves.
class TESK_API Error : public Any {
    TESK_HANDLE(Error, Any)
public:
    Error() = default; // holds nothing
    explicit Error(String const& message);
    static bool test(Any const& v) noexcept;
    static const meta_property_untyped $$message;

    // "Unknown error."
    static Error unknown();
    // Inside a catch block: the current C++ exception as an Error.
    static Error fromCurrentException();
    // A new instance of an error class (Error or a class derived from it).
    static Error ofClass(Class_Generic const& errorClass, String const& message);

    String message() const;
    String stack() const;
    void setStack(String const& stack) const;
    Any value() const;
    void setValue(Any const& value) const;
    Any cause() const;
    void setCause(Any const& cause) const;
};

// An error with a position in source text.
class TESK_API EvaluationError : public Error {
    TESK_HANDLE(EvaluationError, Error)
public:
    // `code` is free for the caller (an error code); line and column count from 1.
    EvaluationError(String const& message, Union<Integer, None> const& code, Union<Integer, None> const& line,
                    Union<Integer, None> const& column, Union<Integer, None> const& length);
    static bool test(Any const& v) noexcept;
    Union<Integer, None> code() const;
    Union<Integer, None> line() const;
    Union<Integer, None> column() const;
    Union<Integer, None> length() const;
};

// The end of an iteration.
class TESK_API StopIteration : public Error {
    TESK_HANDLE(StopIteration, Error)
public:
    StopIteration();
    static bool test(Any const& v) noexcept;
};

// An argument that does not cast to its parameter's type.
class TESK_API BadArgument : public Error {
    TESK_HANDLE(BadArgument, Error)
public:
    // "Bad argument: expected {type}, got {value}."
    BadArgument(String const& typeName, Any const& value);
    static bool test(Any const& v) noexcept;
};

// "The method is missing: {name}, target object: {value}."
TESK_API Error error_method_not_found(String const& name, Any const& value);
// "Unable to cast {value} to {class}."
TESK_API Error result_error_cast_source(Any const& value, Class_Generic const& target);

namespace flow {
// Keeps the error of a result so that code can test and return it early:
//   if (flow::BoundError e{r}) return e.error;
struct BoundError {
    explicit BoundError(Any const& result) {
        if (result.isError()) error = result.error();
    }
    explicit operator bool() const noexcept { return error.hasValue(); }
    Error error;
};
} // namespace flow

} // namespace tesk
