// Callables: signatures, the callable object base, and the generic handle
// through which any callable value (native or a class implementing
// I_Callable) is called.
#pragma once

#include "tesk/error.h"

#include <functional>
#include <vector>

namespace tesk {

class List;
class HashMap;
class Type;

// A parameter: name and type.
class TESK_API Parameter : public Any {
    TESK_HANDLE(Parameter, Any)
public:
    Parameter(String const& name, Type const& type);
    static bool test(Any const& v) noexcept { return v.kind() == Kind::Parameter; }
    String name() const;
    Type type() const;
};

// Parameters, result type and defaults for the last parameters. A signature
// is immutable once made.
class TESK_API Signature : public Any {
    TESK_HANDLE(Signature, Any)
public:
    Signature(Type const& resultType, std::vector<Parameter> parameters, std::vector<Any> defaults = {},
              bool variadic = false);
    static bool test(Any const& v) noexcept { return v.kind() == Kind::Signature; }

    Type resultType() const;
    std::vector<Parameter> const& parameters() const;
    std::vector<Any> const& defaults() const;
    int parameterCount() const;
    int requiredParameterCount() const; // parameters without a default
    bool hasVariadicParameters() const;

    // Text of the signature. Flags: with_types shows parameter types,
    // with_result shows " -> Result"; 0x21 gives "(a: Integer, b: String = 'x') -> Float".
    static constexpr unsigned with_types = 0x1;
    static constexpr unsigned with_result = 0x20;
    String toString(unsigned flags = with_types | with_result, String const& language = String()) const;

    // A copy with other parameter names (from a comma-separated list such as
    // "code, scope") and defaults; types are kept.
    Signature renamed(String const& names, std::vector<Any> defaults) const;
};

namespace internal {

// Base of every native callable. Arguments are the full argument list: for a
// method that is not independent, the receiver comes first.
class TESK_API object_value_callable : public object_value {
public:
    explicit object_value_callable(Signature signature);
    ~object_value_callable() override;

    virtual Any invoke(std::span<Any const> args) const = 0;
    // Two callables are the same when they do the same (same type, same target).
    virtual bool same_as(object_value_callable const& other) const { return this == &other; }
    // A new callable that does the same, with the same decoration. Callables
    // are immutable once built (and possibly shared): builders decorate a
    // clone, never the callable they were given.
    virtual Any clone() const = 0;

    String name;
    String doc;
    Signature signature;
    std::atomic<bool> independent{false};

protected:
    // Gives `copy` (a fresh clone) this callable's decoration and adopts it.
    Any decorated(object_value_callable* copy) const;
};

// A callable over a std::function.
TESK_API Any make_function_callable(std::function<Any(std::span<Any const>)> f, Signature signature,
                                    String const& name = String());
// A callable that returns one value and takes no argument.
TESK_API Any make_constant_callable(Any const& value);
// Whether a callable was made by make_constant_callable, and its value.
TESK_API Union<Any, None> constant_callable_value(Any const& callable);
// A callable that fails with "Abstract function: {name}." when called.
TESK_API Any create_abstract_function(Signature signature);
// Sets name, parameter names (comma-separated text), doc and defaults of a
// callable that nobody else holds yet (a new one, or a clone).
TESK_API void decorate(Any const& callable, String const& name, String const& signatureText, String const& doc,
                       std::vector<Any> defaults);

} // namespace internal

// Any callable value: a native callable or an instance of a class that
// implements I_Callable (its method "call" takes the argument sequence).
class TESK_API I_Callable_Generic : public Any {
    TESK_HANDLE(I_Callable_Generic, Any)
public:
    static bool test(Any const& v) noexcept;

    // Calls with the full argument list (receiver first for methods).
    Any invoke(std::span<Any const> args) const;
    Any operator()(std::initializer_list<Any> args) const { return invoke({args.begin(), args.size()}); }
    Any callWith(List const& args) const;
    // Maps names to parameters; missing ones come from defaults; an unknown
    // name or a missing required one is an Error.
    Any callWithNamed(HashMap const& named) const;
    // A callable with `instance` bound as the first argument.
    I_Callable_Generic bindInstance(Any const& instance) const;

    String name() const;
    String doc() const;
    Union<Signature, Error> signature() const;
    Type resultType() const;
    bool isIndependent() const;
    void setIndependent(bool v) const;
};

template <class T> class I_Callable : public I_Callable_Generic {
    TESK_HANDLE(I_Callable, I_Callable_Generic)
public:
    static bool test(Any const& v) noexcept { return I_Callable_Generic::test(v); }
};

} // namespace tesk
