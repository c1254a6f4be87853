// CPythonLanguage: Python as a language of the host, and the host modules
// tesk.cpython and python.
#pragma once

#include <tesk/tesk.h>

namespace tesk::cpython {

// The host module of the language's own functions. Plain text: read during
// the load-time initialisation of other files.
inline constexpr char const* cpython_module_name = "tesk.cpython";

// The class, built on first use.
Class_Generic cpython_language_class();
// The one instance, the same handle every time.
Any language_instance();

// The entry operations that the class and the module tesk.cpython bind: a
// statement block or an expression, each plain or sandboxed.
Result<Any> evaluate_block(String code, Union<EvaluationScope, None> scope);
Result<Any> evaluate_expression(String code, Union<EvaluationScope, None> scope);
Result<Any> evaluate_block_in_sandbox(String code, Union<EvaluationScope, None> scope);
Result<Any> evaluate_expression_in_sandbox(String code, Union<EvaluationScope, None> scope);

// The init handlers of the module tesk.cpython, one per member (the
// extension adds cpython_add_sys_path).
void register_evaluate();
void register_evaluate_expr();
void register_cpython_doc();
void register_cpython_set_sandbox_level();
// interrupt, evaluation_thread, set_time_limit, set_code_cache_size, finish.
void register_evaluation_controls();
// Builds the members' descriptions; called while the library loads.
void describe_cpython_module();

// Fills the host module "python" (doc, icon, language modules). The caller
// holds the interpreter lock.
void setup_python_module();

} // namespace tesk::cpython
