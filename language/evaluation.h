// Running Python code for the host.
#pragma once

#include "python/python_ref.h"

#include <tesk/tesk.h>

namespace tesk::cpython {

// Runs a statement block (the body of a function: `return` gives the result).
Result<Any> language_python_evaluate_method(Any const& self, String const& code,
                                            Union<I_Map<String, Any>, None> const& locals,
                                            Union<I_Map<String, Any>, None> const& globals,
                                            Union<I_MutableMap<String, Any>, None> const& outLocals);
// Evaluates one expression.
Result<Any> language_python_evaluate_expression(String const& code, Union<I_Map<String, Any>, None> const& locals,
                                                Union<I_Map<String, Any>, None> const& globals);
// A fixed script as a statement block, without and with a scope.
Result<Any> evaluate_statements(String const& code);
Result<Any> evaluate_statements_in_scope(String const& code, EvaluationScope const& scope);
// The names every evaluation starts from (host modules); a new dictionary.
PyObject* host_modules_dict();

} // namespace tesk::cpython
