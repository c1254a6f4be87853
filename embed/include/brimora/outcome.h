// What an evaluation gives: a host value, or an Error.
#pragma once

#include "brimora/export.h"

#include <tesk/tesk.h>

#include <cstdint>
#include <optional>
#include <string>
#include <type_traits>

namespace brimora {

// The result of an evaluation or of a call into the extension: a value (the
// block's `return`, the expression's value; None when there is none) or an
// Error. A Python exception is an Error with the Python message; when
// Python gives a position (a syntax error, an exception raised in the
// caller's code) it carries the line and column of the caller's code,
// counted from 1.
class BRIMORA_EMBED_API Outcome {
public:
    explicit Outcome(tesk::Any result);

    // Whether the evaluation succeeded.
    bool ok() const { return !result_.isError(); }
    explicit operator bool() const { return ok(); }

    // The value as the host holds it (an Error when it failed).
    tesk::Any const& value() const { return result_; }

    // The value as T when it is one: a host type (tesk::Integer,
    // tesk::String, tesk::HashMap ...), or one of std::int64_t, double (an
    // integer too), bool and std::string (UTF-8). Nothing when it failed or
    // is another type.
    template <class T> std::optional<T> get() const;

    // The Error; holds nothing when the evaluation succeeded.
    tesk::Error error() const;
    // The error's message without surrounding blanks; empty on success.
    std::string message() const;
    // Where in the caller's code the error is, when Python says.
    std::optional<std::int64_t> line() const;
    std::optional<std::int64_t> column() const;

private:
    tesk::Any result_;
};

template <class T> std::optional<T> Outcome::get() const {
    if constexpr (std::is_same_v<T, std::int64_t>) {
        if (auto v = tesk::Integer::cast(result_)) return v.value().value();
    } else if constexpr (std::is_same_v<T, double>) {
        if (auto v = tesk::Float::cast(result_)) return v.value().value();
        if (auto v = tesk::Integer::cast(result_)) return static_cast<double>(v.value().value());
    } else if constexpr (std::is_same_v<T, bool>) {
        if (auto v = tesk::Boolean::cast(result_)) return v.value().value();
    } else if constexpr (std::is_same_v<T, std::string>) {
        if (auto v = tesk::String::cast(result_)) return v.value().toUtf8();
    } else {
        static_assert(std::is_base_of_v<tesk::Any, T>, "get<T>: a host type, std::int64_t, double, bool or std::string");
        if (auto v = T::cast(result_)) return v.value();
    }
    return std::nullopt;
}

} // namespace brimora
