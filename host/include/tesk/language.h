// Scripting languages as the host sees them, and the evaluation scope.
#pragma once

#include "tesk/containers.h"

namespace tesk {

// What code runs with: the caller's locals and globals, the variables written
// back after the run (outLocals) and the value of `self`.
class TESK_API EvaluationScope : public Any {
    TESK_HANDLE(EvaluationScope, Any)
public:
    EvaluationScope(Any const& self, Union<I_Map<String, Any>, None> const& locals,
                    Union<I_Map<String, Any>, None> const& globals,
                    Union<I_MutableMap<String, Any>, None> const& outLocals);
    // A scope whose locals hold the one entry name = value.
    EvaluationScope(String const& name, Any const& value);
    static bool test(Any const& v) noexcept;

    Any self() const;
    Union<I_Map<String, Any>, None> locals() const;
    Union<I_Map<String, Any>, None> globals() const;
    Union<I_MutableMap<String, Any>, None> outLocals() const;
};

// A scripting language. Implementations are classes with I_Language (or a
// language interface derived from it) among their parents.
class TESK_API I_Language : public Any {
    TESK_HANDLE(I_Language, Any)
public:
    static const meta_method_untyped $evaluate;
    static const meta_method_untyped $evaluateExpression;
    static const meta_method_untyped $resolve;
    static const meta_method_untyped $toCode;
    static const meta_property_untyped $$canEvaluate;
    static const meta_property_untyped $$instance;
    static bool test(Any const& v) noexcept;
};

// The Python language interface, with the host's own rendering of values as
// Python source.
class TESK_API PythonLanguage : public I_Language {
    TESK_HANDLE(PythonLanguage, I_Language)
public:
    static const meta_method_untyped $evaluateInSandbox;
    static const meta_method_untyped $evaluateExpressionInSandbox;
    static bool test(Any const& v) noexcept;

    // None, True, 42, 3.5, 'text' (escaped), b'..', [..], {..: ..}, (..,),
    // Decimal('1.10'), datetime.date(2024, 1, 2), ... An Error for a value
    // that has no source form.
    static Result<String> toCode(Any const& value);
};

} // namespace tesk
