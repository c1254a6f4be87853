// Signatures and parameters: immutable descriptions of what a callable takes.
#include "class_internal.h"

#include "tesk/language.h"
#include "tesk/typed.h"

using namespace std::string_view_literals;

namespace tesk {
namespace internal {
namespace {

struct object_value_parameter final : object_value {
    object_value_parameter(String n, Type t)
        : object_value(Kind::Parameter, builtin_class(builtin::parameter)), name(std::move(n)), type(std::move(t)) {}
    String name;
    Type type;
};

struct object_value_signature final : object_value {
    object_value_signature(Type r, std::vector<Parameter> p, std::vector<Any> d, bool v)
        : object_value(Kind::Signature, builtin_class(builtin::signature)), result(std::move(r)),
          parameters(std::move(p)), defaults(std::move(d)), variadic(v) {
        if (defaults.size() > parameters.size()) defaults.erase(defaults.begin(), defaults.end() - parameters.size());
    }
    Type result;
    std::vector<Parameter> parameters;
    std::vector<Any> defaults; // for the last parameters
    bool variadic;
};

object_value_parameter const& parameter_record(Parameter const& p) {
    return static_cast<object_value_parameter const&>(*p.get());
}
object_value_signature const& signature_record(Signature const& s) {
    return static_cast<object_value_signature const&>(*s.get());
}

// How a default value is shown: as Python source where it has one.
String default_text(Any const& value) {
    Any code = PythonLanguage::toCode(value);
    if (String::test(code)) return String::unsafe(code);
    return display(value);
}

} // namespace

Signature make_signature(Type const& result, std::vector<Type> const& parameters) {
    std::vector<Parameter> params;
    params.reserve(parameters.size());
    for (std::size_t i = 0; i < parameters.size(); ++i)
        params.emplace_back(String("arg") + String::number(static_cast<std::int64_t>(i)), parameters[i]);
    return Signature(result, std::move(params));
}

} // namespace internal

Parameter::Parameter(String const& name, Type const& type)
    : Any(Any::adopt(new internal::object_value_parameter(name, type))) {}
String Parameter::name() const { return internal::parameter_record(*this).name; }
Type Parameter::type() const { return internal::parameter_record(*this).type; }

Signature::Signature(Type const& resultType, std::vector<Parameter> parameters, std::vector<Any> defaults,
                     bool variadic)
    : Any(Any::adopt(
          new internal::object_value_signature(resultType, std::move(parameters), std::move(defaults), variadic))) {}

Type Signature::resultType() const { return internal::signature_record(*this).result; }
std::vector<Parameter> const& Signature::parameters() const { return internal::signature_record(*this).parameters; }
std::vector<Any> const& Signature::defaults() const { return internal::signature_record(*this).defaults; }
int Signature::parameterCount() const { return static_cast<int>(parameters().size()); }
int Signature::requiredParameterCount() const { return static_cast<int>(parameters().size() - defaults().size()); }
bool Signature::hasVariadicParameters() const { return internal::signature_record(*this).variadic; }

String Signature::toString(unsigned flags, String const&) const {
    auto const& r = internal::signature_record(*this);
    std::size_t first_default = r.parameters.size() - r.defaults.size();
    string_builder text;
    text << '(';
    for (std::size_t i = 0; i < r.parameters.size(); ++i) {
        if (i > 0) text << ", "sv;
        if (r.variadic && i + 1 == r.parameters.size()) text << '*';
        text << r.parameters[i].name();
        Type type = r.parameters[i].type();
        if ((flags & with_types) != 0 && !type.isUntyped()) text << ": "sv << type.name();
        if (i >= first_default) text << " = "sv << internal::default_text(r.defaults[i - first_default]);
    }
    text << ')';
    if ((flags & with_result) != 0) text << " -> "sv << unwrapped_type(r.result).name();
    return text.toString();
}

Signature Signature::renamed(String const& names, std::vector<Any> defaults) const {
    auto const& r = internal::signature_record(*this);
    std::vector<Parameter> params = r.parameters;
    std::vector<String> given;
    for (String const& piece : names.split(',')) {
        String n = piece.trimmed();
        if (!n.isEmpty()) given.push_back(n);
    }
    // The names describe the last parameters: a method's text leaves out its receiver.
    std::size_t count = std::min(given.size(), params.size());
    std::size_t offset = params.size() - count;
    for (std::size_t i = 0; i < count; ++i)
        params[offset + i] = Parameter(given[given.size() - count + i], params[offset + i].type());
    return Signature(r.result, std::move(params), std::move(defaults), r.variadic);
}

} // namespace tesk
